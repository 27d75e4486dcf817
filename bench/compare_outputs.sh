#!/usr/bin/env bash
# Compares this tree's outputs with those of another commit (default: main): QenAec_ADF_Run
# must match bit for bit, QenAec_Run and ADF_Run + NLP_Run within MIN_SNR dB (default 40).
# The other commit's library is built on its own in build/outputs-base and swapped in under
# the same check program, which uses only the public API.
# With ARM=1 both libraries are the ARMv7 builds (the other commit's cross-built beside it,
# this tree's from build/armhf) and the check runs under qemu-arm; expects the armhf tree
# configured (see `make bench-outputs-arm`).
set -euo pipefail
cd "$(dirname "$0")/.."

base=${1:-main}
min_snr=${MIN_SNR:-40}
work=build/outputs-base
rm -rf "$work/src-tree"
mkdir -p "$work"
git worktree add --detach -f "$work/src-tree" "$base" >/dev/null 2>&1
trap 'git worktree remove --force "$work/src-tree" >/dev/null 2>&1 || true' EXIT

if [ -n "${ARM:-}" ]; then
    base_build=$work/armhf-build
    cmake -S "$work/src-tree" -B "$base_build" -DCMAKE_BUILD_TYPE=Release \
        -DCMAKE_TOOLCHAIN_FILE="$PWD/$work/src-tree/cmake/toolchains/armhf.cmake" \
        -DQENAEC_BUILD_TESTS=OFF -DQENAEC_BUILD_GST=OFF >/dev/null
    cmake --build "$base_build" --target qenaec -j "${JOBS:-2}" >/dev/null
    cmake --build build/armhf --target qenaec_output_check qenaec -j "${JOBS:-2}" >/dev/null
    sysroot=/usr/arm-linux-gnueabihf
    libs=$sysroot/lib:/usr/lib/arm-linux-gnueabihf
    qemu-arm -L "$sysroot" -E "LD_LIBRARY_PATH=$PWD/$base_build/src:$libs" \
        build/armhf/bench/qenaec_output_check record "$work/outputs-armhf.bin"
    qemu-arm -L "$sysroot" -E "LD_LIBRARY_PATH=$libs" \
        build/armhf/bench/qenaec_output_check compare "$work/outputs-armhf.bin" "$min_snr"
    exit
fi

cmake -S "$work/src-tree" -B "$work/build" -DCMAKE_BUILD_TYPE=Release -DQENAEC_BUILD_TESTS=OFF \
    >/dev/null
cmake --build "$work/build" --target qenaec -j "${JOBS:-2}" >/dev/null

cmake --build build/release --target qenaec_output_check qenaec -j "${JOBS:-2}" >/dev/null
check=build/release/bench/qenaec_output_check
LD_LIBRARY_PATH="$PWD/$work/build/src" "$check" record "$work/outputs.bin"
"$check" compare "$work/outputs.bin" "$min_snr"
