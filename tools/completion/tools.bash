# Completion of hpk and vexreg in bash. The tools themselves report what may come next.

# Folders and packages that the word may become; files if none is a package.
_vantry_packages() {
    local file magic found=() files=()
    mapfile -t files < <(compgen -f -- "$1")
    for file in "${files[@]}"; do
        magic=
        [[ ! -f $file ]] || IFS= LC_ALL=C read -rN3 magic <"$file" 2>/dev/null
        [[ ! -d $file && $magic != 'J[l' ]] || found+=("$file")
    done
    ((${#found[@]})) || found=("${files[@]}")
    ((!${#found[@]})) || printf '%s\n' "${found[@]}"
}

_vantry_tools() {
    local word=${COMP_WORDS[COMP_CWORD]} words=("${COMP_WORDS[@]}") at=$COMP_CWORD
    local breaks=${COMP_WORDBREAKS//[^:=]/} offer text quote='' typed unfit=''
    # The shell has split words at colons and equals signs.
    if declare -F _get_comp_words_by_ref >/dev/null; then
        _get_comp_words_by_ref -n "$breaks" -c word -w words -i at
    fi
    # The words before are passed as the command will receive them.
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
            :package)
                mapfile -O ${#COMPREPLY[@]} -t COMPREPLY < <(_vantry_packages "$word")
                ;;
            :folder) mapfile -O ${#COMPREPLY[@]} -t COMPREPLY < <(compgen -d -- "$word") ;;
            =*)
                text=${offer:1}
                # Keys may contain characters that the shell interprets.
                [[ $quote ]] || printf -v text %q "$text"
                [[ $text != "$typed"* || ($unfit && $text == *[$unfit]*) ]] || COMPREPLY+=("$text")
                ;;
        esac
        [[ $offer != :* ]] || compopt -o filenames 2>/dev/null
    done < <("${COMP_WORDS[0]}" __complete "${words[@]}" "$typed" 2>/dev/null | cut -f 1)
    # The shell replaces only the part after the last of those signs.
    if [[ $breaks && ! $quote ]]; then
        COMPREPLY=("${COMPREPLY[@]#"${word%"${word##*[$breaks]}"}"}")
    fi
}
complete -F _vantry_tools hpk vexreg
