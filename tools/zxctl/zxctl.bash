# Bash completion for zxctl. It takes the names of the options from zxctl --help.
_zxctl() {
    local word=$2 option=$3
    COMPREPLY=()
    case $option in
        --dir) mapfile -t COMPREPLY < <(compgen -d -- "$word"); return ;;
        -o | --output) mapfile -t COMPREPLY < <(compgen -f -- "$word"); return ;;
        --timeout | --watch) return ;;
    esac
    local words each all
    if [[ $word == -* ]]; then
        words=$("$1" --help 2>/dev/null | sed -En 's/^  (-[a-z],)?(--[a-z-]+).*/\2/p')
    elif [[ ${COMP_CWORD-1} -eq 1 ]]; then
        words="list $("$1" list 2>/dev/null | awk 'NR > 1 && $3 == "serves" { print $1, $2 }')"
    elif [[ $COMP_CWORD -eq 2 ]]; then
        words=$("$1" --help 2>/dev/null | sed -En '/^TOPIC:/,/^$/s/^  ([a-z]+)(, ([a-z]+))?.*/\1 \3/p')
    else
        words='seconds= level= tag= tags= lines= mark= since= by='
        compopt -o nospace
    fi
    # A program chooses its name. compgen -W would expand it, and the shell what is inserted.
    read -rd '' -a all <<<"$words" || true  # it ends at the end of the text
    for each in "${all[@]}"; do
        [[ $each != "$word"* || $each == *[^[:alnum:]._+=-]* ]] || COMPREPLY+=("$each")
    done
}
complete -o filenames -F _zxctl zxctl
