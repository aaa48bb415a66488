#!/bin/sh
# Builds the DXF reader fuzzer with clang (libFuzzer + AddressSanitizer) in
# its own build folder and runs it. clang 16 implements what libstdc++ 12's
# <expected> needs but reports an older concepts level, so the build says so
# for it.
#   tests/db/run_fuzz.sh [SECONDS]   (default 600)
set -eu
here=$(cd "$(dirname "$0")" && pwd)
root=$(cd "$here/../.." && pwd)
build=${KORA_FUZZ_BUILD:-$root/build-fuzz}
seconds=${1:-600}
cmake -S "$root" -B "$build" -G Ninja -DKORA_FUZZ=ON -DKORA_BENCH=OFF \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_C_COMPILER=clang-16 -DCMAKE_CXX_COMPILER=clang++-16 \
  -DCMAKE_CXX_FLAGS="-fsanitize=address,fuzzer-no-link -Wno-macro-redefined -D__cpp_concepts=202002L" >/dev/null
ninja -C "$build" -j2 fuzz_dxf_reader
corpus="$build/dxf-corpus"
mkdir -p "$corpus"
cp "$build"/tests/db/fixtures/*.dxf "$corpus"/
cd "$build"
exec ./bin/fuzz_dxf_reader -max_total_time="$seconds" -rss_limit_mb=4096 -max_len=262144 \
  -dict="$here/dxf.dict" "$corpus"
