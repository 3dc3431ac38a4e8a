#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# libzor is built against the platform's own messaging library on a
# television, so it may use libmup only through its interface, mup/mup.h:
# no other header of the messaging layer in libzor's sources.
# usage: mup_interface_test.sh SOURCE_DIR
set -euo pipefail

source=$1
found=$(grep -rnE '^[[:space:]]*#[[:space:]]*include[[:space:]]*[<"]mup/' \
    "$source/base" "$source/api" "$source/server" "$source/transport" "$source/audio" |
    grep -vE '[<"]mup/mup\.h[>"]' || true)
if [ -n "$found" ]; then
    echo "FAIL: libzor includes the messaging layer's private headers:"
    echo "$found"
    exit 1
fi
echo "ok: libzor includes mup/mup.h only"
