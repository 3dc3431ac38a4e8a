#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# The licence line at the top of every source file.
#   spdx.sh check   lists the files without it and fails if there is one
#   spdx.sh add     puts it into those files (after a #! line, if any)
# Source files are the tracked C and C++, CMake, shell, Python, JavaScript and
# Lua template files and the Makefiles.
set -euo pipefail
cd "$(dirname "$0")/.."

readonly TAG="SPDX-License-Identifier: MIT"

sources() {
    git ls-files -- '*.c' '*.h' '*.cpp' '*.h.in' '*.js' '*.mjs' \
        '*CMakeLists.txt' '*.cmake' '*.cmake.in' '*.sh' '*.py' '*.lua.in' \
        '*Makefile' '.ci/run'
}

# C files and the public headers (which C applications include) take the C
# comment; other C++ and JavaScript files the line comment.
comment_for() {
    case "$1" in
    *.c | *.h.in | include/*) echo "/* $TAG */" ;;
    *.h | *.cpp | *.js | *.mjs) echo "// $TAG" ;;
    *.lua.in) echo "-- $TAG" ;;
    *) echo "# $TAG" ;;
    esac
}

# The line is the first one, or the second after a #! line.
has_line() {
    local file=$1 line
    line=$(comment_for "$file")
    if head -n 1 "$file" | grep -q '^#!'; then
        [ "$(sed -n 2p "$file")" = "$line" ]
    else
        [ "$(sed -n 1p "$file")" = "$line" ]
    fi
}

add_line() {
    local file=$1 line tmp
    line=$(comment_for "$file")
    tmp=$(mktemp)
    if head -n 1 "$file" | grep -q '^#!'; then
        { head -n 1 "$file"; echo "$line"; tail -n +2 "$file"; } >"$tmp"
    else
        { echo "$line"; cat "$file"; } >"$tmp"
    fi
    # Keeps the file's mode (scripts stay executable).
    cat "$tmp" >"$file"
    rm -f "$tmp"
}

mode=${1:-check}
missing=0
checked=0
while IFS= read -r file; do
    [ -f "$file" ] || continue
    checked=$((checked + 1))
    has_line "$file" && continue
    case "$mode" in
    check)
        echo "$file: no \"$(comment_for "$file")\" line at the top" >&2
        missing=$((missing + 1))
        ;;
    add) add_line "$file" ;;
    *)
        echo "usage: $0 [check|add]" >&2
        exit 2
        ;;
    esac
done < <(sources)

if [ "$missing" -ne 0 ]; then
    echo "spdx: $missing of $checked source files lack the licence line (scripts/spdx.sh add)" >&2
    exit 1
fi
[ "$mode" = check ] && echo "spdx: $checked source files carry the licence line"
exit 0
