"""The Python binding against the built library: shapes, padding, stream continuity, the
mapping of every failure to a named code, settings round trips and tuning results, the
library's messages on the `qenaec` logger, and that echo is removed in each mode through it
(a swapped or mis-strided buffer would not remove it)."""
import ctypes
import os
import pathlib
import re
import sys
import tempfile
import unittest

import numpy as np

import qenaec

ROOT = pathlib.Path(__file__).resolve().parents[2]


def echo_pair(rate=16000, seconds=3.0, seed=1, channels=1):
    """White-noise loudspeaker signal and its echo through a short decaying response."""
    rng = np.random.default_rng(seed)
    n = int(rate * seconds)
    far = rng.standard_normal(n) * 2000
    h = rng.standard_normal(160) * np.exp(-np.arange(160) / 30.0)
    h *= 0.5 / np.sqrt(np.sum(h**2))
    echo = np.convolve(far, h)[:n] + rng.standard_normal(n) * 3
    near = np.round(echo).astype(np.int16)
    far = np.round(far).astype(np.int16)
    if channels == 2:
        near, far = np.stack([near, near], 1), np.stack([far, far // 2], 1)
    return near, far


def erle_db(near, out, far, mode="full"):
    """ERLE over the last of the 3 s, once the filter has converged."""
    return qenaec.erle(near, out, far, 16000, qenaec.OUTPUT_DELAY[mode], [(0.0, 2.0)]).db


class Codes(unittest.TestCase):
    def test_table_matches_public_header(self):
        header = (ROOT / "include" / "qen_aec.h").read_text()
        declared = {int(v, 16): n for n, v in
                    re.findall(r"(ALGO_AEC_RET_\w+)\s*=\s*(0x[0-9A-Fa-f]+)", header)}
        self.assertEqual(declared, qenaec.RET_CODES)

    def test_failures_raise_with_the_code_named(self):
        # One call per code; -1 must not wrap into an accepted unsigned ratio.
        cases = [
            (lambda a: qenaec.Canceller(44100), "ALGO_AEC_RET_INVALID_SAMPLE_RATE"),
            (lambda a: qenaec.Canceller(16000, near_channels=3), "ALGO_AEC_RET_INVALID_CHANNEL"),
            (lambda a: a.set_recursive_ratio(-1), "ALGO_AEC_RET_INVALID_RECURSIVE_RATIO"),
            (lambda a: a.config(suppression_mode_freq=(10, 9, 20, 30, 40, 126)),
             "ALGO_AEC_RET_INVALID_SUP_BAND"),
            (lambda a: a.config(suppression_mode_intensity=(0, 0, 0, 26, 0, 0, 0)),
             "ALGO_AEC_RET_INVALID_SUP_MODE"),
            (lambda a: a.config(comfort_noise_enable=2), "ALGO_AEC_RET_INVALID_COMFORT_NOISE"),
        ]
        with qenaec.Canceller(16000) as aec:
            for call, name in cases:
                with self.subTest(name=name), self.assertRaises(qenaec.QenAecError) as caught:
                    call(aec)
                self.assertEqual(caught.exception.name, name)
                self.assertEqual(qenaec.RET_CODES[caught.exception.code], name)
                self.assertIn(name, str(caught.exception))

    def test_a_run_failure_raises(self):
        # -1 from a run function (uninitialised instance) is not a table code but still raises.
        with qenaec.Canceller(16000) as aec:
            aec._lib.QenAec_Free(aec._handle)
            near, far = echo_pair(seconds=0.1)
            with self.assertRaises(qenaec.QenAecError) as caught:
                aec.process(near, far)
            self.assertEqual(caught.exception.code, -1)
            self.assertIn("QenAec_Run", str(caught.exception))


class Settings(unittest.TestCase):
    def test_config_round_trips_and_keeps_unnamed_fields(self):
        with qenaec.Canceller(32000, near_channels=2, far_channels=1) as aec:
            before = aec.get_config()
            self.assertEqual((before["sample_rate"], before["near_channels"],
                              before["far_channels"], before["point_number"]), (32000, 2, 1, 128))
            aec.config(comfort_noise_enable=1, delay_sample=-5,
                       suppression_mode_freq=(10, 10, 20, 30, 40, 126),
                       suppression_mode_intensity=(1, 2, 3, 4, 5, 6, 25))
            aec.config(delay_sample=321)
            now = aec.get_config()
        self.assertEqual(now["comfort_noise_enable"], 1)
        self.assertEqual(now["delay_sample"], 321)
        self.assertEqual(now["suppression_mode_freq"], (10, 10, 20, 30, 40, 126))
        self.assertEqual(now["suppression_mode_intensity"], (1, 2, 3, 4, 5, 6, 25))

    def test_a_rejected_config_changes_nothing(self):
        with qenaec.Canceller(16000) as aec:
            before = aec.get_config()
            with self.assertRaises(qenaec.QenAecError):
                aec.config(delay_sample=99, suppression_mode_intensity=(0, 0, 0, 0, 0, 0, 30))
            self.assertEqual(aec.get_config(), before)

    def test_recursive_ratio_reaches_the_suppressor(self):
        near, far = echo_pair()
        outs = []
        for ratio in (None, 10):
            with qenaec.Canceller(16000) as aec:
                if ratio is not None:
                    aec.set_recursive_ratio(ratio)
                outs.append(aec.process(near, far))
        self.assertFalse(np.array_equal(outs[0], outs[1]))


    def test_a_tuning_result_installs_as_process_config_does(self):
        near, far = echo_pair()
        tuned = {"erle_db": 30.5, "intensity": [5, 4, 25, 5, 10, 10, 1],
                 "edges": [4, 6, 30, 49, 50, 60], "ratio": 4}
        with qenaec.Canceller(16000) as aec:
            plain = aec.process(near, far)
        with qenaec.Canceller(16000) as aec:
            aec.config(comfort_noise_enable=0, suppression_mode_freq=tuned["edges"],
                       suppression_mode_intensity=tuned["intensity"])
            aec.set_recursive_ratio(tuned["ratio"])
            by_calls = aec.process(near, far)
        for config in (tuned, {"default": {"ratio": 1}, "tuned": tuned}):
            with qenaec.Canceller(16000, config=config) as aec:
                np.testing.assert_array_equal(aec.process(near, far), by_calls)
        self.assertFalse(np.array_equal(by_calls, plain))

    def test_a_broken_tuning_result_is_refused(self):
        cases = [({"intensity": [1] * 6}, ValueError), ({"edges": [4, 6, 30, 49, 50, 60.5]},
                                                        ValueError),
                 ({"ratio": True}, ValueError), ({"ratios": 2}, ValueError),
                 ({"intensity": [26, 0, 0, 0, 0, 0, 0]}, qenaec.QenAecError),
                 ({"ratio": 11}, qenaec.QenAecError)]
        for config, error in cases:
            with self.subTest(config=config), self.assertRaises(error):
                qenaec.Canceller(16000, config=config)


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
            os.dup2(saved, 1)
            os.close(saved)
        capture.seek(0)
        return capture.read().decode()


class Messages(unittest.TestCase):
    """The library's lines go to the `qenaec` logger, never to the process's output."""

    def setUp(self):
        self.saved = os.environ.pop("DML_PATH", None)

    def tearDown(self):
        os.environ.pop("DML_PATH", None)
        if self.saved is not None:
            os.environ["DML_PATH"] = self.saved

    def refused_config(self):
        with qenaec.Canceller(16000) as aec, self.assertRaises(qenaec.QenAecError):
            aec.config(suppression_mode_intensity=(0, 0, 0, 26, 0, 0, 0))

    def test_quiet_as_the_tool_unless_told_and_errors_are_errors(self):
        with self.assertLogs("qenaec", "DEBUG") as logs:
            self.assertEqual(printed_on_stdout(self.refused_config), "")
        self.assertEqual([r.levelname for r in logs.records], ["ERROR"])
        self.assertIn("SuppMode only support [0~25]", logs.records[0].getMessage())
        self.assertNotIn("DML_PATH", os.environ)

    def test_a_chosen_level_sends_the_banner_to_debug(self):
        with tempfile.NamedTemporaryFile("w", suffix=".json") as level:
            level.write('{"debug_level": 7}')
            level.flush()
            os.environ["DML_PATH"] = level.name
            with self.assertLogs("qenaec", "DEBUG") as logs:
                self.assertEqual(printed_on_stdout(self.refused_config), "")
        by_level = {}
        for r in logs.records:
            by_level.setdefault(r.levelname, []).append(r.getMessage())
        self.assertTrue(any("NEON ENABLE" in m for m in by_level["DEBUG"]), by_level)
        self.assertEqual(by_level["DEBUG"].count("-" * 80), 2)
        self.assertIn("ALGO_MSG_WRN", by_level["DEBUG"])
        self.assertEqual(set(by_level), {"DEBUG", "ERROR"})
        self.assertEqual(len(by_level["ERROR"]), 1)


class Processing(unittest.TestCase):
    def test_each_mode_removes_echo(self):
        near, far = echo_pair()
        floors = {"full": 30.0, "split": 30.0, "linear": 20.0}
        for mode in qenaec.MODES:
            with self.subTest(mode=mode), qenaec.Canceller(16000) as aec:
                out = aec.process(near, far, mode)
                self.assertEqual(out.dtype, np.int16)
                self.assertGreater(erle_db(near, out, far, mode), floors[mode])

    def test_stereo_arrays_keep_their_layout(self):
        near, far = echo_pair(channels=2)
        with qenaec.Canceller(16000, near_channels=2, far_channels=2) as aec:
            out = aec.process(near, far)
        self.assertEqual(out.shape, near.shape)
        self.assertGreater(erle_db(near[:, 0], out[:, 0], far), 30.0)
        self.assertGreater(erle_db(near[:, 1], out[:, 1], far), 30.0)

    def test_partial_last_frame_is_padded_and_trimmed(self):
        near, far = echo_pair(seconds=0.5)
        cut = 1000  # 7 frames and 104 samples
        padded_near = np.zeros(1024, np.int16)
        padded_far = np.zeros(1024, np.int16)
        padded_near[:cut], padded_far[:cut] = near[:cut], far[:cut]
        for mode in qenaec.MODES:
            with self.subTest(mode=mode), qenaec.Canceller(16000) as a, \
                    qenaec.Canceller(16000) as b:
                short = a.process(near[:cut], far[:cut], mode)
                whole = b.process(padded_near, padded_far, mode)
                self.assertEqual(short.shape, (cut,))
                np.testing.assert_array_equal(short, whole[:cut])

    def test_consecutive_calls_continue_one_stream(self):
        near, far = echo_pair(seconds=1.0)
        split = 128 * 40
        with qenaec.Canceller(16000) as a, qenaec.Canceller(16000) as b:
            whole = a.process(near, far)
            parts = np.concatenate([b.process(near[:split], far[:split]),
                                    b.process(near[split:], far[split:])])
        np.testing.assert_array_equal(whole, parts)

    def test_inputs_are_left_untouched(self):
        near, far = echo_pair(seconds=0.2)
        near_copy, far_copy = near.copy(), far.copy()
        with qenaec.Canceller(16000) as aec:
            aec.process(near, far)
        np.testing.assert_array_equal(near, near_copy)
        np.testing.assert_array_equal(far, far_copy)

    def test_bad_arguments_are_refused(self):
        near, far = echo_pair(seconds=0.1)
        with qenaec.Canceller(16000) as aec:
            with self.assertRaises(TypeError):
                aec.process(near.astype(np.float32), far)
            with self.assertRaises(ValueError):
                aec.process(near, far[:-1])
            with self.assertRaises(ValueError):
                aec.process(np.stack([near, near], 1), far)
            with self.assertRaises(ValueError):
                aec.process(near, far, mode="nlp")
        with self.assertRaises(RuntimeError):
            aec.process(near, far)
        aec.close()


if __name__ == "__main__":
    unittest.main()
