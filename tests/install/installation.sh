#!/usr/bin/env bash
# Installs a build, builds the example against it by CMake and by pkg-config, and runs it.
#   usage: installation.sh BUILD_FOLDER WORK_FOLDER COMPILER
set -euo pipefail
build=$1 work=$2 compiler=$3
example=$(realpath "$(dirname "$0")/../../examples/reconstruct")
rm -rf "$work"
mkdir -p "$work"
cd "$work"

cmake --install "$build" --prefix "$work/first" >/dev/null
mv first prefix  # nothing may remember where it was
PATH="$work/prefix/bin:$PATH"
unset TALVEN_SERVER
talven phantom ph --size 64,40 --thickness 24 --angles -60,60,3 --quiet

# judge PROGRAM: it reconstructs the phantom, and its R-factors fall.
judge() {
    "$1" ph.mrc ph.tlt 24 "$1.mrc" 2>/dev/null | tee "$1.txt" | tail -n 1
    sort -c -r -g -k 4 "$1.txt"
    [[ $(wc -l <"$1.txt") == 20 ]]
}
cmake -S "$example" -B by-cmake -DCMAKE_PREFIX_PATH="$work/prefix" -DCMAKE_CXX_COMPILER="$compiler" >/dev/null
cmake --build by-cmake >/dev/null
judge by-cmake/reconstruct

mkdir by-pkg-config
cp "$example"/{Makefile,reconstruct.cpp} by-pkg-config
make -s -C by-pkg-config CXX="$compiler" PKG_CONFIG_PATH="$(dirname "$(find prefix -name talven.pc -exec realpath {} +)")"
judge by-pkg-config/reconstruct
cmp by-cmake/reconstruct.txt by-pkg-config/reconstruct.txt
