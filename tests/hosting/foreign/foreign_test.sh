#!/usr/bin/env bash
# Builds the library against the headers of an agent that shares nothing with this project but the documented names,
# and lets that agent run recipes: the SDK's calls, lines, records and a stop must be as ever.
#
#     foreign_test.sh SOURCE_TREE WORK_FOLDER CXX_COMPILER...
set -euo pipefail
source_tree=$1
work=$2
shift 2
here=$source_tree/tests/hosting/foreign
failed=0

check() { # what, expected, found
    if ! difference=$( diff <( printf '%s\n' "$2" ) <( printf '%s\n' "$3" ) ); then
        printf '%s differs (< expected, > found):\n%s\n' "$1" "$difference"
        failed=1
    fi
}

for compiler in "$@"; do
    folder=$work/$( basename "$compiler" )
    rm -rf "$folder"
    mkdir -p "$folder"
    cd "$folder"
    flags=( -std=c++20 -O2 -fPIC -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror
        -I"$here/headers" -I"$source_tree" )
    objects=()
    for source in "$source_tree"/Cairn/*.cpp "$source_tree"/Cairn/internal/*.cpp; do
        object=$( basename "$source" ).o
        "$compiler" "${flags[@]}" -fvisibility=hidden -fvisibility-inlines-hidden -c "$source" -o "$object"
        objects+=( "$object" )
    done
    "$compiler" "${flags[@]}" -shared "$here/Framework.cpp" -o libAgent.so

    # The agent's types mangle otherwise. With the list of our own types the link fails, and says which names it misses.
    link=( "$compiler" -shared -Wl,-soname,libCairnLtHelper.so -Wl,--no-undefined-version -Wl,-Bsymbolic-functions
        -L. "${objects[@]}" -lAgent
        -o libCairnLtHelper.so )
    if "${link[@]}" -Wl,--version-script="$source_tree/Cairn/exports.map" 2>link.log; then
        echo "$compiler: the list of exports names what is not there, and the link does not fail"
        failed=1
    elif ! grep -q setMcastV6StrengthProfile link.log; then
        echo "$compiler: the link does not say which exports are missing:"
        cat link.log
        failed=1
    fi
    python3 "$source_tree/scripts/exports.py" --print \
        'CairnCentral::ChipInfo=CairnCentral::agent::ChipInfo' \
        'Cairn::CairnCommonSmData::Ptr=Nacre::agent::Ptr<Cairn::agent::CairnCommonSmData>' >exports.map
    "${link[@]}" -Wl,--version-script=exports.map
    check "$compiler: the number of exported symbols" "$( grep -c '"Cairn::' exports.map )" \
        "$( nm -D --defined-only libCairnLtHelper.so | wc -l )"

    "$compiler" "${flags[@]}" "$here/agent.cpp" -L. -lCairnLtHelper -lAgent -Wl,-rpath,"$folder" -o agent
    check "$compiler: what the agent printed" "$( cat "$here/expected.txt" )" "$( ./agent )"
    status=0
    report=$( ./agent fail 2>&1 >/dev/null ) || status=$?
    check "$compiler: the end of the agent whose SDK refuses a call" 134 "$status"
    check "$compiler: the report" \
        "Cairn/CairnLtHelper:LINE bcmlt_entry_commit( tnlL2VxlanControlEntry, BCMLT_OPCODE_UPDATE, BCMLT_PRIORITY_NORMAL ) API ERROR:refused (-7)
agent: Cairn/CairnLtHelper:LINE: void Cairn::setVxlanDefaultNetworkSvp(uint32_t, uint32_t): Assertion \`0' failed." \
        "$( sed -E 's/CairnLtHelper:[0-9]+/CairnLtHelper:LINE/' <<<"$report" )"
done
exit $failed
