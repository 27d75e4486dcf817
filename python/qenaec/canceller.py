"""The Canceller: one QenAec instance in a block this object owns, driven with numpy arrays.

Whole signals go in; they are cut into 128-sample frames, a partial last frame is padded
with zeros, and the output is trimmed back to the input length. Every failing call raises
QenAecError naming the library's code. What the library prints goes to the `qenaec` logger
(see _messages), at message level 1 unless DML_PATH says otherwise.
"""
import ctypes
import numbers

import numpy as np

from . import _lib, _messages

MODES = ("full", "linear", "split")

# Samples by which each mode's output lags its input: the suppressor's overlap-add emits
# the previous block, while the linear stage's error is the current block. testkit's C++
# output_delay() is the same; tests/python/test_agreement.py holds both to the library.
OUTPUT_DELAY = {"full": _lib.FRAME, "split": _lib.FRAME, "linear": 0}

# The keys of a tuning result's "tuned" entry that apply_settings installs, and those it
# passes over.
SETTINGS = ("intensity", "edges", "ratio")
FIGURES = ("erle_db", "near_loss_db", "near_sdr_db", "max_near_loss_db")


class QenAecError(RuntimeError):
    """A library call failed; `code` is the returned value, `name` its ALGO_AEC_RET name."""

    def __init__(self, code, call=""):
        self.code = code
        if code == -1:
            self.name = "null or uninitialised handle (-1)"
        else:
            self.name = _lib.RET_CODES.get(code & 0xFFFFFFFF, "unknown code")
        where = f"{call} failed: " if call else ""
        super().__init__(f"{where}{self.name} (0x{code & 0xFFFFFFFF:08X})")


def _integers(values, count):
    """True when `values` holds `count` integers (bool and float are not integers here)."""
    try:
        items = list(values)
    except TypeError:
        return False
    return len(items) == count and all(
        isinstance(v, numbers.Integral) and not isinstance(v, bool) for v in items)


def _check(code, call):
    if code != 0:
        raise QenAecError(code, call)


