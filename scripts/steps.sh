# shellcheck shell=bash
# Sourced by the other scripts, in the project's top folder. Each script begins with a comment about what
# it does and which arguments it takes. --help prints this comment, and so do wrong arguments.

about() { sed -n '2,/^[^#]/s/^# \{0,1\}//p' "scripts/${0##*/}"; }
misused() {
    about >&2
    exit 2
}
if [[ ${1-} == --help ]]; then
    about
    exit
fi

# stage NAME COMMAND...: runs COMMAND and prints how long it took.
stage() {
    local begin=$SECONDS
    printf '== %s\n' "$1"
    "${@:2}"
    printf -- '-- %s: %d s\n' "$1" $((SECONDS - begin))
}

# counted: passes on the output of ninja or ctest, with only one in ten of the progress lines.
counted() {
    local line tenth shown=''
    local count='^ *\[?([0-9]+)/([0-9]+)(\] | Test .*(Passed|Skipped))' start='^ +Start +[0-9]+: '
    while IFS= read -r line; do
        if [[ $line =~ $count ]]; then
            tenth=$((10 * BASH_REMATCH[1] / BASH_REMATCH[2]))
            [[ $tenth == "$shown" ]] || printf '   %d of %d\n' "${BASH_REMATCH[1]}" "${BASH_REMATCH[2]}"
            shown=$tenth
        elif [[ ! $line =~ $start ]]; then
            printf '%s\n' "$line"
        fi
    done
}

# build PRESET [TARGET...]: builds the targets, or everything.
build() {
    cmake --preset "$1" >/dev/null
    cmake --build --preset "$1" ${2:+--target "${@:2}"} | counted
}

# run_tests PRESET: runs two tests per processor at a time, because many of them mostly wait.
run_tests() {
    ctest --preset "$1" --parallel $((2 * $(nproc))) --no-tests=error --output-on-failure | counted
}
