# Completion of cairn-lt for fish: asks the program what may stand there.
function __cairn_lt_complete
    set -l words (commandline -opc)
    set -l current (commandline -ct)
    set -l answer ($words[1] complete $words[2..-1] $current 2>/dev/null </dev/null)
    test (count $answer) -gt 1; and printf '%s\n' $answer[2..-1]
    if test "$answer[1]" = files
        set -l file (string replace -r '^.*=' '' -- $current)
        set -l kept (string sub -l (math (string length -- $current) - (string length -- $file)) -- $current)
        for path in (__fish_complete_path $file)
            printf '%s%s\n' $kept $path
        end
    end
end
complete -c cairn-lt -f -a '(__cairn_lt_complete)'
