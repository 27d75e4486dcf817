"""Talkers for the scenarios: sentences spoken by espeak-ng, resampled to the scenario rate,
laid out on a timeline and levelled to an active speech level in dBov.

0 dBov is the RMS of a full-scale square wave (32768). The active level counts only the
10 ms frames within 35 dB of the loudest one, a simple stand-in for an active-speech meter.
"""
import functools
import os
import subprocess
import tempfile
from fractions import Fraction

import numpy as np
import soundfile
from scipy import signal

FULL_SCALE = 32768.0
SYNTH_RATE = 22050

# Phonetically balanced sentences (the Harvard lists), split between the talkers.
SENTENCES = (
    "The birch canoe slid on the smooth planks.",
    "Glue the sheet to the dark blue background.",
    "It's easy to tell the depth of a well.",
    "These days a chicken leg is a rare dish.",
    "Rice is often served in round bowls.",
    "The juice of lemons makes fine punch.",
    "The box was thrown beside the parked truck.",
    "The hogs were fed chopped corn and garbage.",
    "Four hours of steady work faced us.",
    "A large size in stockings is hard to sell.",
    "The boy was there when the sun rose.",
    "A rod is used to catch pink salmon.",
    "The source of the huge river is the clear spring.",
    "Kick the ball straight and follow through.",
    "Help the woman get back to her feet.",
    "A pot of tea helps to pass the evening.",
    "Smoky fires lack flame and heat.",
    "The soft cushion broke the man's fall.",
    "The salt breeze came across from the sea.",
    "The girl at the booth sold fifty bonds.",
)

# Different voices for the talkers: (espeak-ng voice, words per minute, pitch 0..99).
VOICES = {
    "far": ("en-us+m3", 165, 45),
    "far2": ("en-gb-x-rp+m1", 155, 35),
    "near": ("en-gb+f3", 160, 60),
}


@functools.lru_cache(maxsize=None)
def _synthesise(voice, sentence):
    name, speed, pitch = VOICES[voice]
    # A sanitizer runtime preloaded for the library under test is not for espeak-ng (it
    # hangs under it).
    env = {k: v for k, v in os.environ.items() if k != "LD_PRELOAD"}
    with tempfile.NamedTemporaryFile(suffix=".wav") as wav:
        subprocess.run(["espeak-ng", "-v", name, "-s", str(speed), "-p", str(pitch),
                        "-w", wav.name, sentence], check=True, capture_output=True, env=env,
                       timeout=60)
        samples, rate = soundfile.read(wav.name, dtype="float64")
    if rate != SYNTH_RATE:
        raise RuntimeError(f"espeak-ng wrote {rate} Hz, expected {SYNTH_RATE}")
    return samples


@functools.lru_cache(maxsize=None)
def _utterance(voice, sentence, rate):
    ratio = Fraction(rate, SYNTH_RATE)
    return signal.resample_poly(_synthesise(voice, sentence), ratio.numerator, ratio.denominator)


def to_pcm(x):
    """Rounded and saturated to int16."""
    return np.clip(np.round(x), -32768, 32767).astype(np.int16)


def level_dbov(x, rate):
    """Active level of x (in sample units) in dBov; -inf for silence."""
    frame = max(1, rate // 100)
    n = len(x) // frame * frame
    power = np.mean(np.reshape(np.asarray(x[:n], float), (-1, frame)) ** 2, axis=1)
    if n == 0 or power.max() <= 0:
        return -np.inf
    active = power[power >= power.max() * 10 ** (-35 / 10)]
    return 10 * np.log10(np.mean(active) / FULL_SCALE**2)


def set_level(x, rate, dbov):
    """x scaled to the active level dbov."""
    return x * 10 ** ((dbov - level_dbov(x, rate)) / 20)


def talker(voice, rate, seconds, start=0.0, seed=0, pause=(0.4, 1.2), dbov=-26.0):
    """A talker speaking sentences one after another from `start` until `seconds`.

    The sentences and the pauses between them (uniform in `pause`, seconds) are drawn from
    the seed; the result has `seconds` x rate samples, silent before `start`.
    """
    rng = np.random.default_rng(seed)
    out = np.zeros(int(round(seconds * rate)))
    t = int(start * rate)
    for index in rng.permutation(len(SENTENCES)):
        if t >= len(out):
            break
        speech = _utterance(voice, SENTENCES[index], rate)
        take = min(len(speech), len(out) - t)
        out[t:t + take] = speech[:take]
        t += take + int(rng.uniform(*pause) * rate)
    return set_level(out, rate, dbov) if np.any(out) else out
