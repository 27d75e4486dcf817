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

exec ./setup.sh g++-arm-linux-gnueabihf binutils-arm-linux-gnueabihf qemu-user \
    libcjson-dev:armhf libne10-dev:armhf
