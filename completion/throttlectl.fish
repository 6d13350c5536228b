# Completion of throttlectl for fish: the program itself knows what may stand where.

function __throttlectl_complete
    set -l words (commandline -opc)
    set -l typed (commandline -ct)
    set -l program $words[1]
    set -e words[1]
    set -l found ($program complete -- $words $typed 2>/dev/null)
    if set -q found[1]
        printf '%s\n' $found
    else
        __fish_complete_path $typed
    end
end

complete -c throttlectl -f -a '(__throttlectl_complete)'
