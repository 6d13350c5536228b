# Completion of throttlectl for bash: the program itself knows what may stand where.

_throttlectl() {
    local rest=${COMP_LINE:0:COMP_POINT} words=() piece i
    # Bash parts names at their colons and equals signs; they are put together again.
    for ((i = 0; i <= COMP_CWORD; i++)); do
        if ((i == 0)) || [[ $rest == [[:space:]]* ]]; then
            words+=("")
            rest=${rest#"${rest%%[![:space:]]*}"}
        fi
        piece=${COMP_WORDS[i]}
        ((i < COMP_CWORD)) || piece=$rest
        words[-1]+=$piece
        rest=${rest#"$piece"}
    done
    # It replaces what is behind the last of them, alone.
    local typed=${words[-1]} word
    local before=${typed%"${typed##*[:=]}"}
    COMPREPLY=()
    while IFS=$'\t' read -r word _; do
        printf -v word %q "${word#"$before"}"
        COMPREPLY+=("$word")
    done < <("${words[0]}" complete -- "${words[@]:1}" 2>/dev/null)
    # Something follows at once.
    if [[ ${#COMPREPLY[@]} == 1 && ${COMPREPLY[0]} == *[:=/] ]]; then
        compopt -o nospace 2>/dev/null
    fi
}

complete -o default -F _throttlectl throttlectl
