#!/usr/bin/env bash
# tool_described.sh PROGRAM FILES [OPTION BEGIN WORD]: the manual page FILES.1 has exactly the options
# of the program. FILES.bash completes them, and BEGIN to WORD after OPTION. The program knows all options in
# FILES.toml, if there is one, also those that are commented out.
set -euo pipefail
name=$(basename "$1")

known=$("$1" --help | sed -En 's|^  (-[A-Za-z],)?(--[a-z-]+).*|\2|p' | sort)
paged=$(grep -A 1 '^\.TP' "$2.1" | grep -oE '\\-\\-[a-z\\-]+' | tr -d '\\' | sort)
diff <(echo "$known") <(echo "$paged")

# shellcheck disable=SC1090
source "$2.bash"
complete_after() { "_$name" "$1" "$3" "$2"; }
complete_after "$1" "$name" --
diff <(echo "$known") <(printf '%s\n' "${COMPREPLY[@]}" | sort)
complete_after "$1" "${3:---interface}" "${4:-l}"
[[ " ${COMPREPLY[*]} " == *" ${5:-lo} "* ]]

[[ -e $2.toml ]] || exit 0
said=$("$1" --config <(sed -E 's/^# ([a-z-]+ = )/\1/' "$2.toml") --output nowhere 2>&1 || true)
[[ $said == *"'nowhere' is not an address with a port"* ]] || { echo "$said" >&2; exit 1; }
