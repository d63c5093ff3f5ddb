#!/usr/bin/env bash
# Refreshes the README's gallery: runs `paximg demo`, copies a few of its
# images into docs/, and photographs the contact sheet with headless Chromium
# (Debian's chromium package; not needed to build or test).
set -euo pipefail
cd "$(dirname "$0")/.."
tool=${PAXIMG:-build/linux/bin/paximg}
out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT
"$tool" demo "$out"
mkdir -p docs/gallery
for name in chart hue-saturation-hue120 convert-lab replace-color-skin convolve-sharpen3 \
            dither-fs4-1 dither-fs4-4 ordered-3 split-hsv-h; do
    cp "$out/$name.png" docs/gallery/
done
chromium --headless --no-sandbox --disable-gpu --disable-background-networking \
    --disable-component-update --disable-sync --no-first-run --hide-scrollbars \
    --window-size=1540,1500 --screenshot="$PWD/docs/demo-contact-sheet.png" \
    "file://$out/index.html" 2>/dev/null
echo "wrote docs/gallery/ and docs/demo-contact-sheet.png"
