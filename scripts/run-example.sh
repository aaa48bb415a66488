#!/usr/bin/env bash
# Installs what is missing, builds the host and the module, and runs the
# tour of examples/: a DGN import, a DGN export with a mapping setup, an
# attach and bind, each checked by GDAL and ezdxf (examples/tour.sh).
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake -S . -B build -G Ninja -DKORA_WERROR=ON
cmake --build build -j "$(nproc)" --target kora_shell DgnCommands DgnCommandsRes kora_seeds dgninfo
bash examples/tour.sh build
