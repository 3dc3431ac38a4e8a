#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Runs every benchmark program of a build directory.
set -euo pipefail
build=${1:-build-bench}
status=0
for program in "$build"/bench/bench_*; do
    [ -x "$program" ] || continue
    echo "== $(basename "$program")"
    "$program" || status=1
done
exit $status
