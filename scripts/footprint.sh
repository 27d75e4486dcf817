#!/usr/bin/env bash
# Prints the embedded footprint as a Markdown table: sections of the ARM shared object, the
# working buffer one instance needs on each target, and the largest stack frames of the
# library's functions on ARM. Expects the release and armhf trees built (see `make size`).
set -euo pipefail
cd "$(dirname "$0")/.."

host_dir=build/release
arm_dir=build/armhf
so=$(readlink -f "$arm_dir/src/libqenaec.so")

buffer_bytes() {
    cmake --build "$1" --target footprint | sed -n 's/^qenaec-footprint: working_buffer=\([0-9]*\).*/\1/p'
}
host_buffer=$(buffer_bytes "$host_dir")
arm_buffer=$(buffer_bytes "$arm_dir")
read -r text data bss _ < <(arm-linux-gnueabihf-size "$so" | tail -n 1)

# .su lines: file:line:col:function<TAB>bytes<TAB>static|dynamic[,bounded]
frames=$(find "$arm_dir/src" -name '*.su' -exec cat {} + | sort -t $'\t' -k2,2nr)
if [ -z "$frames" ]; then
    echo "footprint: no stack-usage files in $arm_dir (configured before -fstack-usage?" \
        "run: cmake --preset armhf --fresh)" >&2
    exit 1
fi
dynamic=$(printf '%s\n' "$frames" | awk -F '\t' '$3 ~ /dynamic/' | wc -l)

echo "| figure | value |"
echo "|---|---|"
echo "| ARM \`libqenaec.so\` text | $text bytes |"
echo "| ARM \`libqenaec.so\` data | $data bytes |"
echo "| ARM \`libqenaec.so\` bss | $bss bytes |"
echo "| working buffer per instance, ARMv7 | $arm_buffer bytes |"
echo "| working buffer per instance, x86-64 | $host_buffer bytes |"
echo "| frames with dynamic stack size (ARM) | $dynamic |"
echo
echo "Largest stack frames (ARM, bytes):"
echo
echo "| function | bytes | kind |"
echo "|---|---|---|"
printf '%s\n' "$frames" | head -n 5 | awk -F '\t' '{
    file = $1; sub(/:[0-9]+:[0-9]+:.*/, "", file); sub(/.*\/src\//, "src/", file)
    fn = $1; sub(/^[^:]*:[0-9]+:[0-9]+:/, "", fn)
    printf "| `%s` (%s) | %s | %s |\n", fn, file, $2, $3 }'
