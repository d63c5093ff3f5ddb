#!/usr/bin/env bash
# Builds and runs every test: Linux release, Linux with sanitizers, and the
# Windows DLL with its tests under Wine (with a virtual display for dialogs).
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh linux install windows
jobs=$(nproc)
for preset in linux linux-asan windows; do
    echo "== $preset =="
    cmake --preset "$preset" >/dev/null
    cmake --build --preset "$preset" -j "$jobs"
done
passed=0
failed=0
run() { if "$@"; then passed=$((passed + 1)); else failed=$((failed + 1)); fi; }
run ctest --preset linux -j "$jobs"
run ctest --preset linux-asan -j "$jobs"
run xvfb-run -a -s "-screen 0 1280x1024x24" ctest --preset windows
run scripts/compare-digests.sh build/linux build/windows
echo "suites: $passed passed, $failed failed"
[ "$failed" -eq 0 ]
