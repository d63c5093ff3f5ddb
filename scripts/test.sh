#!/usr/bin/env bash
# Builds and runs every test: Linux release, Linux with sanitizers, the threads
# test under ThreadSanitizer, the Windows DLL with its tests under Wine (with a
# virtual display for dialogs), each fuzz target for 20 seconds from its seed
# corpus, and the Python package against the Linux build (Debian's python3).
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh linux install windows fuzz python
jobs=$(nproc)
for preset in linux linux-asan linux-tsan windows fuzz; do
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
run env PAXIMAGE_LIBRARY="$PWD/build/linux/bin/libPAXIMGUser.so" /usr/bin/python3 -m pytest -q \
    -p no:cacheprovider python/tests
run ctest --preset linux-tsan
fuzz() { # target: 20 seconds from the seeds; a finding is kept in build/fuzz/found/
    mkdir -p build/fuzz/work/"$1" build/fuzz/found
    if build/fuzz/bin/fuzz_"$1" -max_total_time=20 -timeout=10 -max_len=4096 \
        -artifact_prefix=build/fuzz/found/"$1"- build/fuzz/work/"$1" build/fuzz/corpus/"$1" \
        >build/fuzz/"$1".log 2>&1; then
        grep -E "^Done [0-9]+ runs" build/fuzz/"$1".log | sed "s/^/fuzz_$1: /"
    else
        tail -n 40 build/fuzz/"$1".log
        return 1
    fi
}
rm -rf build/fuzz/corpus build/fuzz/work && fuzz/make_corpus.py build/fuzz/corpus
# Two targets at a time, one per core.
fuzz_two() {
    local rc=0
    fuzz "$1" &
    local first=$!
    if [ -n "${2:-}" ]; then fuzz "$2" || rc=1; fi
    wait "$first" || rc=1
    return "$rc"
}
run fuzz_two image_ops faults
run fuzz_two buffer filter_file
echo "suites: $passed passed, $failed failed"
[ "$failed" -eq 0 ]
