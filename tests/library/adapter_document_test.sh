#!/usr/bin/env bash
# The list of what a platform must offer, in docs/hosting.md, against the library's sources and the adapter: nothing is
# missing in the list, and nothing stands there that the library does not use.
#
#     adapter_document_test.sh SOURCE_TREE
set -euo pipefail
cd "$1"
document=docs/hosting.md
adapter=platform/CairnPlatform/Adapter.h
sources=( Cairn/*.h Cairn/*.cpp Cairn/internal/*.h Cairn/internal/*.cpp CairnCommon/*.h )
failed=0

# Rows of a table of the document, by the heading above it: the names in backticks of their first column.
names_below() {
    sed -n "/^### $1\$/,/^##/p" "$document" | grep '^| `' | cut -d'|' -f2 | grep -oE '`[^`]+`' | tr -d '`' | LC_ALL=C sort -u
}
differ() { # what, expected, found
    local difference
    if ! difference=$( diff <( printf '%s\n' "$2" ) <( printf '%s\n' "$3" ) ); then
        printf '%s (< only in the code, > only in %s):\n%s\n' "$1" "$document" "$difference"
        failed=1
    fi
}
code() { sed 's|//.*||' "${sources[@]}"; }

used=$( code | grep -oE '\bCairnPlatform::\w+' | sed 's/.*:://' | LC_ALL=C sort -u )
differ "What the library asks the adapter for" "$used" "$( names_below 'Names of the adapter' )"
defined=$( sed -n '/^namespace CairnPlatform/,$p' "$adapter" | sed -E 's/^\[\[[^]]*\]\] //' |
    sed -nE 's/^(inline |constexpr |using |template |const |Nacre::).*/&/p' | grep -vE '^template ' |
    sed -E 's/^using (\w+) = .*/\1/; s/^inline constexpr void \( \*(\w+) \).*/\1/; s/^inline constexpr [a-z:_ ]+ (\w+) = .*/\1/; s/^[^(]*[ *&](\w+)\(.*/\1/' | LC_ALL=C sort -u )
differ "What the adapter offers and the library asks for" "$used" "$defined"

# Names that are used as they are. What the library itself declares in these namespaces is not the platform's.
direct=$( code | grep -oE '\b(Asic|CairnProfile|CairnTypes|Fleetlog|Hardware|Kiln|Nacre|Twinlog|CairnCentral|CairnCommon|Cairn)(::\w+)*::\w+' |
    grep -E '^(Asic|CairnProfile|CairnTypes|Fleetlog|Hardware|Kiln|Nacre|Twinlog)::|::(ChipInfo|CairnChipAttributes|CairnCommonFeatureAttributes|CairnCommonSmData|CairnModInfo)\b' |
    LC_ALL=C sort -u )
while read -r name; do
    grep -qF "\`$name" "$document" || {
        echo "$name: the library uses it, and $document does not list it under \"Names that are used as they are\""
        failed=1
    }
done <<<"$direct"

# Headers: the adapter, the shim, and the two that the public header names.
headers=$( code | sed -nE 's/^ *# *include <([A-Z][^>]*)>.*/\1/p' | LC_ALL=C sort -u )
differ "Headers that the library includes by name" "$headers" "$( names_below 'Headers by name' )"
exit $failed
