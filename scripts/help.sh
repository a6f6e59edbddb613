# help.sh: the scripts here source it. --help prints the comment at the top of the script that was asked.
case ${1-} in
-h | --help)
    sed -n '2,/^[^#]/s/^# \{0,1\}//p' "scripts/${0##*/}"
    exit 0
    ;;
esac
