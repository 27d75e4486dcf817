"""The evaluation's signal sources: speech levels, the image-source room, the scenarios'
geometry and determinism, the NLMS baseline, and the recordings and front of the tuning
section."""
import unittest

import numpy as np

import nlms
import room
import scenarios
import speech
import tune_recordings
import tuning


def lag_of(x, y, max_lag):
    """The lag (samples) at which y best matches x delayed."""
    corr = [np.dot(x[:len(x) - k], y[k:]) for k in range(max_lag)]
    return int(np.argmax(corr))


class Speech(unittest.TestCase):
    def test_level_reads_dbov(self):
        t = np.arange(8000)
        square = np.where(t % 40 < 20, 32767.0, -32768.0)
        self.assertAlmostEqual(speech.level_dbov(square, 8000), 0.0, delta=0.01)
        sine = 32768 * np.sin(2 * np.pi * 200 * t / 8000)
        self.assertAlmostEqual(speech.level_dbov(sine, 8000), -3.01, delta=0.01)
        # Silent stretches do not count.
        padded = np.concatenate([sine, np.zeros(16000)])
        self.assertAlmostEqual(speech.level_dbov(padded, 8000), -3.01, delta=0.01)

    def test_talker_is_levelled_silent_before_start_and_seeded(self):
        a = speech.talker("near", 16000, 4.0, start=1.0, seed=3)
        self.assertEqual(len(a), 64000)
        self.assertFalse(np.any(a[:16000]))
        self.assertAlmostEqual(speech.level_dbov(a, 16000), -26.0, delta=0.01)
        np.testing.assert_array_equal(a, speech.talker("near", 16000, 4.0, start=1.0, seed=3))
        self.assertFalse(np.array_equal(a, speech.talker("near", 16000, 4.0, start=1.0, seed=4)))
        self.assertFalse(np.array_equal(a, speech.talker("far", 16000, 4.0, start=1.0, seed=3)))


class Room(unittest.TestCase):
    def test_direct_path_delay_and_gain(self):
        office = scenarios.OFFICE
        d = 343.0 * 10 / 48000  # ten samples at 48 kHz
        h = room.impulse_response(office, (1.0, 1.0, 1.0), (1.0 + d, 1.0, 1.0), 48000)
        self.assertEqual(int(np.argmax(np.abs(h))), 10)
        self.assertAlmostEqual(h[10], 0.1 / d, delta=0.05 * 0.1 / d)

    def test_decay_follows_the_wanted_rt60(self):
        for r in (scenarios.BOOTH, scenarios.OFFICE, scenarios.LIVING, scenarios.HALL):
            with self.subTest(rt60=r.rt60):
                src = tuple(0.25 * v for v in r.size)
                mic = tuple(0.6 * v for v in r.size)
                h = room.impulse_response(r, src, mic, 16000, seconds=r.rt60)
                self.assertAlmostEqual(room.rt60_estimate(h, 16000), r.rt60, delta=0.15 * r.rt60)

    def test_no_gain_at_dc(self):
        h = room.impulse_response(scenarios.HALL, (2.0, 2.0, 1.0), (2.1, 2.0, 1.0), 8000)
        self.assertLess(abs(np.sum(h)), 0.01 * np.sum(np.abs(h)))


