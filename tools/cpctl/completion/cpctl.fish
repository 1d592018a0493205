# Completion of cpctl for fish. cpctl itself knows what may come next: see tools/cpctl/completion.h.

function __cpctl_complete
    set -l words (commandline -opc)
    # In quotes: nothing typed is a word, too.
    set -l typed (commandline -ct)
    set -l answer (command $words[1] --complete $words[2..-1] "$typed" 2>/dev/null)
    if test "$answer[1]" = :files
        __fish_complete_path "$typed"
    else if set -q answer[1]
        printf '%s\n' $answer
    end
end

complete -c cpctl -f -k -a '(__cpctl_complete)'
