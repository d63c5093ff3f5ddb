#!/usr/bin/env bash
# Builds the library and runs the paximg tool on its built-in demo image. It
# installs only the native toolchain, GoogleTest and stb (no Wine, mingw-w64
# or Xvfb: those serve the Windows tests).
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh linux
cmake --preset linux >/dev/null
cmake --build --preset linux -j "$(nproc)"
build/linux/bin/paximg demo "${1:-demo-out}"
