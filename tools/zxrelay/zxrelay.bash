# Bash completion for zxrelay. It takes the names of the options from zxrelay --help.
_zxrelay() {
    local word=$2 option=$3
    COMPREPLY=()
    case $option in
        --config | --log | --pid-file) mapfile -t COMPREPLY < <(compgen -f -- "$word"); return ;;
        --interface) mapfile -t COMPREPLY < <(cd /sys/class/net && compgen -f -- "$word"); return ;;
        --user) mapfile -t COMPREPLY < <(compgen -u -- "$word"); return ;;
        --log-level) mapfile -t COMPREPLY < <(compgen -W '0 1 2 3 4 5' -- "$word"); return ;;
        -i | --input | --backup | --send | --source-timeout | -o | --output | --status | --log-keep | --fifo-size | \
            --client-buffer | --stall | --keep | --latency | --senders | --memory | --max-clients | --name | --cors | \
            --allow | --max-per-address | --token | --status-token) return ;;
    esac
    local options
    options=$("$1" --help 2>/dev/null | sed -En 's/^  (-[a-z],)?(--[a-z-]+).*/\2/p')
    mapfile -t COMPREPLY < <(compgen -W "$options" -- "$word")
}
complete -o filenames -F _zxrelay zxrelay
