# shellcheck shell=bash
# Completion for bash. It asks the tool, which knows what may come next.

_telvane() {
    local answer line
    COMPREPLY=()
    answer=$("$1" complete -- "${COMP_WORDS[@]:1:COMP_CWORD}" 2>/dev/null) || return 0
    while IFS= read -r line; do
        if [ "$line" = :files ]; then
            compopt -o filenames
            mapfile -t COMPREPLY < <(compgen -f -- "$2")
        elif [ -n "$line" ]; then
            # Some names of consumables have blanks.
            printf -v line %q "${line%%$'\t'*}"
            COMPREPLY+=("$line")
        fi
    done <<<"$answer"
}

complete -F _telvane telvane
