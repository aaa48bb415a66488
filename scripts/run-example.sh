#!/usr/bin/env bash
# Installs what is missing, builds the host and the module, and runs the
# example script with the per-user tree kept inside the build folder.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake -S . -B build -G Ninja -DKORA_WERROR=ON
cmake --build build -j "$(nproc)" --target kora_shell DgnCommands DgnCommandsRes kora_seeds dgninfo
# The example saves its drawing (example.dxf) in the folder it runs in.
cd build
rm -f example.dxf
KORA_USER_ROOT="$PWD/example-home" ./bin/kora --script ../examples/hello.scr
