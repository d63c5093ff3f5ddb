#!/usr/bin/env bash
# Runs conversion_digests from the Linux build and, under Wine, from the
# Windows build, and compares the 72 digests of the single-value conversions
# and the digest of gamma correction.
# Exits non-zero when a digest differs or a program fails.
# Usage: scripts/compare-digests.sh [linux-build-dir] [windows-build-dir]
set -euo pipefail
cd "$(dirname "$0")/.."
linux_dir=${1:-build/linux}
windows_dir=${2:-build/windows}
out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT

"$linux_dir/bin/conversion_digests" > "$out/linux.txt"
"$windows_dir/wine-run.sh" "$windows_dir/bin/conversion_digests.exe" | tr -d '\r' > "$out/windows.txt"

lines=$(wc -l < "$out/linux.txt")
if [ "$lines" -ne 73 ]; then
    echo "compare-digests: expected 73 digests from Linux, got $lines" >&2
    exit 1
fi
if ! diff -u "$out/linux.txt" "$out/windows.txt"; then
    echo "compare-digests: the Linux and Windows conversions differ" >&2
    exit 1
fi
echo "compare-digests: all 72 conversions and gamma correction give the same bytes on Linux and Windows"
