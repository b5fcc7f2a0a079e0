#!/usr/bin/env bash
# Whether docs/recipes.md is what the recipes do today.
#
#     recipes_doc_test.sh CAIRN_LT SOURCE_TREE
set -euo pipefail

if ! "$1" explain --all --format markdown | diff -u "$2/docs/recipes.md" -; then
    echo "docs/recipes.md is not current; renew it with: $1 explain --all --format markdown >docs/recipes.md"
    exit 1
fi
