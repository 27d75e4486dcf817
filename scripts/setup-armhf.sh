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
    libcjson-dev:armhf libkissfft-dev:armhf

# The GStreamer element needs only libgstreamer1.0-dev, which installs beside the host's
# (Multi-Arch: same; libgstreamer-plugins-base1.0-dev does not, and the element does without
# it). Its armhf libraries must carry exactly the host's versions, so a mirror that lacks
# them stops it (apt's dry run tells at once): then the armhf build leaves the element out.
gst=libgstreamer1.0-dev:armhf
if dpkg -s "$gst" >/dev/null 2>&1 || apt-get install -s -qq "$gst" >/dev/null 2>&1; then
    ./setup.sh "$gst"
else
    echo "setup-armhf: $gst cannot be installed beside the host's packages" \
        "(apt-get install -s $gst says why); the armhf build goes without the GStreamer element"
fi
