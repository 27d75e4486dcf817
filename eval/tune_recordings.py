"""The two recordings `qenaec tune` works from, made from an evaluation scenario:

- the echo recording: the microphone and the loudspeaker reference while the far-end talker
  plays and nobody in the room speaks (echo-mic.wav, echo-ref.wav);
- the talker recording: the microphone alone while the loudspeaker is silent and the
  scenario's near-end talker speaks from the start (talker.wav).

Both come from the scenario's own room, device and microphone noise.

Usage: python3 eval/tune_recordings.py SCENARIO OUTDIR [--rate 16000] [--seed 1]
"""
import argparse
import pathlib
import sys
from dataclasses import replace

HERE = pathlib.Path(__file__).resolve().parent
sys.path[:0] = [str(HERE)]

import soundfile  # noqa: E402

import scenarios  # noqa: E402

TALKER_START_S = 0.5


def recordings(sc, rate, seed=1):
    """(echo microphone, loudspeaker reference, talker microphone) as int16 arrays."""
    echo = scenarios.build(replace(sc, near_start=None), rate, seed)
    # The loudspeaker plays only its line floor while the talker speaks, as a silent call
    # would; the microphone noise is drawn afresh.
    talk = scenarios.build(replace(sc, far_talk=False, near_start=TALKER_START_S),
                           rate, seed + 11)
    return echo["mic"], echo["far"], talk["mic"]


def write(sc, rate, out, seed=1):
    """Writes echo-mic.wav, echo-ref.wav and talker.wav into `out`; returns their paths."""
    out = pathlib.Path(out)
    out.mkdir(parents=True, exist_ok=True)
    paths = [out / n for n in ("echo-mic.wav", "echo-ref.wav", "talker.wav")]
    for path, x in zip(paths, recordings(sc, rate, seed)):
        soundfile.write(str(path), x, rate, subtype="PCM_16")
    return paths


def main(argv=None):
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("scenario", choices=sorted(scenarios.BY_NAME))
    parser.add_argument("out")
    parser.add_argument("--rate", type=int, default=16000)
    parser.add_argument("--seed", type=int, default=1)
    args = parser.parse_args(argv)
    for path in write(scenarios.BY_NAME[args.scenario], args.rate, args.out, args.seed):
        print(path)


if __name__ == "__main__":
    main()
