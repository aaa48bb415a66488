#!/usr/bin/env bash
# Installs, by Debian package name, everything the build, the tests and the
# example run need. Safe to run again; does nothing when all is present.
set -euo pipefail
packages=(
  build-essential cmake ninja-build pkg-config git file
  libgtest-dev libgmock-dev libbenchmark-dev
  qt6-base-dev libgl-dev fonts-dejavu-core
  libedit-dev libcurl4-openssl-dev python3-pyftpdlib zlib1g-dev
  gdal-bin python3-gdal python3-ezdxf
  clang libclang-rt-14-dev
  clang-16 libclang-rt-16-dev
)
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -qq
  apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
