# Completion of cairn-lt for bash: asks the program what may stand there.
_cairn_lt() {
    # bash cuts words at "=" and ":", the program does not. What bash has cut off before the cursor stays.
    local line=${COMP_LINE:0:COMP_POINT} words answer word
    read -ra words <<<"$line"
    [[ $line == *[[:blank:]] ]] && words+=( "" )
    local current=${words[-1]}
    local kept=${current%"${current##*[=:]}"}

    mapfile -t answer < <( "$1" complete "${words[@]:1}" 2>/dev/null </dev/null )
    COMPREPLY=()
    for word in "${answer[@]:1}"; do
        word=${word%%$'\t'*}
        COMPREPLY+=( "${word#"$kept"}" )
        [[ $word == *[=,/] ]] && compopt -o nospace
    done
    if [[ ${answer[0]-} == files ]]; then
        compopt -o filenames
        while read -r word; do
            COMPREPLY+=( "$word" )
        done < <( compgen -f -- "${current#"$kept"}" )
    fi
} 2>/dev/null
complete -F _cairn_lt cairn-lt
