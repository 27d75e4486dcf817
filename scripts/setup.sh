#!/usr/bin/env bash
# Installs the Debian packages the build and tests need; does nothing when all are present.
set -euo pipefail

packages=(
    build-essential cmake pkg-config git
    libkissfft-dev libsimde-dev libcjson-dev
    libgtest-dev libgmock-dev
)
[ "$#" -gt 0 ] && packages+=("$@")

missing=()
for p in "${packages[@]}"; do
    dpkg -s "$p" >/dev/null 2>&1 || missing+=("$p")
done
[ "${#missing[@]}" -eq 0 ] && exit 0

echo "setup: installing ${missing[*]}"
sudo_cmd=()
[ "$(id -u)" -ne 0 ] && sudo_cmd=(sudo)
export DEBIAN_FRONTEND=noninteractive
"${sudo_cmd[@]}" apt-get update -qq
"${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
