#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Runs the dashboard's browser test, or says why it cannot (exit 77, which
# CTest counts as skipped).
set -u
here=$(cd "$(dirname "$0")" && pwd)
chromium=${CHROMIUM:-/usr/bin/chromium}

skip() {
    echo "SKIPPED: $* (scripts/install-deps.sh web installs what is missing)"
    exit 77
}

command -v node > /dev/null || skip "node is not installed"
node_major=$(node -p 'process.versions.node.split(".")[0]' 2> /dev/null || echo 0)
[ "$node_major" -ge 18 ] || skip "playwright-core needs Node 18 or later (found $(node --version 2> /dev/null))"
[ -x "$chromium" ] || skip "$chromium is not installed"
[ -d "$here/node_modules/playwright-core" ] || skip "tests/web/node_modules is missing (npm ci in tests/web)"
[ -x "${ZOR_TEST_BIN_DIR:-}/sim/tvsim" ] || skip "tvsim is not built"
[ -x "${ZOR_TEST_BIN_DIR:-}/tools/zorctl" ] || skip "zorctl is not built"

cd "$here" && exec node --test dashboard.test.mjs
