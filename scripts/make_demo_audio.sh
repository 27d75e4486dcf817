#!/usr/bin/env bash
# Makes the recordings `qenaec demo` processes, in examples/audio/ (16 kHz mono WAV):
#   far.wav        what the loudspeaker played: three sentences of synthetic speech
#   near.wav       the microphone: the far end's echo through a synthetic room (100 ms of
#                  playback latency, then a decaying response), a second talker in the room,
#                  and a little noise
#   near-talk.txt  where the second talker speaks, in seconds ("start end" per line)
# The outputs are committed, so the demo needs neither espeak-ng nor sox; rerun this after
# changing the composition. Needs espeak-ng, sox and awk. The same inputs give the same files.
set -euo pipefail
cd "$(dirname "$0")/.."

out=examples/audio
rate=16000
seconds=14
talk_start=8.0          # the second talker, overlapping the far end's third sentence
latency=1600            # samples (100 ms) of playback buffering before the loudspeaker
ir_taps=1201            # room response length, a little beyond the filter's 1024 taps
echo_gain=0.5           # echo level relative to the far end
noise_level=0.002       # microphone noise (about -60 dBFS)

tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT

speak() { # voice words-per-minute text output
    espeak-ng -v "$1" -s "$2" -w "$tmp/raw.wav" "$3"
    sox -D "$tmp/raw.wav" -r "$rate" -b 16 "$4" norm -3
}

speak en-us 150 "The meeting starts in five minutes. Please check that your microphone is on." \
    "$tmp/s1.wav"
speak en-us 150 "We will review the results from the last test run, and then plan the release." \
    "$tmp/s2.wav"
speak en-us 150 "Any questions can go in the chat at the end." "$tmp/s3.wav"
speak en-us+f3 165 "Sorry, could you repeat the last part?" "$tmp/talk.wav"

# Far end: the sentences with pauses between them, then trimmed or padded to the length.
sox -D "$tmp/s1.wav" "$tmp/p1.wav" pad 0.3 0.6
sox -D "$tmp/s2.wav" "$tmp/p2.wav" pad 0 0.8
sox -D "$tmp/p1.wav" "$tmp/p2.wav" "$tmp/s3.wav" "$tmp/far_cat.wav"
# The end pad makes sure of the length; trim then cuts it short, which sox would warn about.
sox -D -V1 "$tmp/far_cat.wav" "$out/far.wav" pad 0 "$seconds" trim 0 "$seconds"

# Room response: a direct path, then exponentially decaying noise (-60 dB at the end), scaled
# to unit energy; a Park-Miller generator gives the same numbers with every awk.
awk -v taps="$ir_taps" 'BEGIN {
    seed = 12345
    for (k = 0; k < taps; k++) {
        g = 0
        for (j = 0; j < 12; j++) { seed = (16807 * seed) % 2147483647; g += seed / 2147483647 }
        h[k] = (k == 0 ? 1.0 : 0.08 * (g - 6) * exp(-6.9 * k / taps))
        energy += h[k] * h[k]
    }
    for (k = 0; k < taps; k++) printf "%.8f\n", h[k] / sqrt(energy)
}' > "$tmp/room.txt"

# sox centres a FIR filter (it moves the output (taps - 1) / 2 samples earlier), so that much
# is added back to the latency to keep the response causal.
sox -D "$out/far.wav" "$tmp/echo.wav" vol "$echo_gain" fir "$tmp/room.txt" \
    pad "$((latency + (ir_taps - 1) / 2))s" trim 0 "$seconds"
sox -D -V1 "$tmp/talk.wav" "$tmp/talk_at.wav" vol 0.5 pad "$talk_start" "$seconds" \
    trim 0 "$seconds"
sox -D -R -n -r "$rate" -b 16 -c 1 "$tmp/noise.wav" synth "$seconds" pinknoise vol "$noise_level"
sox -D -m -v 1 "$tmp/echo.wav" -v 1 "$tmp/talk_at.wav" -v 1 "$tmp/noise.wav" -b 16 "$out/near.wav"

talk_len=$(soxi -D "$tmp/talk.wav")
awk -v s="$talk_start" -v d="$talk_len" 'BEGIN { printf "%.3f %.3f\n", s, s + d }' \
    > "$out/near-talk.txt"
ls -l "$out"
