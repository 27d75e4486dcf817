#!/usr/bin/env bash
# Writes the committed seed corpus of tool_fuzzer: small files of every kind the tool reads.
# The first byte of a seed chooses how the fuzzer reads the rest (0: raw PCM at 16 kHz mono,
# 1: a mono 8 kHz dump, 2: let libsndfile recognise the format). Needs sox.
set -euo pipefail
out="$(cd "$(dirname "$0")" && pwd)/corpus/tool_fuzzer"
tmp="$(mktemp -d)"
trap 'rm -rf "$tmp"' EXIT
mkdir -p "$out"

seed() {  # seed NAME MODE FILE
    { printf "\\x$(printf %02x "$2")"; cat "$3"; } > "$out/$1"
}

sox -n -r 16000 -c 1 -b 16 "$tmp/mono16.wav" synth 0.02 sine 440
sox -n -r 44100 -c 2 -b 16 "$tmp/stereo44.wav" synth 0.01 sine 440 sine 660
sox -n -r 8000 -c 1 -e floating-point -b 32 "$tmp/float8.wav" synth 0.02 sine 300 vol 1.5
sox -n -r 48000 -c 3 -b 24 "$tmp/three48.wav" synth 0.005 sine 500
sox -n -r 16000 -c 1 -b 16 "$tmp/mono16.flac" synth 0.02 sine 440
sox -n -r 16000 -c 1 -b 16 -e signed-integer "$tmp/mono16.raw" synth 0.01 sine 440
head -c 100 "$tmp/mono16.wav" > "$tmp/truncated.wav"

seed wav_16k_mono 2 "$tmp/mono16.wav"
seed wav_44k_stereo 2 "$tmp/stereo44.wav"
seed wav_float_over_full_scale 2 "$tmp/float8.wav"
seed wav_three_channels 2 "$tmp/three48.wav"
seed flac_16k_mono 2 "$tmp/mono16.flac"
seed wav_truncated 2 "$tmp/truncated.wav"
seed raw_16k_mono 0 "$tmp/mono16.raw"
seed dump_8k_mono 1 "$tmp/mono16.raw"
printf '\x02' > "$out/empty_file"
