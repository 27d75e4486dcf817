"""Quality figures of an echo canceller's output against the clean parts of its input.

All functions take 1-D float arrays at one rate, the output already aligned with the input
(shifted back by the canceller's delay). Powers are summed, never averaged in dB, except
where a figure is a per-window curve.

- ERLE over time: 10 log10(mic power / output power) per 0.5 s window, one every 0.1 s,
  valid where the echo stands 10 dB over the microphone noise and the near-end talker is
  below it.
- Convergence time: from a start instant to the end of the first valid window that
  reaches the target ERLE and after which the valid windows of the next 0.5 s hold it.
- Double talk: on 256-sample frames where both the echo and the near-end speech stand
  10 dB over the microphone noise, the output is split, per frame and band of 8 bins,
  into the part along the clean near-end speech (least squares) and the rest. Near-end attenuation compares the clean
  speech with its part in the output; echo loss compares the far-end signal with the rest,
  as the speakerphone double-talk classes (Type 1 to 3) grade them.
- Near-end single talk: the same attenuation, and the signal-to-distortion ratio: the
  output's power coherent with the microphone signal over its incoherent power (Welch,
  32 ms segments, on the frames where the talker is active), so that a fixed filter such
  as a DC notch is no distortion while gains that change from frame to frame are.
"""
from typing import NamedTuple

import numpy as np
from scipy import signal

WINDOW_S = 0.5
HOP_S = 0.1
SPLIT_FFT = 256  # analysis frame of the near-end split, samples
SPLIT_BAND = 8  # bins per band of the split
ACTIVE_OVER_NOISE_DB = 10.0

# Speakerphone double-talk classes: (name, max near-end attenuation dB, min echo loss dB).
DT_CLASSES = (
    ("Type 1", 3.0, 27.0),
    ("Type 2a", 5.0, 23.0),
    ("Type 2b", 8.0, 17.0),
    ("Type 2c", 10.0, 11.0),
)


def db(num, den):
    return float(10 * np.log10(num / den)) if num > 0 and den > 0 else float("nan")


class ErleCurve(NamedTuple):
    times: np.ndarray  # window end, seconds
    erle: np.ndarray  # dB; NaN where the window is not valid
    p_mic: np.ndarray  # window powers
    p_out: np.ndarray


def _window_power(x, size, hop):
    c = np.concatenate([[0.0], np.cumsum(np.asarray(x, float) ** 2)])
    starts = np.arange(0, len(x) - size + 1, hop)
    return c[starts + size] - c[starts]


def erle_over_time(mic, out, echo, near, noise, rate, window=WINDOW_S, hop=HOP_S):
    """ERLE per window of `window` seconds, one every `hop` seconds."""
    size, step = int(window * rate), int(hop * rate)
    p_noise = _window_power(noise, size, step)
    valid = ((_window_power(echo, size, step) > p_noise * 10 ** (ACTIVE_OVER_NOISE_DB / 10))
             & (_window_power(near, size, step) <= p_noise))
    p_mic, p_out = _window_power(mic, size, step), _window_power(out, size, step)
    with np.errstate(divide="ignore", invalid="ignore"):
        erle = np.where(valid & (p_out > 0), 10 * np.log10(p_mic / p_out), np.nan)
    times = (np.arange(len(erle)) * step + size) / rate
    return ErleCurve(times, erle, p_mic, p_out)


def steady_state_erle(curve, start, stop=None):
    """ERLE over the valid windows lying within [start, stop], from summed powers."""
    stop = curve.times[-1] if stop is None else stop
    window = curve.times[0]
    pick = (~np.isnan(curve.erle) & (curve.times - window >= start - 1e-9)
            & (curve.times <= stop + 1e-9))
    return db(np.sum(curve.p_mic[pick]), np.sum(curve.p_out[pick]))


