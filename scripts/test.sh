#!/usr/bin/env bash
# Installs what is missing, builds everything with warnings as errors and
# runs every test through CTest.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake -S . -B build -G Ninja -DKORA_WERROR=ON
cmake --build build -j "$(nproc)"
ctest --test-dir build --output-on-failure -j "$(nproc)"
