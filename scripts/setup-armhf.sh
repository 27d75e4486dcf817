#!/usr/bin/env bash
# Installs what the ARMv7 (armhf) cross build and its qemu test run need: the armhf
# multiarch architecture, the cross compiler and binutils, qemu's user-mode emulator and the
# target's -dev packages. Does nothing when everything is present.
set -euo pipefail
cd "$(dirname "$0")"

if ! dpkg --print-foreign-architectures | grep -qx armhf; then
    echo "setup-armhf: adding the armhf architecture"
    sudo_cmd=()
    [ "$(id -u)" -ne 0 ] && sudo_cmd=(sudo)
    "${sudo_cmd[@]}" dpkg --add-architecture armhf
fi

./setup.sh g++-arm-linux-gnueabihf binutils-arm-linux-gnueabihf qemu-user \
    libcjson-dev:armhf libne10-dev:armhf

# The GStreamer element needs only libgstreamer1.0-dev, which installs beside the host's
# (Multi-Arch: same; libgstreamer-plugins-base1.0-dev does not, and the element does without
# it). Its armhf libraries must carry exactly the host's versions, so a mirror whose armhf
# security index lags the host's stops apt (its dry run tells at once). Then the packages the
# cross build reads (headers, .pc files, link libraries) are unpacked into the build folder
# instead: build/armhf-gst, which the armhf toolchain file finds. Nothing there is run.
gst=libgstreamer1.0-dev:armhf
if dpkg -s "$gst" >/dev/null 2>&1 || apt-get install -s -qq "$gst" >/dev/null 2>&1; then
    ./setup.sh "$gst"
    exit 0
fi
unpacked=(libgstreamer1.0-dev libgstreamer1.0-0 libglib2.0-dev libglib2.0-0 libunwind-dev
    libdw-dev libelf-dev libpcre2-dev libffi-dev zlib1g-dev liblzma-dev)
root=$(cd .. && pwd)/build/armhf-gst
stamp="$root/.packages"
[ -f "$stamp" ] && [ "$(cat "$stamp")" = "${unpacked[*]}" ] && exit 0
echo "setup-armhf: $gst cannot be installed beside the host's packages" \
    "(apt-get install -s $gst says why); unpacking it into $root for the cross build"
debs=$(mktemp -d)
trap 'rm -rf "$debs"' EXIT
chmod 777 "$debs"
(cd "$debs" && apt-get download -qq "${unpacked[@]/%/:armhf}")
rm -rf "$root"
mkdir -p "$root"
for deb in "$debs"/*.deb; do
    dpkg-deb -x "$deb" "$root"
done
echo "${unpacked[*]}" >"$stamp"
