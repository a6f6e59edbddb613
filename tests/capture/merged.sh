# shellcheck shell=bash
# For scripts that read many captures.

# merge_captures WORK FOLDER...: the frames of all capture files in the folders, in one file
# WORK/merged-LINK for each link type. It leaves out what mergecap cannot read, and files of bad
# intent, whose times and lengths each program reads in its own way.
merge_captures() {
    local work=$1 link files
    shift
    find "$@" -name '*.pcap*' -not -path '*/hostile/*' -print0 | sort -z |
        xargs -0 capinfos -TEr 2>/dev/null >"$work/links" || true
    for link in ether linux-sll linux-sll2 rawip null; do
        mapfile -t files < <(awk -F '\t' -v link="$link" '$2 == link {print $1}' "$work/links")
        [[ ${#files[@]} -eq 0 ]] || mergecap -a -F nsecpcap -w "$work/merged-$link" "${files[@]}"
    done
}
