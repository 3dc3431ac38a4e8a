#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Runs each libFuzzer target for a while: run-fuzz.sh <build dir> <seconds>.
# The corpus grows in <build dir>/fuzz-corpus/<target>; a finding leaves its
# input in <build dir>/fuzz-artifacts/ and fails the run.
set -euo pipefail

build=${1:-build-fuzz}
seconds=${2:-60}
root=$(cd "$(dirname "$0")/.." && pwd)

# Seeds: one well-formed input per inbound request layout, and a few frames.
seed_inbound() {
    local dir=$1
    # id (little-endian), control byte 0, payload
    printf '\x01\x00\x01\x10\x00' > "$dir/activate"
    printf '\x03\x00\x01\x10\x00\x03\x00\x00\x00\x07\x00\x00\x00' > "$dir/ui-status"
    printf '\x04\x00\x01\x10\x00en\x00\x00' > "$dir/language"
    printf '\x05\x00\x01\x10\x00GBR' > "$dir/country"
    printf '\x06\x00\x01\x10\x00\x02\x00\x00\x00\x01\x00\x02\x00' > "$dir/pcm"
    printf '\x06\x00\x01\x10\x00\xff\xff\xff\xff' > "$dir/pcm-huge"
    printf '\x0c\x00\x01\x10\x02\x01' > "$dir/hold-no-reply"
    printf '\x0e\x00\x01\x10\x00\x01\xff\x06' > "$dir/ffm-sup"
    printf '\x02\x00\x02\x10\x00abc\x00' > "$dir/cert"
    printf '\x03\x00\x02\x10\x00' > "$dir/query"
    printf '\x07\x00\x03\x10\x00\x01\x00\x00\x00' > "$dir/ga-power"
}

seed_frames() {
    local dir=$1
    # chunk byte, then a request frame: magic, version 1, kind 1, seq, cmd, size 4, payload
    printf '\x05ZMUP\x01\x00\x01\x00\x07\x00\x00\x00\x01\x00\x01\x10\x04\x00\x00\x00abcd' > "$dir/request"
    printf '\x00ZMUP\x01\x00\x03\x00\x07\x00\x00\x00\x01\x00\x01\x10\x00\x00\x00\x00' > "$dir/empty-reply"
    printf '\x11ZMUP\x01\x00\x02\x00\x01\x00\x00\x00\x02\x00\x01\x10\x00\x00\x10\x00' > "$dir/oversized"
}

status=0
for target in fuzz_inbound_command fuzz_frame_decoder; do
    binary="$build/fuzz/$target"
    corpus="$build/fuzz-corpus/$target"
    seeds="$build/fuzz-seeds/$target"
    artifacts="$build/fuzz-artifacts/"
    mkdir -p "$corpus" "$seeds" "$artifacts"
    case $target in
        fuzz_inbound_command) seed_inbound "$seeds" ;;
        fuzz_frame_decoder) seed_frames "$seeds" ;;
    esac
    printf '== %s for %s s\n' "$target" "$seconds"
    if ! "$binary" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
        -dict="$root/fuzz/$target.dict" -artifact_prefix="$artifacts" \
        -print_final_stats=1 "$corpus" "$seeds"; then
        printf '== %s: FINDING, see %s\n' "$target" "$artifacts"
        status=1
    fi
done
exit $status
