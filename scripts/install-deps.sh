#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Installs the Debian 12 packages the project needs, only those missing.
# usage: install-deps.sh host|armhf|docs|web
set -euo pipefail

what=${1:-host}
host_packages=(
    build-essential cmake pkg-config git
    libasound2-dev libevdev-dev libusb-1.0-0-dev libsndfile1-dev
    libgtest-dev libgmock-dev libbenchmark-dev nlohmann-json3-dev libcli11-dev
    espeak-ng sox alsa-utils
    clang libclang-rt-14-dev clang-format clang-tidy
    libcpp-httplib-dev
    tshark
)
# The API reference (make docs): Doxygen only, no graphs.
docs_packages=(cmake doxygen)
# The dashboard's browser test (ctest -L web): Debian's Chromium, Node with
# npm (Debian 12's Node 18 will do; a machine's own newer Node is kept), and
# the locked Node modules of tests/web.
web_packages=(chromium)
if ! command -v node > /dev/null || ! command -v npm > /dev/null; then
    web_packages+=(nodejs npm)
fi
armhf_packages=(
    g++-arm-linux-gnueabihf qemu-user
    libasound2-dev:armhf libevdev-dev:armhf libusb-1.0-0-dev:armhf
    libgtest-dev:armhf libgmock-dev:armhf libsndfile1-dev:armhf
)

case "$what" in
host) packages=("${host_packages[@]}") ;;
armhf) packages=("${host_packages[@]}" "${armhf_packages[@]}") ;;
docs) packages=("${docs_packages[@]}") ;;
web) packages=("${web_packages[@]}") ;;
*) echo "usage: $0 host|armhf|docs|web" >&2; exit 2 ;;
esac

sudo=""
if [ "$(id -u)" -ne 0 ]; then
    sudo="sudo"
fi

if [ "$what" = armhf ] && ! dpkg --print-foreign-architectures | grep -qx armhf; then
    $sudo dpkg --add-architecture armhf
    need_update=1
fi

missing=()
for package in "${packages[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed"; then
        missing+=("$package")
    fi
done

if [ ${#missing[@]} -gt 0 ] || [ -n "${need_update:-}" ]; then
    echo "Installing: ${missing[*]}"
    # One unreachable index must not stop the set-up; the install below tells
    # whether what we need could be found.
    $sudo apt-get update -q || echo "apt-get update reported an error; going on"
    if [ ${#missing[@]} -gt 0 ]; then
        $sudo env DEBIAN_FRONTEND=noninteractive apt-get install -y -q --no-install-recommends "${missing[@]}"
    fi
fi

if [ "$what" = web ]; then
    web_tests="$(cd "$(dirname "$0")/.." && pwd)/tests/web"
    locked=$(sed -n 's/^ *"version": "\(.*\)",$/\1/p' "$web_tests/package-lock.json" | head -n 1)
    # Nothing installed yet is no error (pipefail would make it one).
    installed=$(sed -n 's/^ *"version": "\(.*\)",$/\1/p' \
        "$web_tests/node_modules/playwright-core/package.json" 2> /dev/null | head -n 1 || true)
    if [ "$installed" != "$locked" ]; then
        echo "Installing the Node modules of tests/web (playwright-core $locked)"
        if ! (cd "$web_tests" && npm ci --no-audit --no-fund); then
            echo "npm ci failed in tests/web: the browser test can't run" >&2
            exit 1
        fi
    fi
fi
