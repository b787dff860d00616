#!/usr/bin/env bash
# The Debian package on this machine, as a user gets it: builds it
# (scripts/package), installs it with apt-get, checks with `wren-bridge doctor`
# that every browser's system-wide manifest is sound, runs one Chromium case
# against the installed host and extension through the system-wide manifest
# alone, then purges it and checks that nothing it installed is left.
#
#   tests/package/run.sh [BUILD_DIR]    (BUILD_DIR: a build with wren-service-sim, default build/)
#
# Needs root (apt-get, /etc, /usr), Chromium, node and npm (scripts/install-deps --browser). Leaves the machine without the package,
# also when a step fails.
set -euo pipefail
root="$(cd "$(dirname "$0")/../.." && pwd)"
build="$(cd "${1:-$root/build}" && pwd)"
sim="$build/tools/wren-service-sim"
[ "$(id -u)" -eq 0 ] || { echo "package test: needs root (apt-get install, /etc)" >&2; exit 1; }
[ -x "$sim" ] || { echo "package test: no $sim; build it first (scripts/test)" >&2; exit 1; }

apt=(apt-get -o DPkg::Lock::Timeout=600 -y -qq)
work="$(mktemp -d "${TMPDIR:-/tmp}/wren-package-test.XXXXXX")"
sim_pid=""
cleanup() {
  [ -n "$sim_pid" ] && kill "$sim_pid" 2>/dev/null || true
  if dpkg-query -W -f='${Status}' wren-bridge 2>/dev/null | grep -q installed; then
    DEBIAN_FRONTEND=noninteractive "${apt[@]}" purge wren-bridge >/dev/null 2>&1 || true
  fi
  rm -rf "$work"
}
trap cleanup EXIT
fail() { echo "package test: FAILED: $*" >&2; exit 1; }

deb="$("$root/scripts/package" --werror | tail -n 1)"
[[ "$(basename "$deb")" =~ ^wren-bridge_[0-9][^_]*_[a-z0-9]+\.deb$ ]] || fail "unexpected package name $deb"
echo "package test: $deb, Depends: $(dpkg-deb -f "$deb" Depends)"
dpkg-deb -f "$deb" Depends | grep -q libcurl || fail "Depends does not name libcurl"

if dpkg-query -W -f='${Status}' wren-bridge 2>/dev/null | grep -q installed; then
  DEBIAN_FRONTEND=noninteractive "${apt[@]}" purge wren-bridge >/dev/null
fi
# What of the package's paths exists already (/usr, /etc/opt, ...) stays after purge.
dpkg-deb --fsys-tarfile "$deb" | tar -t | sed -e 's|^\./|/|' -e 's|/$||' | grep -v '^/\?$' | sort -u >"$work/paths"
while read -r p; do
  if [ -e "$p" ] || [ -L "$p" ]; then echo "$p"; fi
done <"$work/paths" >"$work/before"

DEBIAN_FRONTEND=noninteractive "${apt[@]}" install "$(cd "$(dirname "$deb")" && pwd)/$(basename "$deb")" >/dev/null
dpkg -L wren-bridge | grep -v '^/\.$' | sort -u >"$work/installed"
for f in /usr/bin/wren-bridge /usr/share/wren-bridge/extension/manifest.json /usr/share/wren-bridge/extension-firefox/manifest.json \
  /usr/share/wren-bridge/extension/icons/icon-128.png /usr/share/man/man1/wren-bridge.1.gz \
  /usr/share/doc/wren-bridge/copyright; do
  [ -f "$f" ] || fail "$f is not installed"
done
echo "package test: installed, $(wc -l <"$work/installed") paths"

# doctor, with the simulator as the local service: every system-wide location sound.
"$sim" --port 0 >"$work/sim.out" 2>/dev/null &
sim_pid=$!
for _ in $(seq 1 200); do
  grep -q '"listening"' "$work/sim.out" 2>/dev/null && break
  sleep 0.05
done
port="$(grep -o '"port":[0-9]*' "$work/sim.out" | head -n 1 | cut -d: -f2)"
[ -n "$port" ] || fail "wren-service-sim did not start"
export WREN_SERVICE_ORIGIN="http://127.0.0.1:$port"
status=0
HOME="$work/home" XDG_CONFIG_HOME="$work/home/.config" /usr/bin/wren-bridge doctor >"$work/doctor" 2>&1 || status=$?
[ "$status" -eq 0 ] || { cat "$work/doctor" >&2; fail "wren-bridge doctor exited $status"; }
for label in "Chromium (system)" "Google Chrome (system)" "Microsoft Edge (system)" "Firefox (system)"; do
  grep -q "^  $label: registered .* -> /usr/bin/wren-bridge for " "$work/doctor" ||
    { cat "$work/doctor" >&2; fail "doctor does not find the $label manifest registered"; }
done
[ "$(grep -c 'round trip: hello from version .*; exited 0 when stdin closed' "$work/doctor")" -ge 1 ] ||
  { cat "$work/doctor" >&2; fail "doctor's round trip with /usr/bin/wren-bridge failed"; }
! grep -q "broken" "$work/doctor" || { cat "$work/doctor" >&2; fail "doctor finds a broken manifest"; }
echo "package test: doctor finds the four system-wide manifests sound"
kill "$sim_pid" && wait "$sim_pid" 2>/dev/null || true
sim_pid=""

# One Chromium case: the installed extension and host, the system-wide manifest only.
PUPPETEER_SKIP_DOWNLOAD=1 npm ci --prefix "$root/tests/browser" --no-audit --no-fund --loglevel=error >/dev/null
WREN_BRIDGE_EXE=/usr/bin/wren-bridge WREN_SIM_EXE="$sim" \
  node --test --test-concurrency=1 "$root/tests/package/browser.test.mjs" >"$work/browser.log" 2>&1 ||
  { cat "$work/browser.log" >&2; fail "the Chromium case against the installed package"; }
echo "package test: Chromium rated a page through /usr/bin/wren-bridge and the system-wide manifest"

DEBIAN_FRONTEND=noninteractive "${apt[@]}" purge wren-bridge >/dev/null
left=()
while read -r p; do
  if { [ -e "$p" ] || [ -L "$p" ]; } && ! grep -qxF "$p" "$work/before"; then left+=("$p"); fi
done <"$work/installed"
[ ${#left[@]} -eq 0 ] || fail "left after purge: ${left[*]}"
for d in /etc/chromium/native-messaging-hosts /etc/opt/chrome /etc/opt/edge /usr/lib/mozilla/native-messaging-hosts \
  /usr/share/wren-bridge /usr/share/doc/wren-bridge /var/lib/wren-bridge; do
  if grep -qxF "$d" "$work/before"; then continue; fi
  [ ! -e "$d" ] || fail "$d is left after purge"
done
echo "package test: purged, none of its $(wc -l <"$work/installed") paths left"
