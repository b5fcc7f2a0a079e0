#!/usr/bin/env bash
# The manual pages are clean: man has no warning for any.
#
#     manuals_test.sh PAGES_FOLDER
#
# Exits with 77 where there is no man to ask.
set -euo pipefail

if ! man --version 2>/dev/null | grep -q '^man '; then
    echo "skipped: no man; install man-db"
    exit 77
fi
failed=0
for page in "$1"/*.[15]; do
    warnings=$( LC_ALL=C.UTF-8 MANWIDTH=80 man --warnings -E UTF-8 -Tutf8 -Z -l "$page" 2>&1 >/dev/null )
    if [ -n "$warnings" ]; then
        echo "$page:"
        echo "$warnings"
        failed=1
    fi
done
exit $failed
