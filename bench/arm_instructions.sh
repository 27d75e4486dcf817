#!/usr/bin/env bash
# Executed ARM instructions per frame, counted under qemu-arm: every instruction is logged
# (-singlestep -d exec,nochain, one "Trace" line each) and the lines are counted. Each figure
# is the difference of two runs of the driver with FROM and TO frames, divided by TO - FROM,
# so start-up, set-up and scene loading cancel. The scenes are written first by a run without
# logging. Expects the armhf tree built (see `make bench-arm`).
#   FROM, TO   frame counts of the two runs (default 20 and 60)
#   IPC        instructions per cycle assumed for the Cortex-A7 estimate (default 0.5)
#   ARM_TREE   the armhf build tree to measure (default build/armhf)
#   TOP        also list the N functions that take most of QenAec_Run at 16 kHz mono with
#              comfort noise on (bench/arm_profile.py)
set -euo pipefail
cd "$(dirname "$0")/.."

from=${FROM:-20}
to=${TO:-60}
ipc=${IPC:-0.5}
program=${ARM_TREE:-build/armhf}/bench/qenaec_run_frames
sysroot=/usr/arm-linux-gnueabihf
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# Errors only, from a file of this run's own: the driver would otherwise write a shared one
# while the other run of the pair reads it, and a different message level is a different count.
echo '{"debug_level": 1}' >"$work/messages.json"
qemu=(qemu-arm -L "$sysroot" -E "LD_LIBRARY_PATH=$sysroot/lib:/usr/lib/arm-linux-gnueabihf"
    -E "DML_PATH=$work/messages.json")

# Instructions of one run; the program's own output is discarded, the log goes to the count.
count() {
    "${qemu[@]}" -singlestep -d exec,nochain -D /dev/fd/3 "$program" "$@" 3>&1 >/dev/null 2>&1 |
        grep -c '^Trace'
}

# Instructions per frame of the driver with the arguments after FRAMES; the two runs in
# parallel.
per_frame() {
    count "$from" "$@" >"$work/from" &
    count "$to" "$@" >"$work/to"
    wait $!
    echo $((($(cat "$work/to") - $(cat "$work/from")) / (to - from)))
}

# Executed instruction addresses and their counts into $1.hist, qemu's page log into $1.pages.
histogram() {
    local prefix=$1
    shift
    "${qemu[@]}" -singlestep -d page,exec,nochain -D /dev/fd/3 "$program" "$@" 3>&1 >/dev/null 2>&1 |
        awk -F/ -v pages="$prefix.pages" -v hist="$prefix.hist" \
            '/^Trace/ { n[$2]++; next } { print > pages } END { for (a in n) print a, n[a] > hist }'
}

mhz() {
    awk -v n="$1" -v rate="$2" -v ipc="$ipc" 'BEGIN { printf "%.0f", n * rate / 128 / ipc / 1e6 }'
}

row() {
    printf '  %-46s %10s\n' "$1" "$(echo "$2" | sed ':a;s/\B[0-9]\{3\}\>/,&/;ta')"
}

echo "ARM instructions per frame (qemu-arm, frames $from to $to)"
declare -A run
for rate in 16000 48000; do
    for layout in "1 1" "2 2"; do
        set -- $layout
        scene=$work/scene-$rate-$1$2
        mkdir -p "$scene"
        "${qemu[@]}" "$program" scene "$rate" "$1" "$2" "$scene" >/dev/null
        for cng in 1 0; do
            n=$(per_frame "$rate" "$1" "$2" "$cng" "$scene")
            run[$rate,$1$2,$cng]=$n
            row "QenAec_Run $rate Hz ($1,$2) comfort noise $([ "$cng" = 1 ] && echo on || echo off)" "$n"
        done
    done
done
fft=$(per_frame fft)
row "FFT pair (forward + inverse, 256 points)" "$fft"
floor=$(per_frame floor)
row "floor (transforms and kernels of one frame)" "$floor"
ratio=$(awk -v r="${run[16000,11,1]}" -v f="$floor" 'BEGIN { printf "%.2f", r / f }')
printf '  %-46s %10s      <= 2\n' "Run / floor (ARM)" "$ratio"
echo "Cortex-A7 at $ipc instructions per cycle, QenAec_Run (1,1), comfort noise on:"
echo "  16 kHz: $(mhz "${run[16000,11,1]}" 16000) MHz, 48 kHz: $(mhz "${run[48000,11,1]}" 48000) MHz"
if [ -n "${TOP:-}" ]; then
    echo "QenAec_Run 16000 Hz (1,1) comfort noise on, frames $from to $to:"
    histogram "$work/from" "$from" 16000 1 1 1 "$work/scene-16000-11" &
    histogram "$work/to" "$to" 16000 1 1 1 "$work/scene-16000-11"
    wait $!
    bench/arm_profile.py "$program" "$work/from" "$work/to" $((to - from)) "$TOP"
fi
if [ -n "${ARM_TREE:-}" ]; then
    echo "tree: $ARM_TREE"
else
    echo "commit: $(git rev-parse --short HEAD)$(git diff --quiet HEAD -- src || echo ' (with uncommitted changes in src/)')"
fi
