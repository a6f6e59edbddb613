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

# processor_of ARCH: the name of Debian's architecture that compilers and qemu use.
processor_of() { if [[ $1 == arm64 ]]; then echo aarch64; else echo "$1"; fi; }

# can_run ARCH: whether programs of the architecture run here, through qemu if need be. Tries it with the
# dynamic linker that comes with the cross compiler.
can_run() {
    local linker
    [[ $(dpkg --print-architecture) != "$1" ]] || return 0
    linker=$(echo "/usr/$(processor_of "$1")-linux-gnu/lib"/ld*.so.1)
    "$linker" --version >/dev/null 2>&1
}

# need_emulation ARCH: fails if programs of the architecture do not run here. Root first registers qemu with the
# kernel, which lasts until the machine restarts.
need_emulation() {
    local formats=/proc/sys/fs/binfmt_misc rule
    ! can_run "$1" || return 0
    rule=/usr/lib/binfmt.d/qemu-$(processor_of "$1").conf
    if [[ $(id -u) -eq 0 ]]; then
        [[ -e $formats/register ]] || mount -t binfmt_misc binfmt_misc $formats || true
        cat "$rule" >$formats/register || true
    fi
    can_run "$1" && return
    echo "$0: programs for $1 do not run here: the kernel must have binfmt_misc, and root must once register $rule" >&2
    return 1
}
