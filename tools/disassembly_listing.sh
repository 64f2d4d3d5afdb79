# Sourced by the instruction checks: checks the one argument, a shared
# object, and writes its disassembly into the file named by $listing (removed
# on exit). Further arguments go to objdump.
#
#   disassemble_argument "$0" "$@" -- <objdump options>

disassemble_argument() {
    local script="$1"
    shift
    local arguments=()
    while [[ $# -gt 0 && "$1" != "--" ]]; do
        arguments+=("$1")
        shift
    done
    shift
    if [[ ${#arguments[@]} -ne 1 ]]; then
        echo "usage: $script <shared object>" >&2
        exit 2
    fi
    library="${arguments[0]}"
    if [[ ! -f "$library" ]]; then
        echo "$script: no such file: $library" >&2
        exit 2
    fi
    local objdump_program="${OBJDUMP:-objdump}"
    if ! command -v "$objdump_program" >/dev/null 2>&1; then
        echo "$script: $objdump_program not found" >&2
        exit 2
    fi
    listing="$(mktemp)"
    trap 'rm -f "$listing"' EXIT
    if ! "$objdump_program" "$@" "$library" >"$listing"; then
        echo "$script: $objdump_program failed on $library" >&2
        exit 2
    fi
}
