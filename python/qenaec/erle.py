"""Echo return loss enhancement (ERLE) of a canceller's output, by the rule the qenaec tool
reports. testkit/erle.h states the same rule in C++; tests/python/test_agreement.py holds the
two together.

Frames of 128 samples per channel count when:
- the far end is active: its level over the last 100 ms is at most 30 dB below its loud
  level (the 95th percentile of those levels) and above -50 dBFS;
- the echo dominates: with `left_out` spans given, the frame lies outside every span (known
  near-end talk, or a stretch not to be measured such as the filter's convergence);
  otherwise the near-to-far level ratio over the last 100 ms is within 3 dB of its median
  over the far-active frames, and no frame within 0.5 s has it more than 6 dB above.
Input frame f is set against the output `delay` samples later (OUTPUT_DELAY[mode]).
ERLE = 10 log10(sum in^2 / (sum out^2 + n/12)), n/12 being the rounding noise of n 16-bit
samples. At least 0.25 s must qualify.
"""
import math
from typing import NamedTuple

import numpy as np

from ._lib import FRAME

WINDOW_S = 0.1
FAR_BELOW_PEAK_DB = 30.0
FAR_MINIMUM_DBFS = -50.0
RATIO_MARGIN_DB = 3.0
CLEAR_TALK_DB = 6.0
TALK_HANGOVER_S = 0.5
MINIMUM_S = 0.25


class Erle(NamedTuple):
    valid: bool  # False when too little of the input qualifies
    db: float
    seconds: float  # duration of the frames it was measured over
    rule: str  # "known near-end talk" (spans given) or "level ratio"


def _frame_power(x, frames, offset=0):
    """Mean power per sample of each frame, all channels together, from sample `offset`;
    samples beyond the end count as zeros."""
    x = np.asarray(x, dtype=float)
    x = x.reshape(len(x), -1)
    part = np.zeros((frames * FRAME, x.shape[1]))
    tail = x[offset:offset + frames * FRAME]
    part[:len(tail)] = tail
    return np.sum(part.reshape(frames, -1) ** 2, axis=1) / (FRAME * x.shape[1])


def _trailing_level(power, window):
    """dBFS of the mean power over each frame and the frames before it within the window."""
    total = np.concatenate([[0.0], np.cumsum(power)])
    end = np.arange(1, len(power) + 1)
    start = np.maximum(end - window, 0)
    mean = np.maximum(total[end] - total[start], 0.0) / np.minimum(end, window)
    return 10 * np.log10(np.maximum(mean / 32768.0**2, 1e-12))


def _percentile(v, q):
    if len(v) == 0:
        return 0.0
    k = int(q * (len(v) - 1))
    return float(np.partition(v, k)[k])


def erle(near, out, far, rate, delay=0, left_out=None):
    """ERLE of `out` (the canceller's output for `near`, same shape) with the far end as the
    echo follows it; arrays of shape (n,) or (n, channels). `left_out`: (start, end) spans
    in seconds. Returns an Erle."""
    frames = len(near) // FRAME
    window = max(1, math.floor(WINDOW_S * rate / FRAME + 0.5))
    far_level = _trailing_level(_frame_power(far, frames), window)
    near_power = _frame_power(near, frames)
    ratio = _trailing_level(near_power, window) - far_level
    out_power = _frame_power(out, frames, delay)

    # Relative to the loud end of the far end's levels: a far end that never pauses has no
    # floor to be above.
    use = far_level >= max(_percentile(far_level, 0.95) - FAR_BELOW_PEAK_DB, FAR_MINIMUM_DBFS)
    frame_s = FRAME / rate
    if left_out is not None:
        t0 = np.arange(frames) * frame_s
        for start, end in left_out:
            use &= ~((t0 < end) & (t0 + frame_s > start))
    else:
        median = _percentile(ratio[use], 0.5)
        hangover = int(TALK_HANGOVER_S / frame_s)
        talk = np.zeros(frames, bool)
        for f in np.flatnonzero(use & (ratio > median + CLEAR_TALK_DB)):
            talk[max(0, f - hangover):f + hangover + 1] = True
        use &= ~talk & (ratio <= median + RATIO_MARGIN_DB)
    counted = (np.arange(frames) + 1) * FRAME + delay <= frames * FRAME
    use &= counted
    count = int(np.sum(use))
    in_sum, out_sum = float(np.sum(near_power[use])), float(np.sum(out_power[use]))
    seconds = count * frame_s
    valid = count > 0 and seconds >= MINIMUM_S and in_sum > 0
    db = 10 * math.log10(in_sum / (out_sum + count / 12)) if valid else 0.0
    return Erle(valid, db, seconds, "known near-end talk" if left_out is not None else "level ratio")
