#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# The simulated far-field board is a development aid: only a build with
# ZOR_SIM_BOARD on carries it and the environment variable that selects it.
# A television's build (the armhf cross-build by default) must not contain
# the variable's name at all, so no application's environment can send wake
# words to another socket.
# usage: sim_board_test.sh LIBZOR ON|OFF
set -euo pipefail

libzor=$1
sim_board=$2

[ -f "$libzor" ] || { echo "FAIL: no $libzor"; exit 1; }
if grep -qa ZOR_XMOS_DEVICE "$libzor"; then
    contains=yes
else
    contains=no
fi
case "$sim_board" in
ON | on | 1 | TRUE | true)
    # The check below has something to find where the board is built in.
    [ "$contains" = yes ] || { echo "FAIL: development build without ZOR_XMOS_DEVICE"; exit 1; }
    echo "ok: $(basename "$libzor") of a development build selects the simulated board"
    ;;
*)
    [ "$contains" = no ] || { echo "FAIL: $libzor contains ZOR_XMOS_DEVICE"; exit 1; }
    echo "ok: $(basename "$libzor") has no simulated board"
    ;;
esac
