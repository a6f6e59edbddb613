# Bash completion for zxcapture. It takes the names of the options from zxcapture --help.
_zxcapture() {
    local word=$2 option=$3
    COMPREPLY=()
    case $option in
        -r | --read | -w | --write) mapfile -t COMPREPLY < <(compgen -f -- "$word"); return ;;
        -i | --interface) mapfile -t COMPREPLY < <(cd /sys/class/net && compgen -f -W any -- "$word"); return ;;
        --protocol) mapfile -t COMPREPLY < <(compgen -W 'tcp udp icmp icmpv6 igmp' -- "$word"); return ;;
        --fields)
            # The last name of the list.
            mapfile -t COMPREPLY < <(compgen -P "${word%"${word##*,}"}" \
                -W "$("$1" --list-fields 2>/dev/null | cut -d' ' -f1)" -- "${word##*,}")
            return ;;
        -[cBsCGW] | --count | --buffer-size | --snapshot-length | --file-* | --extract | --rtp-clock | --*mac | --*ip | --*port) return ;;
    esac
    local options
    options=$("$1" --help 2>/dev/null | sed -En 's/^  (-[A-Za-z],)?(--[a-z-]+).*/\2/p')
    mapfile -t COMPREPLY < <(compgen -W "$options" -- "$word")
}
complete -o filenames -F _zxcapture zxcapture
