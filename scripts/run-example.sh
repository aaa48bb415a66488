#!/usr/bin/env bash
# Installs what is missing, builds the host and the module, and runs the
# example script with the per-user tree kept inside the build folder.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake -S . -B build -G Ninja -DKORA_WERROR=ON
cmake --build build -j "$(nproc)" --target kora_shell DgnCommands DgnCommandsRes
KORA_USER_ROOT="$PWD/build/example-home" ./build/bin/kora --script examples/hello.scr
