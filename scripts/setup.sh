#!/usr/bin/env bash
# Installs the Debian packages the build and tests need; does nothing when all are present.
set -euo pipefail

packages=(
    libsndfile1-dev libcli11-dev libsoxr-dev
    build-essential cmake pkg-config git
    libkissfft-dev libsimde-dev libcjson-dev
    libgtest-dev libgmock-dev
    clang libclang-rt-14-dev
    libbenchmark-dev
    python3-numpy python3-scipy python3-soundfile espeak-ng
    libgstreamer1.0-dev libgstreamer-plugins-base1.0-dev gstreamer1.0-tools
    gstreamer1.0-plugins-base gstreamer1.0-plugins-good
)
[ "$#" -gt 0 ] && packages+=("$@")

# A library installed for two architectures (the armhf cross build adds the :armhf one) is
# ambiguous by bare name; it counts as present when the native one is.
installed() {
    dpkg -s "$1" >/dev/null 2>&1 || dpkg -s "$1:$(dpkg --print-architecture)" >/dev/null 2>&1
}

missing=()
for p in "${packages[@]}"; do
    installed "$p" || missing+=("$p")
done
[ "${#missing[@]}" -eq 0 ] && exit 0

echo "setup: installing ${missing[*]}"
sudo_cmd=()
[ "$(id -u)" -ne 0 ] && sudo_cmd=(sudo)
export DEBIAN_FRONTEND=noninteractive
# A mirror caught mid-sync fails an index now and then: try again, then install from the
# lists that did arrive (the install itself fails loudly if a package is really missing).
for attempt in 1 2 3; do
    "${sudo_cmd[@]}" apt-get update -qq && break
    echo "setup: apt-get update failed (attempt $attempt)"
    sleep 5
done
"${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
