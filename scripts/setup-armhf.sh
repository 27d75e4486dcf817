#!/usr/bin/env bash
# Installs what the ARMv7 (armhf) cross build and its qemu test run need: the armhf
# multiarch architecture, the cross compiler, qemu's user-mode emulator and the target's
# -dev packages. Does nothing when everything is present.
set -euo pipefail

packages=(
    g++-arm-linux-gnueabihf binutils-arm-linux-gnueabihf qemu-user
    libcjson-dev:armhf libkissfft-dev:armhf
)

sudo_cmd=()
[ "$(id -u)" -ne 0 ] && sudo_cmd=(sudo)

missing=()
for p in "${packages[@]}"; do
    dpkg -s "$p" >/dev/null 2>&1 || missing+=("$p")
done
[ "${#missing[@]}" -eq 0 ] && exit 0

if ! dpkg --print-foreign-architectures | grep -qx armhf; then
    echo "setup-armhf: adding the armhf architecture"
    "${sudo_cmd[@]}" dpkg --add-architecture armhf
fi

echo "setup-armhf: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
# A mirror caught mid-sync fails one index now and then; the install below still works
# from the lists that did arrive, and fails loudly itself if something is really missing.
"${sudo_cmd[@]}" apt-get update -qq || echo "setup-armhf: apt-get update reported errors; trying the install anyway"
"${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