def convergence_time(curve, start, target, stop=None, hold=WINDOW_S):
    """Seconds from `start` to the end of the first valid window at `target` dB or more
    after which every valid window ending within `hold` seconds stays there too. Only
    windows wholly after `start` count, so the shortest time is one window."""
    stop = np.inf if stop is None else stop
    window = curve.times[0]
    ok = (~np.isnan(curve.erle) & (curve.times - window >= start - 1e-9)
          & (curve.times <= stop + 1e-9))
    times, erle = curve.times[ok], curve.erle[ok]
    for i, t in enumerate(times):
        ahead = (times >= t) & (times <= t + hold + 1e-9)
        if np.all(erle[ahead] >= target) and np.sum(ahead) > 1:
            return float(t - start)
    return None


def _spectra(x):
    return signal.stft(np.asarray(x, float), nperseg=SPLIT_FFT, noverlap=SPLIT_FFT // 2,
                       window="hann", boundary=None, padded=False)[2]


def _frame_power(x):
    return np.sum(np.abs(_spectra(x)) ** 2, axis=0)


def near_end_split(out, near):
    """Per analysis frame: powers of the clean near end, of its part in the output, and of
    the rest of the output. The part is the least-squares multiple of the near end's
    spectrum in each band of SPLIT_BAND bins, never negative."""
    o, s = _spectra(out), _spectra(near)
    part = np.zeros_like(s)
    for lo in range(0, s.shape[0], SPLIT_BAND):
        band = slice(lo, lo + SPLIT_BAND)
        energy = np.sum(np.abs(s[band]) ** 2, axis=0)
        cross = np.sum(np.real(o[band] * np.conj(s[band])), axis=0)
        gain = np.where(energy > 0, cross / np.maximum(energy, 1e-30), 0.0)
        part[band] = np.maximum(gain, 0.0) * s[band]
    power = lambda z: np.sum(np.abs(z) ** 2, axis=0)
    return power(s), power(part), power(o - part)


def _active(x, noise):
    return _frame_power(x) > _frame_power(noise) * 10 ** (ACTIVE_OVER_NOISE_DB / 10)


def dt_class(attenuation, echo_loss):
    for name, max_att, min_loss in DT_CLASSES:
        if attenuation <= max_att and echo_loss >= min_loss:
            return name
    return "Type 3"


def double_talk(out, far, echo, near, noise, rate):
    """Near-end attenuation, echo loss and ERLE during double talk, and the class."""
    frames = _active(echo, noise) & _active(near, noise)
    if not np.any(frames):
        return None
    p_s, p_part, p_rest = (p[frames].sum() for p in near_end_split(out, near))
    attenuation = db(p_s, p_part)
    echo_loss = db(_frame_power(far)[frames].sum(), p_rest)
    return {
        "seconds": float(np.sum(frames) * SPLIT_FFT / 2 / rate),
        "near_attenuation_db": attenuation,
        "echo_loss_db": echo_loss,
        "erle_db": db(_frame_power(echo)[frames].sum(), p_rest),
        "class": dt_class(attenuation, echo_loss),
    }


def near_single_talk(out, mic, near, noise, rate):
    """Attenuation of the talker and signal-to-distortion ratio of the output."""
    frames = _active(near, noise)
    if not np.any(frames):
        return None
    p_s, p_part, _ = (p[frames].sum() for p in near_end_split(out, near))
    # The same frames in the time domain, for the coherence.
    hop = SPLIT_FFT // 2
    pick = np.repeat(frames, hop)
    pick = np.concatenate([pick, np.zeros(max(0, len(out) - len(pick)), bool)])[:len(out)]
    return {
        "seconds": float(np.sum(frames) * hop / rate),
        "attenuation_db": db(p_s, p_part),
        "sdr_db": coherent_to_incoherent_db(np.asarray(out)[pick], np.asarray(mic)[pick], rate),
    }


def coherent_to_incoherent_db(out, ref, rate):
    """Power of out coherent with ref over the rest, summed over frequency."""
    segment = int(0.032 * rate)
    _, coherence = signal.coherence(out, ref, fs=rate, nperseg=segment)
    _, p_out = signal.welch(out, fs=rate, nperseg=segment)
    coherence = np.nan_to_num(coherence)
    return db(np.sum(coherence * p_out), np.sum((1 - coherence) * p_out))


def realtime_factor(samples, rate, seconds_taken):
    """How many times faster than real time the processing ran."""
    return float(samples / rate / seconds_taken) if seconds_taken > 0 else float("inf")
