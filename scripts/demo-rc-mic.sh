#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# The remote-control microphone without a television: a spoken sentence is
# fed into the capture device "hw:0,6" (redirected by sim/alsa/asound.conf to
# a FIFO) at real-time pace, and `zorctl record` records it back through the
# library's PCM callback.
# usage: demo-rc-mic.sh [build-dir]
set -euo pipefail

build=${1:-build}
root=$(cd "$(dirname "$0")/.." && pwd)
zorctl="$build/tools/zorctl"
zorfeed="$build/tools/zorfeed"

work=$(mktemp -d /tmp/zor-rc-mic-XXXXXX)
feed_pid=""
cleanup() {
    if [ -n "$feed_pid" ]; then
        kill -TERM "$feed_pid" 2>/dev/null || true
        wait "$feed_pid" 2>/dev/null || true
    fi
    rm -rf "$work"
}
trap cleanup EXIT

export ALSA_CONFIG_PATH="$root/sim/alsa/asound.conf"
export ZOR_ALSA_DIR="$work/alsa"
mkdir -p "$ZOR_ALSA_DIR"

describe() { # file: size and duration
    printf '  %-10s %8d bytes, %s s, %s Hz, %s channel(s)\n' "$(basename "$1")" \
        "$(stat -c %s "$1")" "$(soxi -D "$1")" "$(soxi -r "$1")" "$(soxi -c "$1")"
}

printf '\n== Speaking a sentence into a 16 kHz mono WAV file\n'
espeak-ng -w "$work/spoken.wav" "Alexa, what is on channel four tonight?"
sox "$work/spoken.wav" -r 16000 -c 1 -b 16 "$work/speech.wav"
describe "$work/speech.wav"

seconds=$(soxi -D "$work/speech.wav")
record_seconds=$(awk -v s="$seconds" 'BEGIN { printf "%.1f", s + 1.0 }')

printf '\n== Feeding it into hw:0,6 and recording %s s with zorctl record\n' "$record_seconds"
# Silence after the sentence keeps the FIFO open until the capture stops.
"$zorfeed" --mkfifo --tail -1 "$work/speech.wav" "$ZOR_ALSA_DIR/pcm0,6.in" &
feed_pid=$!
# -v: the library's own lines too (on stderr), for the name of its raw dump.
"$zorctl" -v record -d "$record_seconds" "$work/recorded.wav" > "$work/record.log" 2>&1
kill -TERM "$feed_pid" 2>/dev/null || true
wait "$feed_pid" 2>/dev/null || true
feed_pid=""
sed 's/^/  /' "$work/record.log"
# The library's own raw dump of the capture, named in its close line.
dump=$(sed -n 's/.*PCM device success\. \[file:\(.*\)\]$/\1/p' "$work/record.log")
if [ -n "$dump" ] && [ -f "$dump" ]; then
    printf '  %-10s %8d bytes (raw dump of the library, removed)\n' "$(basename "$dump")" \
        "$(stat -c %s "$dump")"
    rm -f "$dump"
fi

printf '\n== What went in and what came back\n'
describe "$work/speech.wav"
describe "$work/recorded.wav"
# The recording starts with the sentence: compare that stretch sample for sample.
sox "$work/recorded.wav" "$work/head.raw" trim 0 "$seconds" 2>/dev/null
sox "$work/speech.wav" "$work/speech.raw"
if cmp -s -n "$(stat -c %s "$work/speech.raw")" "$work/speech.raw" "$work/head.raw"; then
    echo "  the recording begins with the spoken sentence, sample for sample"
else
    echo "  the recording differs from the spoken sentence" >&2
    exit 1
fi
