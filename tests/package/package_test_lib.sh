# SPDX-License-Identifier: MIT
# Sourced by the package tests that install and run programs: a private work
# directory holding the runtime directory, removed on exit once the programs
# the test started in the background and did not wait for are stopped; `fail`
# with the work directory's logs; tvsim started and waited for.
#
#   . "$(dirname "${BASH_SOURCE[0]}")/package_test_lib.sh"
#   package_test_begin NAME      # sets $work and ZOR_RUNTIME_DIR

# The shell's own job table names only the programs it has not reaped yet, so
# no pid that the system may have given to another process is signalled.
package_test_cleanup() {
    local pid
    for pid in $(jobs -p); do
        kill "$pid" 2>/dev/null || true
        wait "$pid" 2>/dev/null || true
    done
    rm -rf "$work"
}

# package_test_begin NAME: a fresh $work under $TMPDIR, gone on exit.
package_test_begin() {
    work=$(mktemp -d "${TMPDIR:-/tmp}/$1.XXXXXX")
    export ZOR_RUNTIME_DIR=$work/run
    trap package_test_cleanup EXIT
}

# fail MESSAGE: says what failed, shows the end of each log, exits 1.
fail() {
    echo "FAIL: $*"
    for log in "$work"/*.log; do
        [ -f "$log" ] && { echo "--- $(basename "$log")"; tail -n 40 "$log"; }
    done
    exit 1
}

# start_tvsim TVSIM [ARGS...]: runs the simulated television with its output in
# $work/tvsim.log and waits (10 s at most) until it serves.
start_tvsim() {
    "$@" > "$work/tvsim.log" 2>&1 &
    local pid=$!
    for _ in $(seq 100); do
        grep -q "serving" "$work/tvsim.log" && return 0
        kill -0 "$pid" 2>/dev/null || fail "tvsim exited"
        sleep 0.1
    done
    fail "tvsim did not start"
}
