#!/usr/bin/env bash
# Renders the extension's icons from wren.svg at the sizes both manifests name.
# Needs rsvg-convert (Debian package librsvg2-bin). The PNGs are committed, so
# only a change of the SVG needs this.
set -euo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
for size in 16 32 48 128; do
  rsvg-convert --width "$size" --height "$size" "$here/wren.svg" --output "$here/icon-$size.png"
done
