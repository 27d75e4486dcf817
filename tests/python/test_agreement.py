"""The front ends against each other and the library: the output delay of each run mode
(testkit's C++ constant, the binding's, and the lag the library actually has) and ERLE
(testkit's C++ rule and the binding's) on one recording, within 0.1 dB."""
import os
import subprocess
import tempfile
import unittest

import numpy as np

import qenaec

RATE = 16000
PROBE = os.environ.get("QENAEC_TESTKIT_PROBE", "")


def probe(*args):
    return subprocess.run([PROBE, *map(str, args)], check=True, capture_output=True,
                          text=True).stdout


def measured_delay(mode):
    """The lag at which the output best matches the input: a loud talker on the microphone
    and a faint, unrelated far end, which every mode passes."""
    rng = np.random.default_rng(5)
    near = np.round(rng.standard_normal(RATE) * 3000).astype(np.int16)
    far = np.round(rng.standard_normal(RATE) * 20).astype(np.int16)
    with qenaec.Canceller(RATE) as aec:
        out = aec.process(near, far, mode).astype(float)
    span = slice(4000, 12000)
    corr = [np.dot(out[span], near[span.start - k:span.stop - k]) for k in range(300)]
    return int(np.argmax(corr))


def recording(seconds=8.0):
    """Noise bursts on the loudspeaker with two pauses, their echo, microphone noise, and a
    loud near-end talker over 3.5..4.2 s."""
    rng = np.random.default_rng(11)
    n = int(seconds * RATE)
    t = np.arange(n) / RATE
    far = rng.standard_normal(n) * 3000 * (1 + 0.5 * np.sin(2 * np.pi * 1.5 * t))
    far[((t >= 2.0) & (t < 2.6)) | ((t >= 5.0) & (t < 5.5))] = 0
    h = rng.standard_normal(320) * np.exp(-np.arange(320) / 60.0)
    h *= 0.5 / np.sqrt(np.sum(h**2))
    mic = np.convolve(far, h)[:n] + rng.standard_normal(n) * 10
    talk = (t >= 3.5) & (t < 4.2)
    mic[talk] += rng.standard_normal(np.sum(talk)) * 6000
    to_pcm = lambda x: np.clip(np.round(x), -32768, 32767).astype(np.int16)
    return to_pcm(mic), to_pcm(far)


class OutputDelay(unittest.TestCase):
    def test_cpp_python_and_library_agree(self):
        cpp = dict(line.split() for line in probe("delays").splitlines())
        self.assertEqual(sorted(cpp), sorted(qenaec.MODES))
        for mode in qenaec.MODES:
            with self.subTest(mode=mode):
                self.assertEqual(measured_delay(mode), qenaec.OUTPUT_DELAY[mode])
                self.assertEqual(int(cpp[mode]), qenaec.OUTPUT_DELAY[mode])


class Erle(unittest.TestCase):
    def test_cpp_and_python_agree_within_a_tenth_of_a_db(self):
        near, far = recording()
        cases = [("full", None), ("linear", None), ("full", [(3.5, 4.2)]),
                 ("split", [(0.0, 1.0), (3.5, 4.2)])]
        with tempfile.TemporaryDirectory() as tmp:
            paths = [os.path.join(tmp, name) for name in ("near", "out", "far")]
            near.tofile(paths[0])
            far.tofile(paths[2])
            for mode, spans in cases:
                with self.subTest(mode=mode, spans=spans), qenaec.Canceller(RATE) as aec:
                    out = aec.process(near, far, mode)
                    out.tofile(paths[1])
                    delay = qenaec.OUTPUT_DELAY[mode]
                    ours = qenaec.erle(near, out, far, RATE, delay, spans)
                    flat = [v for span in spans or [] for v in span]
                    valid, db, seconds, rule = probe("erle", RATE, 1, 1, delay, *paths,
                                                     *flat).split(maxsplit=3)
                    self.assertTrue(ours.valid)
                    self.assertEqual(valid, "1")
                    self.assertEqual(rule.strip(), ours.rule)
                    self.assertAlmostEqual(float(db), ours.db, delta=0.1)
                    self.assertAlmostEqual(float(seconds), ours.seconds, delta=0.02)
                    # The talker and the pauses are not measured: about 6 of the 8 s remain.
                    self.assertLess(ours.seconds, 6.8)
                    self.assertGreater(ours.seconds, 4.0)


if __name__ == "__main__":
    unittest.main()
