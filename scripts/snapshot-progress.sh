#!/usr/bin/env bash
# Photographs the real progress dialog under Xvfb and Wine into docs/.
set -euo pipefail
cd "$(dirname "$0")/.."
cmake --build build/windows --target progress_preview
display=:77
Xvfb "$display" -screen 0 640x360x24 >/dev/null 2>&1 &
xvfb=$!
trap 'kill $xvfb' EXIT
sleep 1
DISPLAY=$display build/windows/wine-run.sh build/windows/bin/progress_preview.exe 5 &
sleep 3.5
DISPLAY=$display import -window root docs/progress-dialog.png
wait %2 || true
echo "wrote docs/progress-dialog.png"
