#!/usr/bin/env bash
# Instructions per QenAec_Run frame (16 kHz mono, comfort noise on, speech-like input) under
# callgrind: only the frame loop is counted, so the figure does not depend on set-up or on
# timing noise. Expects the release tree built (see `make bench-instructions`).
set -euo pipefail
cd "$(dirname "$0")/.."

frames=${FRAMES:-1000}
program=build/release/bench/qenaec_run_frames
out=$(mktemp)
trap 'rm -f "$out"' EXIT
valgrind --tool=callgrind --callgrind-out-file="$out" --collect-atstart=no \
    --toggle-collect='*run_frames*' "$program" "$frames" >/dev/null 2>&1
total=$(callgrind_annotate "$out" 2>/dev/null | awk '/PROGRAM TOTALS/ { gsub(",", "", $1); print $1 }')
echo "instructions: $total over $frames frames"
echo "instructions per frame: $((total / frames))"
echo "commit: $(git rev-parse --short HEAD)$(git diff --quiet HEAD -- src || echo ' (with uncommitted changes in src/)')"
if [ -n "${TOP:-}" ]; then
    # awk reads to the end: an early close would kill callgrind_annotate with SIGPIPE
    callgrind_annotate "$out" 2>/dev/null | sed -n '/file:function/,$p' |
        awk -v n="$((TOP + 2))" 'NR <= n'
fi
