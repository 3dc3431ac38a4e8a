#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# The demo: a simulated television, and an assistant application (zorctl)
# driving it through libzor over real sockets.
set -euo pipefail

build=${1:-build}
root=$(cd "$(dirname "$0")/.." && pwd)
tvsim="$build/sim/tvsim"
zorctl="$build/tools/zorctl"

work=$(mktemp -d /tmp/zor-demo-XXXXXX)
export ZOR_RUNTIME_DIR="$work/run"
# The sound devices are files and FIFOs of our own (sim/alsa/asound.conf).
export ALSA_CONFIG_PATH="$root/sim/alsa/asound.conf"
export ZOR_ALSA_DIR="$work/alsa"
mkdir -p "$ZOR_ALSA_DIR"
sim_pid=""
cleanup() {
    if [ -n "$sim_pid" ]; then
        kill -TERM "$sim_pid" 2>/dev/null || true
        wait "$sim_pid" 2>/dev/null || true
    fi
    rm -rf "$work"
}
trap cleanup EXIT

section() { printf '\n== %s\n' "$*"; }

section "Starting the simulated television"
# --xmos: the television also plays the far-field microphone board.
"$tvsim" --xmos > "$work/tvsim.log" 2>&1 &
sim_pid=$!
for _ in $(seq 100); do
    [ -S "$ZOR_RUNTIME_DIR/oxa.kel.avs.client.sock" ] && break
    sleep 0.05
done

run() {
    printf '$ zorctl %s\n' "$*"
    "$zorctl" "$@"
}

section "An assistant application sends audio commands"
run volume get
run volume set 30
run volume get
run mute set 1
run mute get
run max-volume
run gain -- -3
run sound-style 2

for extra in "$root"/scripts/demo.d/*.sh; do
    [ -e "$extra" ] || continue
    # shellcheck source=/dev/null
    source "$extra"
done

section "What the television received (decoded)"
kill -TERM "$sim_pid"
wait "$sim_pid" || true
sim_pid=""
cat "$work/tvsim.log"
