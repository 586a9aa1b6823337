# Completion of hpk and vexreg in bash. The tools say themselves what may come next.
_vantry_tools() {
    local word=${COMP_WORDS[COMP_CWORD]} words=("${COMP_WORDS[@]}") at=$COMP_CWORD
    local breaks=${COMP_WORDBREAKS//[^:=]/} offer text quote='' typed unfit=''
    # The shell has taken words apart at colons and equals signs.
    if declare -F _get_comp_words_by_ref >/dev/null; then
        _get_comp_words_by_ref -n "$breaks" -c word -w words -i at
    fi
    # What stands before comes as the command will get it.
    mapfile -t words < <(printf '%s\n' "${words[@]:1:at-1}" | sed "s|^~/|$HOME/|" |
        xargs -r printf '%s\n' 2>/dev/null)
    typed=$word
    case $word in
        \"*) quote=1 typed=${word:1} unfit='"$`\' ;;
        \'*) quote=1 typed=${word:1} unfit="'" ;;
    esac
    COMPREPLY=()
    while IFS= read -r offer; do
        case $offer in
            :file) mapfile -O ${#COMPREPLY[@]} -t COMPREPLY < <(compgen -f -- "$word") ;;
            :folder) mapfile -O ${#COMPREPLY[@]} -t COMPREPLY < <(compgen -d -- "$word") ;;
            =*)
                text=${offer:1}
                # Keys may hold what the shell takes apart.
                [[ $quote ]] || printf -v text %q "$text"
                [[ $text != "$typed"* || ($unfit && $text == *[$unfit]*) ]] || COMPREPLY+=("$text")
                ;;
        esac
        [[ $offer != :* ]] || compopt -o filenames 2>/dev/null
    done < <("${COMP_WORDS[0]}" __complete "${words[@]}" "$typed" 2>/dev/null | cut -f 1)
    # Only what is behind the last of those signs is replaced.
    if [[ $breaks && ! $quote ]]; then
        COMPREPLY=("${COMPREPLY[@]#"${word%"${word##*[$breaks]}"}"}")
    fi
}
complete -F _vantry_tools hpk vexreg
