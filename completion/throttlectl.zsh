#compdef throttlectl
# Completion of throttlectl for zsh: the program itself knows what may stand where.

local -a words_so_far found names shown open_names open_shown
local line

words_so_far=("${(@Q)words[2,CURRENT-1]}")
found=("${(@f)$("${(Q)words[1]}" complete -- "${words_so_far[@]}" "${(Q)PREFIX}" 2>/dev/null)}")
for line in $found; do
    # Something follows at once where a name ends so.
    if [[ ${line%%$'\t'*} == *[:=/] ]]; then
        open_names+=("${line%%$'\t'*}")
        open_shown+=("${line/$'\t'/  -- }")
    else
        names+=("${line%%$'\t'*}")
        shown+=("${line/$'\t'/  -- }")
    fi
done
if (($#names + $#open_names)); then
    compadd -l -d shown -a names
    compadd -l -S '' -d open_shown -a open_names
else
    _files
fi