class Canceller:
    """An echo canceller instance: `with Canceller(16000) as aec: out = aec.process(mic, ref)`."""

    def __init__(self, rate, near_channels=1, far_channels=1, config=None):
        """`config`: a tuning result to apply, as apply_settings takes it."""
        # The library reports a refused record only by a null handle; name the code here.
        if rate not in _lib.RATES:
            raise QenAecError(_lib.CODE["ALGO_AEC_RET_INVALID_SAMPLE_RATE"], "QenAec_Init")
        if near_channels not in (1, 2) or far_channels not in (1, 2):
            raise QenAecError(_lib.CODE["ALGO_AEC_RET_INVALID_CHANNEL"], "QenAec_Init")
        self._lib = _lib.library()
        self.rate, self.near_channels, self.far_channels = rate, near_channels, far_channels
        init = _lib.AudioAecInit(_lib.FRAME, near_channels, far_channels, rate)
        with _messages.quiet_level() as quiet, _messages.collected(drop_announcements=quiet):
            self._block = ctypes.create_string_buffer(self._lib.QenAec_GetBufferSize())
            self._handle = self._lib.QenAec_Init(self._block, ctypes.byref(init))
        if not self._handle:
            raise QenAecError(_lib.CODE["ALGO_AEC_RET_INVALID_HANDLE"], "QenAec_Init")
        if config is not None:
            self.apply_settings(config)

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()

    def __del__(self):
        self.close()

    def close(self):
        """Frees the instance; later calls raise. Safe to call twice."""
        if getattr(self, "_handle", None):
            with _messages.collected():
                self._lib.QenAec_Free(self._handle)
            self._handle = None

    def _live(self):
        if not self._handle:
            raise RuntimeError("the Canceller is closed")
        return self._handle

    def get_config(self):
        """The stored settings of both records, as a dict."""
        init, cfg = _lib.AudioAecInit(), _lib.AudioAecConfig()
        with _messages.collected():
            code = self._lib.QenAec_GetConfig(self._live(), ctypes.byref(init), ctypes.byref(cfg))
        _check(code, "QenAec_GetConfig")
        return {
            "point_number": init.point_number,
            "near_channels": init.nearend_channel,
            "far_channels": init.farend_channel,
            "sample_rate": init.sample_rate,
            "comfort_noise_enable": cfg.comfort_noise_enable,
            "delay_sample": cfg.delay_sample,
            "suppression_mode_freq": tuple(cfg.suppression_mode_freq),
            "suppression_mode_intensity": tuple(cfg.suppression_mode_intensity),
        }

    def config(self, comfort_noise_enable=None, delay_sample=None, suppression_mode_freq=None,
               suppression_mode_intensity=None):
        """Replaces the given settings; those left as None keep their stored values."""
        now = self.get_config()
        def pick(value, key):
            return now[key] if value is None else value

        freq = pick(suppression_mode_freq, "suppression_mode_freq")
        intensity = pick(suppression_mode_intensity, "suppression_mode_intensity")
        if len(freq) != 6 or len(intensity) != 7:
            raise ValueError("6 band edges and 7 intensities are needed")
        cfg = _lib.AudioAecConfig(
            int(pick(comfort_noise_enable, "comfort_noise_enable")),
            int(pick(delay_sample, "delay_sample")),
            (ctypes.c_uint32 * 6)(*[int(v) & 0xFFFFFFFF for v in freq]),
            (ctypes.c_uint32 * 7)(*[int(v) & 0xFFFFFFFF for v in intensity]))
        with _messages.collected():
            code = self._lib.QenAec_Config(self._live(), ctypes.byref(cfg))
        _check(code, "QenAec_Config")

    def set_recursive_ratio(self, n):
        """Smoothing of the suppressor's spectra in tenths, 1..10."""
        # A negative n wraps to a huge unsigned value, which the library refuses.
        with _messages.collected():
            code = self._lib.QenAec_SetRecursiveRatio(self._live(), int(n) & 0xFFFFFFFF)
        _check(code, "QenAec_SetRecursiveRatio")

    def apply_settings(self, settings):
        """Installs a tuning result as `qenaec process --config` does: QenAec_Config with
        comfort noise off, delay 0 and the band table, then QenAec_SetRecursiveRatio.

        settings: the "tuned" entry of a `qenaec tune --json` result, or the whole result,
                  as a dict: "intensity" (7 integers), "edges" (6), "ratio" (tenths); the
                  figures beside them are ignored. A table left out keeps its stored
                  values, a ratio left out its value.
        """
        entry = settings.get("tuned", settings)
        unknown = set(entry) - set(SETTINGS) - set(FIGURES)
        if unknown:
            raise ValueError(f"unknown settings {sorted(unknown)}; expected {SETTINGS}")
        for key, count in (("intensity", 7), ("edges", 6), ("ratio", 1)):
            value = entry.get(key)
            if value is not None and not _integers([value] if key == "ratio" else value, count):
                what = "an integer" if key == "ratio" else f"{count} integers"
                raise ValueError(f"settings[{key!r}] must be {what}, not {value!r}")
        self.config(comfort_noise_enable=0, delay_sample=0,
                    suppression_mode_freq=entry.get("edges"),
                    suppression_mode_intensity=entry.get("intensity"))
        if entry.get("ratio") is not None:
            self.set_recursive_ratio(entry["ratio"])

    def _frames(self, signal, channels, what):
        if signal.dtype != np.int16:
            raise TypeError(f"{what} must be int16, not {signal.dtype}")
        shaped = signal.reshape(-1, 1) if signal.ndim == 1 else signal
        if shaped.ndim != 2 or shaped.shape[1] != channels:
            raise ValueError(f"{what} has shape {signal.shape}; expected (samples,"
                             f"{' ' + str(channels) if channels > 1 else ''}) for "
                             f"{channels} channel(s)")
        padded = -(-len(shaped) // _lib.FRAME) * _lib.FRAME
        buf = np.zeros((padded, channels), dtype=np.int16)
        buf[:len(shaped)] = shaped
        return buf

    def process(self, near, far, mode="full"):
        """Runs whole signals through the instance, frame by frame, and returns the output.

        near: int16 microphone samples, shape (n,) or (n, near_channels).
        far:  int16 loudspeaker samples, shape (n,) or (n, far_channels), same n.
        mode: "full" (both stages), "linear" (the adaptive filter alone) or "split" (the
              two stages as separate calls). The output has the shape of `near`; the
              instance keeps its state, so consecutive calls continue one stream.
        """
        if mode not in MODES:
            raise ValueError(f"mode must be one of {MODES}, not {mode!r}")
        handle = self._live()
        near, far = np.asarray(near), np.asarray(far)
        if len(near) != len(far):
            raise ValueError(f"near has {len(near)} samples, far {len(far)}")
        out = self._frames(near, self.near_channels, "near")
        ref = self._frames(far, self.far_channels, "far")
        lib, step_near = self._lib, _lib.FRAME * self.near_channels * 2
        step_far = _lib.FRAME * self.far_channels * 2
        near_ptr, far_ptr = out.ctypes.data, ref.ctypes.data
        with _messages.collected():
            for f in range(len(out) // _lib.FRAME):
                n, r = near_ptr + f * step_near, far_ptr + f * step_far
                if mode == "full":
                    _check(lib.QenAec_Run(handle, n, r), "QenAec_Run")
                    continue
                _check(lib.QenAec_ADF_Run(handle, n, r), "QenAec_ADF_Run")
                if mode == "split":
                    _check(lib.QenAec_NLP_Run(handle, n), "QenAec_NLP_Run")
        out = out[:len(near)]
        return out.reshape(-1) if near.ndim == 1 else out
