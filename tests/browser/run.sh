#!/usr/bin/env bash
# Runs the browser tests against a build, in Chromium and Firefox: installs
# the npm dependencies (puppeteer-core only; no browser is downloaded,
# Debian's chromium and firefox-esr are used) and runs them with node's test
# runner.
#
#   tests/browser/run.sh [BUILD_DIR]      (default: build/ of the checkout)
#
# WREN_BRIDGE_EXE, WREN_SIM_EXE, WREN_CHROMIUM and WREN_FIREFOX override the
# binaries. Exits 77 (skipped) when a browser, node or npm is missing: install
# them with scripts/install-deps --browser.
set -euo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
build="$(cd "${1:-$here/../../build}" && pwd)"
export WREN_BRIDGE_EXE="${WREN_BRIDGE_EXE:-$build/src/host/wren-bridge}"
export WREN_SIM_EXE="${WREN_SIM_EXE:-$build/tools/wren-service-sim}"
export WREN_CHROMIUM="${WREN_CHROMIUM:-/usr/lib/chromium/chromium}"
export WREN_FIREFOX="${WREN_FIREFOX:-/usr/bin/firefox-esr}"
missing=()
for exe in "$WREN_CHROMIUM" "$WREN_FIREFOX"; do
  [ -x "$exe" ] || missing+=("$exe")
done
for tool in node npm; do
  command -v "$tool" >/dev/null || missing+=("$tool")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "browser tests skipped: missing ${missing[*]} (scripts/install-deps --browser)" >&2
  exit 77
fi
cd "$here"
PUPPETEER_SKIP_DOWNLOAD=1 npm ci --no-audit --no-fund --loglevel=error
exec node --test --test-concurrency=1 extension.test.mjs
