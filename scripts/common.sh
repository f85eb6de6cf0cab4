# Sourced by the scripts beside it and by ./run and ./test: the places in the tree and how to speak.

# shellcheck shell=bash
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=$root/build
jobs=${SONVIA_JOBS:-$(nproc)}

say() { printf '\n== %s\n' "$*"; }
die() { printf 'error: %s\n' "$*" >&2; exit 1; }

# Runs a command quietly and shows its output only when it fails.
quietly() {
    local log
    log=$(mktemp)
    if "$@" >"$log" 2>&1; then
        rm -f "$log"
    else
        local status=$?
        cat "$log" >&2
        rm -f "$log"
        return $status
    fi
}
