#!/usr/bin/env bash
# Installs the Debian 12 packages that a job needs, and nothing more:
#   scripts/install-deps.sh linux      build the library, paximg and the Linux tests
#   scripts/install-deps.sh install    + pkg-config, for the install test's host programs
#   scripts/install-deps.sh windows    + mingw-w64, Wine, Xvfb, and llvm, clang and lld for
#                                      the import library and the link test
#   scripts/install-deps.sh fuzz       + clang with its libFuzzer runtime
#   scripts/install-deps.sh python     + Debian's Python with numpy, Pillow, pytest, pip
#                                      and setuptools, for the Python package
#   scripts/install-deps.sh bench      + Google Benchmark, and OpenCV for the anchors
# Several groups may be named at once; none means linux.
set -euo pipefail
declare -A groups=(
    [linux]="build-essential cmake ninja-build libgtest-dev libstb-dev"
    [install]="pkgconf"
    [windows]="g++-mingw-w64-x86-64-posix wine64 xvfb xauth llvm clang lld"
    [fuzz]="clang libclang-rt-dev python3"
    [python]="python3 python3-numpy python3-pil python3-pytest python3-setuptools python3-pip python3-wheel python3-venv"
    [bench]="libbenchmark-dev libopencv-dev"
)
packages=()
for group in linux "$@"; do
    [ -n "${groups[$group]+set}" ] || { echo "install-deps.sh: unknown group '$group'" >&2; exit 2; }
    read -r -a more <<<"${groups[$group]}"
    packages+=("${more[@]}")
done
missing=()
for p in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0
sudo=""
[ "$(id -u)" -ne 0 ] && sudo="sudo"
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -q
$sudo apt-get install -y -q --no-install-recommends "${missing[@]}"
