#!/usr/bin/env bash
# Installs what building and testing PaxImage needs on Debian 12: the native
# toolchain with GoogleTest and Google Benchmark, mingw-w64 for the Windows DLL,
# Wine and Xvfb to run it, stb for the command-line tool, clang with its
# libFuzzer runtime for the fuzz targets, and Debian's Python with numpy,
# Pillow, pytest, pip and setuptools for the Python package.
set -euo pipefail
packages=(build-essential cmake ninja-build libgtest-dev libbenchmark-dev libstb-dev
          g++-mingw-w64-x86-64-posix wine64 xvfb xauth clang libclang-rt-dev
          python3 python3-numpy python3-pil python3-pytest python3-setuptools python3-pip
          python3-wheel python3-venv)
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
