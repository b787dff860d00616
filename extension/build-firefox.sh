#!/usr/bin/env bash
# Builds the Firefox variant of the extension into the folder OUT_DIR: the
# same files, with manifest.firefox.json as the manifest. Load it with
# about:debugging or `web-ext run --source-dir OUT_DIR`.
#
# Usage: extension/build-firefox.sh OUT_DIR
set -euo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
if [ $# -ne 1 ]; then
  echo "usage: $0 OUT_DIR" >&2
  exit 2
fi
out="$1"
case "$out" in "$here"|"$here"/) echo "OUT_DIR must not be the extension folder" >&2; exit 2 ;; esac
rm -rf "$out"
mkdir -p "$out"
for f in "$here"/*.js "$here"/*.html "$here"/*.css; do
  cp "$f" "$out/"
done
mkdir -p "$out/icons"
cp "$here"/icons/*.png "$out/icons/"
cp "$here/manifest.firefox.json" "$out/manifest.json"
echo "$out"
