"""The binding against the C++ side: its output delay is the lag the library actually has,
and on one recording `qenaec process` gives the binding's output and measures the binding's
ERLE within 0.1 dB."""
import json
import os
import subprocess
import tempfile
import unittest
import wave

import numpy as np

import qenaec

RATE = 16000


def measured_delay(mode):
    """The lag at which the output best matches the input: a loud talker on the microphone
    and a faint, unrelated far end, which every mode passes."""
    rng = np.random.default_rng(5)
    near = np.round(rng.standard_normal(RATE) * 3000).astype(np.int16)
    far = np.round(rng.standard_normal(RATE) * 20).astype(np.int16)
    with qenaec.Canceller(RATE) as aec:
        out = aec.process(near, far, mode).astype(float)
    return int(np.argmax([np.dot(out[4000:12000], near[4000 - k:12000 - k]) for k in range(300)]))


def recording(seconds=8.0):
    """Noise bursts on the loudspeaker with two pauses, their echo, microphone noise, and a
    loud near-end talker over 3.5..4.2 s."""
    rng = np.random.default_rng(11)
    n = int(seconds * RATE)
    t = np.arange(n) / RATE
    far = rng.standard_normal(n) * 3000 * (1 + 0.5 * np.sin(2 * np.pi * 1.5 * t))
    far[((t >= 2.0) & (t < 2.6)) | ((t >= 5.0) & (t < 5.5))] = 0
    h = rng.standard_normal(320) * np.exp(-np.arange(320) / 60.0)
    h[0] = 3 * np.max(np.abs(h))  # the direct path strongest: no bulk delay for the tool to find
    mic = np.convolve(far, h * 0.5 / np.sqrt(np.sum(h**2)))[:n] + rng.standard_normal(n) * 10
    talk = (t >= 3.5) & (t < 4.2)
    mic[talk] += rng.standard_normal(np.sum(talk)) * 6000
    return [np.clip(np.round(x), -32768, 32767).astype(np.int16) for x in (mic, far)]


def wav(path, samples=None):
    with wave.open(path, "wb" if samples is not None else "rb") as w:
        if samples is None:
            return np.frombuffer(w.readframes(w.getnframes()), "<i2")
        w.setnchannels(1), w.setsampwidth(2), w.setframerate(RATE)
        w.writeframes(samples.astype("<i2").tobytes())


class Agreement(unittest.TestCase):
    def test_output_delay_is_the_librarys(self):
        for mode in qenaec.MODES:
            with self.subTest(mode=mode):
                self.assertEqual(measured_delay(mode), qenaec.OUTPUT_DELAY[mode])

    def test_tool_and_binding_agree_on_output_and_erle(self):
        near, far = recording()
        cases = [("full", None), ("linear", None), ("full", [(3.5, 4.2)]),
                 ("split", [(0.0, 1.0), (3.5, 4.2)])]
        with tempfile.TemporaryDirectory() as tmp:
            p = {name: os.path.join(tmp, name) for name in ("near.wav", "far.wav", "out.wav", "m")}
            wav(p["near.wav"], near), wav(p["far.wav"], far)
            for mode, spans in cases:
                with self.subTest(mode=mode, spans=spans), qenaec.Canceller(RATE) as aec:
                    out = aec.process(near, far, mode)
                    ours = qenaec.erle(near, out, far, RATE, qenaec.OUTPUT_DELAY[mode], spans)
                    talk = ["--near-talk", ",".join(f"{a}-{b}" for a, b in spans)] if spans else []
                    subprocess.run([os.environ["QENAEC_TOOL"], "process", "--quiet", "--near",
                                    p["near.wav"], "--far", p["far.wav"], "-o", p["out.wav"],
                                    "--mode", mode, "--metrics-json", p["m"], *talk], check=True)
                    np.testing.assert_array_equal(wav(p["out.wav"]), out)
                    with open(p["m"]) as f:
                        theirs = json.load(f)
                    self.assertTrue(ours.valid)
                    self.assertAlmostEqual(theirs["erle_db"], ours.db, delta=0.1)
                    self.assertAlmostEqual(theirs["erle_seconds"], ours.seconds, delta=0.02)
                    # The talker and the pauses are not measured: about 6 of the 8 s remain.
                    self.assertTrue(4.0 < ours.seconds < 6.8, ours.seconds)


if __name__ == "__main__":
    unittest.main()
