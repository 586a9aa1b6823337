# Completion of hpack and vexreg in bash. The tools say themselves what may come next.
_vantry_tools() {
    local word=${COMP_WORDS[COMP_CWORD]} offer text
    COMPREPLY=()
    while IFS= read -r offer; do
        case $offer in
            :file) mapfile -O ${#COMPREPLY[@]} -t COMPREPLY < <(compgen -f -- "$word") ;;
            :folder) mapfile -O ${#COMPREPLY[@]} -t COMPREPLY < <(compgen -d -- "$word") ;;
            =*)
                # Keys may hold what the shell takes apart.
                printf -v text %q "${offer:1}"
                [[ $text != "$word"* ]] || COMPREPLY+=("$text")
                ;;
        esac
        [[ $offer != :* ]] || compopt -o filenames 2>/dev/null
    done < <("${COMP_WORDS[0]}" __complete "${COMP_WORDS[@]:1:COMP_CWORD}" 2>/dev/null | cut -f 1)
    if declare -F __ltrim_colon_completions >/dev/null; then
        __ltrim_colon_completions "$word"
    fi
}
complete -F _vantry_tools hpack vexreg
