#!/usr/bin/env bash
# What the built library weighs: hot code for each guarded call, relocations, and that what describes recipes and
# messages cannot be written to.
#
#     code_test.sh LIBRARY RECIPES_SOURCE [--report]
#
# --report prints the figures as a Markdown table, and judges nothing.
set -euo pipefail
library=$1
source=$2
report=${3:-}

# The recipes are the exported functions. Of each everything but what the compiler has put aside as cold: its guarded
# calls, its own logic, its prologue.
recipes=$( nm -D -S -t d --defined-only "$library" | awk '$3 == "T"' )
hot=$( awk '{ bytes += $2 } END { print bytes }' <<<"$recipes" )
calls=$( grep -cE '^ *CAIRN_CALL(_[A-Z_]+)?\(' "$source" )
average=$(( ( hot + calls - 1 ) / calls ))
# What several recipes call: the messages, the commits, the hook, the chip model's code.
shared=$( nm -C -S -t d --defined-only "$library" | grep -v '\[clone \.cold\]' |
    grep -E 'Cairn::(sendMessage<|preCallHook|bcmlt_|\(anonymous namespace\)::(chipOf|systemPort)|CairnCommonSmData::cairnModId)|SYSPORT_FROM_MODPORT' |
    awk '{ bytes += $2 } END { print bytes }' )
with_shared=$(( ( hot + shared + calls - 1 ) / calls ))
relocations=$( readelf -rW "$library" | grep -c R_X86_64 )
load_time=$( readelf -rW "$library" | grep -c R_X86_64_RELATIVE )
descriptors=$( objdump -t "$library" | grep -E 'cairn(Recipe|Message|Pieces)_' )
writable=$( grep -vE ' \.(data\.rel\.ro|rodata)[[:space:]]' <<<"$descriptors" || true )

if [ "$report" = --report ]; then
    cat <<TABLE
| of the library | | limit |
|---|--:|--:|
| recipes | $( wc -l <<<"$recipes" ) | |
| guarded calls | $calls | |
| hot code of the recipes' functions, bytes | $hot | |
| the same for each guarded call | $average | 96 |
| hot code that they share (messages, commits, the chip model's code), bytes | $shared | |
| for each guarded call, with what is shared | $with_shared | |
| relocations | $relocations | 400 |
| of them relative, of data | $load_time | |
| descriptors of recipes and messages, all read-only once loaded | $( wc -l <<<"$descriptors" ) | |
TABLE
    exit
fi

failed=0
fail() {
    echo "$1"
    failed=1
}
[ "$( wc -l <<<"$recipes" )" -eq 47 ] || fail "the exported functions are not the recipes; count anew what is weighed here"
[ "$average" -le 96 ] || fail "hot code: $hot bytes for $calls guarded calls are $average each; at most 96"
[ "$relocations" -le 400 ] || fail "$relocations relocations; at most 400. What describes a call site must not hold addresses"
[ "$shared" -gt 0 ] || fail "the functions that recipes share are not found; bring their names up to date"
[ -z "$writable" ] || fail "descriptors that can be written to; make them constexpr:
$writable"
exit $failed
