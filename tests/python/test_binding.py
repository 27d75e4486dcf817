"""The Python binding against the built library: failures raised with their code named,
settings and tuning results reaching the library, its messages on the `qenaec` logger, and
echo removed."""
import ctypes
import os
import pathlib
import re
import sys
import tempfile
import unittest
from unittest import mock

import numpy as np

import qenaec

HEADER = pathlib.Path(__file__).resolve().parents[2] / "include" / "qen_aec.h"


def echo_pair(seconds=3.0, channels=1):
    """White noise on the loudspeaker and its echo through a short decaying response."""
    rng = np.random.default_rng(1)
    n = int(16000 * seconds)
    far = rng.standard_normal(n) * 2000
    h = rng.standard_normal(160) * np.exp(-np.arange(160) / 30.0)
    near = np.convolve(far, h * 0.5 / np.sqrt(np.sum(h**2)))[:n] + rng.standard_normal(n) * 3
    near, far = np.round(near).astype(np.int16), np.round(far).astype(np.int16)
    if channels == 2:
        return np.stack([near, near], 1), np.stack([far, far // 2], 1)
    return near, far


def erle_db(near, out, far, mode="full"):
    """ERLE over the last of the 3 s, once the filter has converged."""
    return qenaec.erle(near, out, far, 16000, qenaec.OUTPUT_DELAY[mode], [(0.0, 2.0)]).db


def run(near, far, mode="full", **kwargs):
    with qenaec.Canceller(16000, **kwargs) as aec:
        return aec.process(near, far, mode)


def printed_on_stdout(call):
    """What `call` leaves on file descriptor 1, below Python's own sys.stdout."""
    sys.stdout.flush()
    with tempfile.TemporaryFile() as capture:
        saved = os.dup(1)
        os.dup2(capture.fileno(), 1)
        try:
            call()
        finally:
            ctypes.CDLL(None).fflush(None)
            os.dup2(saved, 1), os.close(saved)
        capture.seek(0)
        return capture.read().decode()


class Refusals(unittest.TestCase):
    def test_codes_are_the_headers(self):
        declared = re.findall(r"(ALGO_AEC_RET_\w+)\s*=\s*(0x[0-9A-Fa-f]+)", HEADER.read_text())
        self.assertEqual({int(v, 16): n for n, v in declared}, qenaec.RET_CODES)

    def test_each_failure_raises_with_its_code_named(self):
        cases = {  # -1 must not wrap into an accepted unsigned ratio
            "SAMPLE_RATE": lambda a: qenaec.Canceller(44100),
            "CHANNEL": lambda a: qenaec.Canceller(16000, near_channels=3),
            "RECURSIVE_RATIO": lambda a: a.set_recursive_ratio(-1),
            "SUP_BAND": lambda a: a.config(suppression_mode_freq=(10, 9, 20, 30, 40, 126)),
            "SUP_MODE": lambda a: a.config(suppression_mode_intensity=(0, 0, 0, 26, 0, 0, 0)),
            "COMFORT_NOISE": lambda a: a.config(comfort_noise_enable=2)}
        with qenaec.Canceller(16000) as aec:
            for name, call in cases.items():
                name = "ALGO_AEC_RET_INVALID_" + name
                with self.subTest(name=name), self.assertRaises(qenaec.QenAecError) as caught:
                    call(aec)
                self.assertEqual(caught.exception.name, name)
                self.assertEqual(qenaec.RET_CODES[caught.exception.code], name)
                self.assertIn(name, str(caught.exception))
            before = aec.get_config()
            with self.assertRaises(qenaec.QenAecError):  # a rejected config changes nothing
                aec.config(delay_sample=99, suppression_mode_intensity=(0, 0, 0, 0, 0, 0, 30))
            self.assertEqual(aec.get_config(), before)
            # -1 from a run function (freed instance) is no table code but still raises.
            aec._lib.QenAec_Free(aec._handle)
            with self.assertRaises(qenaec.QenAecError) as caught:
                aec.process(*echo_pair(0.1))
            self.assertEqual(caught.exception.code, -1)
            self.assertIn("QenAec_Run", str(caught.exception))

    def test_bad_arguments_and_tuning_results_are_refused(self):
        near, far = echo_pair(0.1)
        with qenaec.Canceller(16000) as aec:
            for args, error in [((near.astype(np.float32), far), TypeError),
                                ((near, far[:-1]), ValueError),
                                ((np.stack([near, near], 1), far), ValueError),
                                ((near, far, "nlp"), ValueError)]:
                with self.subTest(args=[np.shape(a) for a in args]), self.assertRaises(error):
                    aec.process(*args)
        with self.assertRaises(RuntimeError):
            aec.process(near, far)
        for config, error in [({"intensity": [1] * 6}, ValueError),
                              ({"edges": [4, 6, 30, 49, 50, 60.5]}, ValueError),
                              ({"ratio": True}, ValueError), ({"ratios": 2}, ValueError),
                              ({"intensity": [26, 0, 0, 0, 0, 0, 0]}, qenaec.QenAecError),
                              ({"ratio": 11}, qenaec.QenAecError)]:
            with self.subTest(config=config), self.assertRaises(error):
                qenaec.Canceller(16000, config=config)


class Settings(unittest.TestCase):
    def test_a_tuning_result_installs_as_the_calls_do(self):
        near, far = echo_pair()
        tuned = {"erle_db": 30.5, "intensity": [5, 4, 25, 5, 10, 10, 1],
                 "edges": [4, 6, 30, 49, 50, 60], "ratio": 4}
        with qenaec.Canceller(16000) as aec:
            aec.config(comfort_noise_enable=0, suppression_mode_freq=tuned["edges"],
                       suppression_mode_intensity=tuned["intensity"])
            aec.set_recursive_ratio(tuned["ratio"])
            by_calls = aec.process(near, far)
        for config in (tuned, {"default": {"ratio": 1}, "tuned": tuned}):
            np.testing.assert_array_equal(run(near, far, config=config), by_calls)
        self.assertFalse(np.array_equal(by_calls, run(near, far)))


class Messages(unittest.TestCase):
    """The library's lines go to the `qenaec` logger, never to the process's output."""

    def logged(self, dml_path):
        def refused_config():
            with qenaec.Canceller(16000) as aec, self.assertRaises(qenaec.QenAecError):
                aec.config(suppression_mode_intensity=(0, 0, 0, 26, 0, 0, 0))
        with mock.patch.dict(os.environ):
            os.environ.pop("DML_PATH", None)
            os.environ.update({"DML_PATH": dml_path} if dml_path else {})
            with self.assertLogs("qenaec", "DEBUG") as logs:
                self.assertEqual(printed_on_stdout(refused_config), "")
            self.assertEqual(os.environ.get("DML_PATH"), dml_path)  # its own level file gone
        by_level = {}
        for r in logs.records:
            by_level.setdefault(r.levelname, []).append(r.getMessage())
        self.assertEqual(len(by_level["ERROR"]), 1)
        self.assertIn("SuppMode only support [0~25]", by_level["ERROR"][0])
        return by_level

    def test_quiet_unless_told_and_a_chosen_level_sends_the_banner_to_debug(self):
        self.assertEqual(list(self.logged(None)), ["ERROR"])
        with tempfile.NamedTemporaryFile("w", suffix=".json") as level:
            level.write('{"debug_level": 7}')
            level.flush()
            by_level = self.logged(level.name)
        self.assertTrue(any("NEON ENABLE" in m for m in by_level["DEBUG"]), by_level)
        self.assertEqual(by_level["DEBUG"].count("-" * 80), 2)
        self.assertIn("ALGO_MSG_WRN", by_level["DEBUG"])
        self.assertEqual(sorted(by_level), ["DEBUG", "ERROR"])


class Processing(unittest.TestCase):
    def test_each_mode_and_layout_removes_echo(self):
        # Mono output equals the tool's in every mode (test_agreement); here the echo is
        # removed, and a swapped or mis-strided stereo buffer would keep it.
        near, far = echo_pair()
        self.assertGreater(erle_db(near, run(near, far, "linear"), far, "linear"), 20.0)
        near, far = echo_pair(channels=2)
        out = run(near, far, near_channels=2, far_channels=2)
        self.assertEqual((out.dtype, out.shape), (np.int16, near.shape))
        for ch in (0, 1):
            self.assertGreater(erle_db(near[:, ch], out[:, ch], far[:, 0]), 30.0)

    def test_a_stream_in_pieces_is_the_whole_and_inputs_stay(self):
        near, far = echo_pair(1.0)
        copies = near.copy(), far.copy()
        split, cut = 128 * 40, 128 * 100 + 104  # a partial last frame: padded, then trimmed
        padded = [np.concatenate([x[:cut], np.zeros(24, np.int16)]) for x in (near, far)]
        for mode in qenaec.MODES:
            with self.subTest(mode=mode), qenaec.Canceller(16000) as aec:
                whole = run(*padded, mode)
                parts = [aec.process(near[:split], far[:split], mode),
                         aec.process(near[split:cut], far[split:cut], mode)]
                self.assertEqual(parts[1].shape, (cut - split,))
                np.testing.assert_array_equal(np.concatenate(parts), whole[:cut])
        np.testing.assert_array_equal(near, copies[0])
        np.testing.assert_array_equal(far, copies[1])


if __name__ == "__main__":
    unittest.main()
