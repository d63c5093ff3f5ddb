#!/usr/bin/env bash
# Builds and runs every test: Linux release, Linux with sanitizers, and the
# Windows DLL with its tests under Wine (with a virtual display for dialogs).
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
jobs=$(nproc)
for preset in linux linux-asan windows; do
    echo "== $preset =="
    cmake --preset "$preset" >/dev/null
    cmake --build --preset "$preset" -j "$jobs"
done
status=0
ctest --preset linux -j "$jobs" || status=1
ctest --preset linux-asan -j "$jobs" || status=1
xvfb-run -a -s "-screen 0 1280x1024x24" ctest --preset windows || status=1
exit $status
