#!/usr/bin/env bash
# Runs the browser tests against a build: installs the npm dependencies
# (playwright-core only; no browser is downloaded, Debian's chromium is used)
# and runs them with node's test runner.
#
#   tests/browser/run.sh [BUILD_DIR]      (default: build/ of the checkout)
#
# WREN_BRIDGE_EXE, WREN_SIM_EXE and WREN_CHROMIUM override the binaries.
# Exits 77 (skipped) when Chromium or node is missing: install them with
# scripts/install-deps --browser.
set -euo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
build="$(cd "${1:-$here/../../build}" && pwd)"
export WREN_BRIDGE_EXE="${WREN_BRIDGE_EXE:-$build/src/host/wren-bridge}"
export WREN_SIM_EXE="${WREN_SIM_EXE:-$build/tools/wren-service-sim}"
chromium="${WREN_CHROMIUM:-/usr/lib/chromium/chromium}"
if [ ! -x "$chromium" ] || ! command -v node >/dev/null || ! command -v npm >/dev/null; then
  echo "browser tests skipped: needs $chromium, node and npm (scripts/install-deps --browser)" >&2
  exit 77
fi
node_major="$(node -p 'process.versions.node.split(".")[0]')"
if [ "$node_major" -lt 20 ]; then
  echo "browser tests skipped: playwright-core needs node 20 or newer, this is $(node --version)" >&2
  exit 77
fi
cd "$here"
npm ci --no-audit --no-fund --loglevel=error
exec node --test --test-concurrency=1 --test-timeout=90000 extension.test.mjs
