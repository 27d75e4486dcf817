#!/usr/bin/env bash
# Compares this tree's outputs with those of another commit (default: main): QenAec_ADF_Run
# must match bit for bit, QenAec_Run and ADF_Run + NLP_Run within MIN_SNR dB (default 40).
# The other commit's library is built on its own in build/outputs-base and swapped in under
# the same check program, which uses only the public API.
set -euo pipefail
cd "$(dirname "$0")/.."

base=${1:-main}
min_snr=${MIN_SNR:-40}
work=build/outputs-base
rm -rf "$work/src-tree"
mkdir -p "$work"
git worktree add --detach -f "$work/src-tree" "$base" >/dev/null 2>&1
trap 'git worktree remove --force "$work/src-tree" >/dev/null 2>&1 || true' EXIT
cmake -S "$work/src-tree" -B "$work/build" -DCMAKE_BUILD_TYPE=Release -DQENAEC_BUILD_TESTS=OFF \
    >/dev/null
cmake --build "$work/build" --target qenaec -j "${JOBS:-2}" >/dev/null

cmake --build build/release --target qenaec_output_check qenaec -j "${JOBS:-2}" >/dev/null
check=build/release/bench/qenaec_output_check
LD_LIBRARY_PATH="$PWD/$work/build/src" "$check" record "$work/outputs.bin"
"$check" compare "$work/outputs.bin" "$min_snr"
