"""Impulse responses of a shoebox room by the image-source method.

Every image of the source (mirrored across the six walls up to the response length) adds
a pulse of gain beta^reflections x (reference distance / path length) at its delay. The
wall reflection factor beta, the same for all walls, starts from Eyring's formula and is
then corrected until the response between two points across the room decays with the
wanted RT60 (an image-source decay is slower than the formula, as the grazing paths meet
few walls). Pulses are placed on a grid four times finer than 48 kHz and the
response is resampled to the wanted rate, which gives fractional delays a band-limited
shape at every rate and the same room at every rate.
"""
import functools
from dataclasses import dataclass
from fractions import Fraction

import numpy as np
from scipy import signal

SPEED_OF_SOUND = 343.0
GRID_RATE = 192000


@dataclass(frozen=True)
class Room:
    size: tuple  # length, width, height in metres
    rt60: float  # seconds

    def reflection_factor(self):
        return _calibrated_reflection_factor(self)


@functools.lru_cache(maxsize=None)
def _calibrated_reflection_factor(room):
    lx, ly, lz = room.size
    volume, surface = lx * ly * lz, 2 * (lx * ly + lx * lz + ly * lz)
    log_beta = -0.5 * 0.161 * volume / (surface * room.rt60)
    source = tuple(0.3 * v for v in room.size)
    mic = tuple(0.7 * v for v in room.size)
    for _ in range(4):
        h = _response(room, np.exp(log_beta), source, mic, 8000, room.rt60, 1.0)
        log_beta *= rt60_estimate(h, 8000) / room.rt60
    return float(np.exp(log_beta))


def _image_axis(src, mic, length, reach):
    """Per axis: image coordinate offsets and reflection counts within `reach` metres."""
    n = np.arange(-int(reach // (2 * length)) - 1, int(reach // (2 * length)) + 2)
    offsets, counts = [], []
    for parity in (0, 1):
        image = 2 * n * length + (1 - 2 * parity) * src
        offsets.append(image - mic)
        counts.append(np.abs(2 * n - parity) if parity else np.abs(2 * n))
    return np.concatenate(offsets), np.concatenate(counts)


def impulse_response(room, source, mic, rate, seconds=None, reference=0.1):
    """The response from `source` to `mic` (metres, inside the room) at `rate`.

    Gains are relative to a direct path of `reference` metres; the response lasts
    `seconds` (default: half the RT60, where it has decayed by 30 dB).
    """
    seconds = room.rt60 / 2 if seconds is None else seconds
    return _response(room, room.reflection_factor(), source, mic, rate, seconds, reference)


def _response(room, beta, source, mic, rate, seconds, reference):
    reach = seconds * SPEED_OF_SOUND
    axes = [_image_axis(s, m, length, reach) for s, m, length in zip(source, mic, room.size)]
    (dx, cx), (dy, cy), (dz, cz) = axes
    dist = np.sqrt(dx[:, None, None] ** 2 + dy[None, :, None] ** 2 + dz[None, None, :] ** 2)
    count = cx[:, None, None] + cy[None, :, None] + cz[None, None, :]
    keep = dist < reach
    dist, count = dist[keep], count[keep]
    gain = beta**count * reference / np.maximum(dist, 1e-3)
    grid = np.zeros(int(seconds * GRID_RATE) + 1)
    np.add.at(grid, np.round(dist / SPEED_OF_SOUND * GRID_RATE).astype(int), gain)
    ratio = Fraction(rate, GRID_RATE)
    # Down-sampling keeps a constant's value, so a pulse's area shrinks by the ratio;
    # scale it back so that a pulse of gain g stays a band-limited pulse of gain g.
    h = signal.resample_poly(grid, ratio.numerator, ratio.denominator) / float(ratio)
    # All image pulses are positive, which gives the response a large gain at DC that no
    # room has; a high-pass at 80 Hz removes it, as the method's authors advise.
    return signal.sosfilt(signal.butter(2, 80.0, "highpass", fs=rate, output="sos"), h)


def rt60_estimate(h, rate):
    """RT60 from the Schroeder backward integral, fitted between -5 and -25 dB."""
    energy = np.cumsum((h**2)[::-1])[::-1]
    decay = 10 * np.log10(energy / energy[0] + 1e-300)
    t = np.arange(len(h)) / rate
    span = (decay <= -5) & (decay >= -25)
    slope = np.polyfit(t[span], decay[span], 1)[0]
    return -60.0 / slope
