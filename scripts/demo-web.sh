#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# The virtual television in a browser: tvsim with its dashboard page and the
# simulated far-field board, and an assistant application (zorctl listen)
# for the page's controls to reach. Runs until Ctrl-C.
# usage: demo-web.sh [build-dir]   (WEB_PORT=8480, WEB_APP=0 starts no application)
set -euo pipefail

build=${1:-build}
root=$(cd "$(dirname "$0")/.." && pwd)
tvsim="$build/sim/tvsim"
zorctl="$build/tools/zorctl"
port=${WEB_PORT:-8480}

work=$(mktemp -d /tmp/zor-demo-web-XXXXXX)
export ZOR_RUNTIME_DIR="$work/run"
# The sound devices are files and FIFOs of our own (sim/alsa/asound.conf).
export ALSA_CONFIG_PATH="$root/sim/alsa/asound.conf"
export ZOR_ALSA_DIR="$work/alsa"
export ZOR_XMOS_DEVICE="$ZOR_RUNTIME_DIR/xmos.sock"
mkdir -p "$ZOR_ALSA_DIR"

sim_pid=""
app_pid=""
cleanup() {
    for pid in $app_pid $sim_pid; do
        kill -TERM "$pid" 2> /dev/null || true
        wait "$pid" 2> /dev/null || true
    done
    rm -rf "$work"
}
trap cleanup EXIT
trap 'exit 0' INT TERM

"$tvsim" --xmos --web --web-port "$port" > "$work/tvsim.log" 2>&1 &
sim_pid=$!
address=""
for _ in $(seq 200); do
    address=$(sed -n 's/^tvsim: dashboard at //p' "$work/tvsim.log")
    [ -n "$address" ] && break
    if ! kill -0 "$sim_pid" 2> /dev/null; then
        cat "$work/tvsim.log" >&2
        exit 1
    fi
    sleep 0.05
done
if [ -z "$address" ]; then
    echo "tvsim did not start its dashboard:" >&2
    cat "$work/tvsim.log" >&2
    exit 1
fi

if [ "${WEB_APP:-1}" != 0 ]; then
    # A listening assistant with the far-field microphone: before it completes
    # its initialisation the television reports the board (card 1, device 2),
    # then its DSP ready.
    "$zorctl" listen --source ffm --init-delay 1 --stream-seconds 3 --wav "$work/listen.wav" \
        > "$work/listen.log" 2>&1 &
    app_pid=$!
    for _ in $(seq 100); do
        [ -S "$ZOR_RUNTIME_DIR/oxa.kel.idtv.client.sock" ] && break
        sleep 0.05
    done
    "$tvsim" ctl ffm-sup 1 1 2 > /dev/null
    "$tvsim" ctl dsp 1 > /dev/null
    for _ in $(seq 100); do
        grep -q '^event: init-completed' "$work/listen.log" 2> /dev/null && break
        sleep 0.05
    done
fi

cat << EOF2

  The virtual television: $address

  The simulator's log:          $work/tvsim.log
  The application's callbacks:  $work/listen.log
  Try: ZOR_RUNTIME_DIR=$ZOR_RUNTIME_DIR $zorctl volume set 42

  Ctrl-C stops.
EOF2
wait "$sim_pid"
