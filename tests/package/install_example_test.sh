#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Installs this build into a temporary prefix and uses it as an application
# developer would: builds examples/assistant with find_package(zor) and with
# pkg-config, starts the installed tvsim in a private runtime directory and
# runs both builds against it.
# usage: install_example_test.sh CMAKE BUILD_DIR SOURCE_DIR LIBDIR CC VERSION [SANITIZER_FLAGS]
set -euo pipefail

# shellcheck source=package_test_lib.sh
. "$(dirname "${BASH_SOURCE[0]}")/package_test_lib.sh"

cmake=$1
build=$2
source=$3
libdir=$4
cc=$5
version=$6
sanitizer_flags=${7:-}

package_test_begin zor-package
prefix=$work/prefix

# ---- install ----------------------------------------------------------------
"$cmake" --install "$build" --prefix "$prefix" > "$work/install.log" 2>&1 ||
    fail "cmake --install"

for file in \
    "$libdir/libzor.so" "$libdir/libzor.so.${version%%.*}" "$libdir/libzor.so.$version" \
    "$libdir/libmup.so" "$libdir/libmup.so.${version%%.*}" "$libdir/libmup.so.$version" \
    include/zor/zor.h include/zor/zor_api.h include/zor/zor_audio.h include/zor/zor_callbacks.h \
    include/zor/zor_transport.h include/zor/zor_types.h include/zor/zor_version.h include/mup/mup.h \
    "$libdir/pkgconfig/zor.pc" "$libdir/pkgconfig/mup.pc" \
    "$libdir/cmake/zor/zorConfig.cmake" "$libdir/cmake/zor/zorConfigVersion.cmake" \
    "$libdir/cmake/zor/zorTargets.cmake" \
    bin/tvsim bin/zorctl bin/zorfeed share/zor/asound.conf; do
    [ -e "$prefix/$file" ] || fail "not installed: $file"
done
for internal in include/zor/zor_version.h.in "$libdir/libzor_internal.a" "$libdir/libmup_internal.a"; do
    [ ! -e "$prefix/$internal" ] || fail "installed but internal: $internal"
done
# Applications record the SONAME, which names the major version only.
for lib in zor mup; do
    soname=$(objdump -p "$prefix/$libdir/lib$lib.so" | awk '$1 == "SONAME" { print $2 }')
    [ "$soname" = "lib$lib.so.${version%%.*}" ] || fail "lib$lib.so has SONAME '$soname'"
done
grep -q "#define ZOR_VERSION_STRING \"$version\"" "$prefix/include/zor/zor_version.h" ||
    fail "zor_version.h does not carry $version"

# The installed programs run from the prefix and report the version (the
# library's own start-up lines may surround it).
for program in zorctl tvsim; do
    output=$("$prefix/bin/$program" --version) || fail "$program --version exited with $?"
    grep -qx "$program (libzor) $version" <<<"$output" || fail "$program --version: $output"
done

# ---- the simulated television ----------------------------------------------
cat > "$work/tv.json" <<'END'
{
  "audio": { "volume": 5, "maxVolume": 60 },
  "channels": [
    { "number": 101, "name": "Kestrel One" },
    { "number": 102, "name": "Kestrel Two" },
    { "number": 207, "name": "Heron News" }
  ],
  "currentChannel": 2
}
END
start_tvsim "$prefix/bin/tvsim" --state "$work/tv.json"

expected_output() {
    cat <<END
assistant on libzor $version
volume: $1 of 60
channels: 3
channel 101: Kestrel One
channel 102: Kestrel Two
channel 207: Heron News
current channel: 207 Heron News
END
}

# run_example NAME PROGRAM VOLUME: the example's own lines must be exactly the
# expected ones (the library prints its own log lines in between).
run_example() {
    local name=$1 program=$2 volume=$3
    "$program" --volume "$volume" > "$work/$name.out" 2> "$work/$name.log" ||
        fail "$name exited with $?"
    grep -E '^(assistant on|volume:|channels:|channel |current channel:)' "$work/$name.out" |
        diff -u <(expected_output "$volume") - > "$work/$name.diff.log" ||
        fail "$name printed something else"
    # The volume the example set reached the television.
    grep -qF "OXA_TV_CMD_ID_AUDIO_SetVolume value=$volume " "$work/tvsim.log" ||
        fail "tvsim saw no volume $volume"
}

# ---- find_package ----------------------------------------------------------
"$cmake" -S "$source/examples/assistant" -B "$work/cmake-build" \
    -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_C_COMPILER="$cc" \
    -DCMAKE_C_FLAGS="-Werror $sanitizer_flags" -DCMAKE_EXE_LINKER_FLAGS="$sanitizer_flags" \
    > "$work/cmake-configure.log" 2>&1 || fail "configuring the example with find_package"
grep -q "$prefix" "$work/cmake-build/CMakeCache.txt" || fail "zor not found under the prefix"
"$cmake" --build "$work/cmake-build" > "$work/cmake-build.log" 2>&1 ||
    fail "building the example with find_package"
# The package's own targets, not the build tree's headers, were used.
if grep -rq -- "-I$source/include" "$work/cmake-build" 2>/dev/null; then
    fail "the example compiled against the source tree"
fi
run_example find-package "$work/cmake-build/assistant" 31

# ---- pkg-config -------------------------------------------------------------
mkdir -p "$work/pc-build"
PKG_CONFIG_PATH="$prefix/$libdir/pkgconfig" make --no-print-directory -C "$source/examples/assistant" \
    O="$work/pc-build" CC="$cc" CFLAGS="-O2 -Werror $sanitizer_flags" LDFLAGS="$sanitizer_flags" \
    > "$work/pkg-config-build.log" 2>&1 || fail "building the example with pkg-config"
run_example pkg-config "$work/pc-build/assistant" 42

# ---- a command from the television reaches the example's callback -----------
"$work/pc-build/assistant" --volume 12 --listen 20 > "$work/listen.out" 2> "$work/listen.log" &
listener=$!
for _ in $(seq 100); do
    grep -q "listening" "$work/listen.out" && break
    sleep 0.1
done
"$prefix/bin/tvsim" ctl activate > "$work/ctl.log" 2>&1 || fail "tvsim ctl activate"
wait "$listener" || fail "the example did not see the activate command"
grep -qx "television: activate" "$work/listen.out" || fail "no activate line"

echo "ok: installed to a temporary prefix; the example built with find_package and pkg-config and ran against tvsim"
