#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# libzor built against an installed libmup, as on a television whose platform
# brings its own messaging library. The project's libmup is installed alone
# (install component "mup") into a temporary prefix that plays the platform;
# libzor is configured from a copy of the sources without the bundled
# messaging layer (no mup/, no include/mup/), so nothing but the installed
# mup/mup.h can be reached: through pkg-config (built, with the simulated
# board off as on the television, and installed into the platform) and
# through the prefix (configured). An application then builds against the
# platform with find_package and with pkg-config and talks to the simulated
# television.
# usage: external_mup_test.sh CMAKE BUILD_DIR SOURCE_DIR LIBDIR CC CXX TVSIM
set -euo pipefail

# shellcheck source=package_test_lib.sh
. "$(dirname "${BASH_SOURCE[0]}")/package_test_lib.sh"

cmake=$1
build=$2
source=$3
libdir=$4
cc=$5
cxx=$6
tvsim=$7

package_test_begin zor-external-mup
platform=$work/platform

# ---- the platform's libmup --------------------------------------------------
"$cmake" --install "$build" --component mup --prefix "$platform" > "$work/install-mup.log" 2>&1 ||
    fail "installing the mup component"
for file in "$libdir/libmup.so" include/mup/mup.h "$libdir/pkgconfig/mup.pc"; do
    [ -e "$platform/$file" ] || fail "the mup component lacks $file"
done
for file in "$libdir/libzor.so" include/zor/zor.h "$libdir/pkgconfig/zor.pc"; do
    [ ! -e "$platform/$file" ] || fail "the mup component installed $file"
done

# ---- libzor's sources without the bundled messaging layer ------------------
mkdir "$work/src"
tar -C "$source" --exclude=./mup --exclude=./include/mup --exclude='./build*' \
    --exclude=./.git --exclude=node_modules -cf - . | tar -C "$work/src" -xf - ||
    fail "copying the sources"
[ ! -e "$work/src/mup" ] && [ ! -e "$work/src/include/mup" ] || fail "the copy has mup/"

export PKG_CONFIG_PATH=$platform/$libdir/pkgconfig
configure() {
    local name=$1 mup=$2
    "$cmake" -S "$work/src" -B "$work/$name" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
        -DCMAKE_C_COMPILER="$cc" -DCMAKE_CXX_COMPILER="$cxx" -DZOR_MUP="$mup" \
        -DZOR_SIM_BOARD=OFF > "$work/$name-configure.log" 2>&1
}

# Through the prefix: the library and header found are the platform's.
configure by-prefix "$platform" || fail "configuring with ZOR_MUP=<prefix>"
grep -qx "ZOR_MUP_LIBRARY:FILEPATH=$platform/$libdir/libmup.so" "$work/by-prefix/CMakeCache.txt" ||
    fail "ZOR_MUP=<prefix> did not find $platform/$libdir/libmup.so"
grep -qx "ZOR_MUP_INCLUDE_DIR:PATH=$platform/include" "$work/by-prefix/CMakeCache.txt" ||
    fail "ZOR_MUP=<prefix> did not find $platform/include"

# Through pkg-config: libzor alone (tests and tools are off by default).
configure by-pkg-config pkg-config || fail "configuring with ZOR_MUP=pkg-config"
grep -qx "ZOR_MUP_LIBRARY:FILEPATH=$platform/$libdir/libmup.so" \
    "$work/by-pkg-config/CMakeCache.txt" || fail "pkg-config did not find the platform's libmup"
grep -qx "ZOR_BUILD_TESTS:BOOL=OFF" "$work/by-pkg-config/CMakeCache.txt" ||
    fail "tests are not off with an installed libmup"
"$cmake" --build "$work/by-pkg-config" -j 2 > "$work/by-pkg-config-build.log" 2>&1 ||
    fail "building libzor against the installed libmup"
libzor=$work/by-pkg-config/libzor.so
objdump -p "$libzor" | grep -q 'NEEDED *libmup\.so\.' || fail "libzor.so does not need libmup.so"
if grep -qa ZOR_XMOS_DEVICE "$libzor"; then
    fail "libzor.so built without the simulated board contains ZOR_XMOS_DEVICE"
fi

# ---- installed into the platform, used by an application --------------------
"$cmake" --install "$work/by-pkg-config" --prefix "$platform" > "$work/install-zor.log" 2>&1 ||
    fail "installing libzor"
grep -q '^Requires: mup$' "$platform/$libdir/pkgconfig/zor.pc" ||
    fail "zor.pc does not require the platform's mup"
[ -e "$platform/$libdir/cmake/zor/zorMup.cmake" ] || fail "the CMake package cannot find libmup"

start_tvsim "$tvsim"

# run_example NAME PROGRAM VOLUME: the volume reaches the television.
run_example() {
    local name=$1 program=$2 volume=$3
    "$program" --volume "$volume" > "$work/$name.out" 2> "$work/$name-run.log" ||
        fail "$name exited with $?"
    grep -q "^volume: $volume of " "$work/$name.out" || fail "$name printed no volume $volume"
    grep -qF "OXA_TV_CMD_ID_AUDIO_SetVolume value=$volume " "$work/tvsim.log" ||
        fail "tvsim saw no volume $volume"
}

"$cmake" -S "$source/examples/assistant" -B "$work/example-cmake" -DCMAKE_C_COMPILER="$cc" \
    -DCMAKE_PREFIX_PATH="$platform" > "$work/example-cmake-configure.log" 2>&1 ||
    fail "configuring the example with find_package"
"$cmake" --build "$work/example-cmake" > "$work/example-cmake-build.log" 2>&1 ||
    fail "building the example with find_package"
run_example find-package "$work/example-cmake/assistant" 23

mkdir -p "$work/example-pc"
make --no-print-directory -C "$source/examples/assistant" O="$work/example-pc" CC="$cc" \
    > "$work/example-pc-build.log" 2>&1 || fail "building the example with pkg-config"
run_example pkg-config "$work/example-pc/assistant" 24

echo "ok: libzor built against an installed libmup (pkg-config and prefix), installed beside it and used by an application"
