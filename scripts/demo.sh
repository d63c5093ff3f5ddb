#!/usr/bin/env bash
# Builds the library and runs the paximg tool on its built-in demo image.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake --preset linux >/dev/null
cmake --build --preset linux -j "$(nproc)"
build/linux/bin/paximg demo "${1:-demo-out}"