class Scenarios(unittest.TestCase):
    def test_deterministic_from_the_seed(self):
        sc = scenarios.scenario("double_talk", seconds=3.0, near_start=1.0)
        a, b = scenarios.build(sc, 8000, seed=1), scenarios.build(sc, 8000, seed=1)
        for key in ("far", "mic", "echo", "near", "noise"):
            np.testing.assert_array_equal(a[key], b[key])
        c = scenarios.build(sc, 8000, seed=2)
        self.assertFalse(np.array_equal(a["mic"], c["mic"]))

    def test_levels_and_the_sum_at_the_microphone(self):
        sc = scenarios.scenario("double_talk", seconds=4.0, near_start=1.0, snr_db=25.0)
        s = scenarios.build(sc, 16000)
        self.assertEqual(s["mic"].dtype, np.int16)
        self.assertEqual(s["far"].dtype, np.int16)
        self.assertAlmostEqual(speech.level_dbov(s["far"], 16000), -26.0, delta=0.3)
        self.assertAlmostEqual(speech.level_dbov(s["near"], 16000), -26.0, delta=0.01)
        noise_db = 20 * np.log10(np.std(s["noise"]) / speech.FULL_SCALE)
        self.assertAlmostEqual(noise_db, -51.0, delta=0.1)
        total = s["echo"] + s["near"] + s["noise"]
        self.assertLessEqual(np.max(np.abs(s["mic"] - total)), 0.5)

    def test_bulk_delay_inside_the_filter_except_where_meant_not_to_be(self):
        for name, inside in (("fe_single", True), ("delay_beyond", False)):
            for rate in (8000, 48000):
                with self.subTest(name=name, rate=rate):
                    s = scenarios.build(scenarios.scenario(name, seconds=2.0), rate)
                    lag = lag_of(s["far"].astype(float), s["echo"], 2 * scenarios.FILTER_TAPS)
                    self.assertEqual(lag < scenarios.FILTER_TAPS, inside, lag)
                    self.assertGreaterEqual(lag, s["delay"])

    def test_the_path_changes_halfway(self):
        sc = scenarios.scenario("path_change", seconds=4.0, change_at=2.0)
        s = scenarios.build(sc, 48000)
        far, echo = s["far"].astype(float), s["echo"]
        half = 2 * 48000
        before = lag_of(far[:half - 4800], echo[:half - 4800], 600)
        after = lag_of(far[half:], echo[half:], 600)
        # 6 cm then 14 cm from the loudspeaker: 11 samples further at 48 kHz.
        self.assertAlmostEqual(after - before, 0.08 / 343 * 48000, delta=1.5)

    def test_stereo_layout(self):
        s = scenarios.build(scenarios.scenario("stereo", seconds=2.0), 8000)
        self.assertEqual(s["far"].shape, (16000, 2))
        self.assertEqual(s["mic"].shape, (16000, 2))
        self.assertFalse(np.array_equal(s["far"][:, 0], s["far"][:, 1]))
        self.assertFalse(np.array_equal(s["echo"][:, 0], s["echo"][:, 1]))

    def test_clipping_loudspeaker_limits_and_stays_linear_when_quiet(self):
        rate = 16000
        tone = np.sin(2 * np.pi * 1000 * np.arange(rate) / rate)
        knee = 2.0 * speech.FULL_SCALE * 10 ** (scenarios.TALKER_DBOV / 20)
        loud = scenarios._loudspeaker(tone * 10 * knee, rate, clip=True)
        self.assertLess(np.max(np.abs(loud)), knee)
        quiet = tone * 0.01 * knee
        np.testing.assert_allclose(scenarios._loudspeaker(quiet, rate, clip=True),
                                   scenarios._loudspeaker(quiet, rate, clip=False),
                                   atol=1e-4 * knee)


class Baseline(unittest.TestCase):
    def test_identifies_a_path_within_its_taps(self):
        rng = np.random.default_rng(1)
        far = rng.standard_normal(16000) * 1000
        path = rng.standard_normal(64) * np.exp(-np.arange(64) / 10)
        near = np.convolve(far, np.concatenate([np.zeros(20), path]))[:16000]
        err = nlms.nlms(near, far, taps=128)
        self.assertGreater(10 * np.log10(np.sum(near[-4000:] ** 2) / np.sum(err[-4000:] ** 2)),
                           60.0)

    def test_passes_the_near_end_when_the_far_end_is_silent(self):
        near = np.random.default_rng(2).standard_normal(4000) * 1000
        np.testing.assert_array_equal(nlms.nlms(near, np.zeros(4000), taps=64), near)


if __name__ == "__main__":
    unittest.main()


class TuneRecordings(unittest.TestCase):
    def test_echo_recording_is_the_scenario_and_the_talker_speaks_alone(self):
        sc = scenarios.scenario("fe_single", seconds=3.0)
        mic, ref, talker = tune_recordings.recordings(sc, 16000)
        whole = scenarios.build(sc, 16000)
        np.testing.assert_array_equal(mic, whole["mic"])
        np.testing.assert_array_equal(ref, whole["far"])
        self.assertEqual(len(talker), len(mic))
        # The talker arrives at the talkers' level; the silent loudspeaker adds nothing.
        self.assertAlmostEqual(speech.level_dbov(talker.astype(float), 16000),
                               scenarios.TALKER_DBOV, delta=1.0)

    def test_front_keeps_exactly_the_points_nothing_beats(self):
        rng = np.random.default_rng(3)
        points = [tuple(p) for p in np.round(rng.uniform(0, 10, (200, 2)), 1)]
        front = tuning.front(points)
        beaten = lambda p: any(q != p and q[0] <= p[0] and q[1] >= p[1] for q in points)
        self.assertEqual(sorted(set(p for p in points if not beaten(p))), front)
