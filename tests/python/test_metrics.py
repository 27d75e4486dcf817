"""The evaluation's figures on signals whose answers are known by construction."""
import unittest

import numpy as np
from scipy import signal

import metrics

RATE = 8000


def white(seconds, rms, seed):
    return np.random.default_rng(seed).standard_normal(int(seconds * RATE)) * rms


class ErleCurve(unittest.TestCase):
    def setUp(self):
        # 0-2 s echo alone, 2-3 s nothing, 3-4 s echo and near-end talker.
        self.echo = np.concatenate([white(2, 1000, 1), np.zeros(RATE), white(1, 1000, 2)])
        self.near = np.concatenate([np.zeros(3 * RATE), white(1, 1000, 3)])
        self.noise = white(4, 1, 4)
        self.mic = self.echo + self.near + self.noise

    def test_valid_windows_read_the_level_difference(self):
        curve = metrics.erle_over_time(self.mic, self.mic * 0.1, self.echo, self.near,
                                       self.noise, RATE)
        starts = curve.times - metrics.WINDOW_S
        alone = curve.times <= 2.0 + 1e-9
        np.testing.assert_allclose(curve.erle[alone], 20.0, atol=1e-9)
        # Windows reaching into the silence or the double talk are not valid.
        self.assertTrue(np.all(np.isnan(curve.erle[(starts >= 2.0 - 1e-9)])))
        self.assertAlmostEqual(curve.times[1] - curve.times[0], metrics.HOP_S)

    def test_steady_state_sums_powers_rather_than_decibels(self):
        curve = metrics.ErleCurve(np.array([0.5, 1.0, 1.5]), np.array([20.0, 0.0, np.nan]),
                                  np.array([100.0, 1.0, 5.0]), np.array([1.0, 1.0, 1.0]))
        self.assertAlmostEqual(metrics.steady_state_erle(curve, 0.0), 10 * np.log10(101 / 2))
        # The span is [start, stop]: a window must lie wholly inside it.
        self.assertAlmostEqual(metrics.steady_state_erle(curve, 0.5), 0.0)


class Convergence(unittest.TestCase):
    @staticmethod
    def curve(erle):
        erle = np.asarray(erle, float)
        times = metrics.WINDOW_S + metrics.HOP_S * np.arange(len(erle))
        return metrics.ErleCurve(times, erle, np.ones_like(erle), np.ones_like(erle))

    def test_a_brief_peak_is_not_convergence(self):
        c = self.curve([5, 12, 8, 12, 12, 12, 12, 12, 12, 12])
        self.assertAlmostEqual(metrics.convergence_time(c, 0.0, 10.0), 0.8)
        self.assertAlmostEqual(metrics.convergence_time(c, 0.0, 4.0), 0.5)

    def test_gaps_are_skipped_and_never_reaching_gives_none(self):
        c = self.curve([5, np.nan, np.nan, 11, 11, 11, 11, 11, 11])
        self.assertAlmostEqual(metrics.convergence_time(c, 0.0, 10.0), 0.8)
        self.assertIsNone(metrics.convergence_time(c, 0.0, 20.0))

    def test_counted_from_the_start_with_windows_after_it(self):
        c = self.curve([30] * 20)  # windows end at 0.5 .. 2.4 s
        self.assertAlmostEqual(metrics.convergence_time(c, 1.0, 10.0), 0.5)
        self.assertIsNone(metrics.convergence_time(c, 0.0, 10.0, stop=0.5))


class DoubleTalk(unittest.TestCase):
    def setUp(self):
        self.near = white(4, 1000, 1)
        self.echo = white(4, 1000, 2)
        self.far = white(4, 2000, 3)
        self.noise = white(4, 1, 4)

    def test_scaled_near_end_and_residual_echo(self):
        residual = white(4, 100, 5)
        dt = metrics.double_talk(0.5 * self.near + residual, self.far, self.echo, self.near,
                                 self.noise, RATE)
        self.assertAlmostEqual(dt["near_attenuation_db"], 6.02, delta=0.1)
        # The least-squares part takes about 1/16 of the residual along (16 real degrees of
        # freedom per band): a bias of +0.3 dB.
        self.assertAlmostEqual(dt["echo_loss_db"], 10 * np.log10(2000**2 / 100**2), delta=0.6)
        self.assertAlmostEqual(dt["erle_db"], 20.0, delta=0.6)
        self.assertAlmostEqual(dt["seconds"], 4.0, delta=0.1)
        self.assertEqual(dt["class"], "Type 2b")

    def test_spectral_shaping_counts_as_attenuation_not_echo(self):
        # Removing the upper half of the near end's band halves its power.
        lowpass = signal.firwin(255, 0.5)
        shaped = signal.lfilter(lowpass, 1, self.near)
        shaped = np.concatenate([shaped[127:], np.zeros(127)])  # undo the filter's delay
        dt = metrics.double_talk(shaped, self.far, self.echo, self.near, self.noise, RATE)
        self.assertAlmostEqual(dt["near_attenuation_db"], 3.0, delta=0.4)
        # A broadband split would call half the removed power echo: 12 dB of echo loss.
        self.assertGreater(dt["echo_loss_db"], 25.0)

    def test_no_double_talk_gives_none(self):
        silent = np.zeros_like(self.near)
        self.assertIsNone(metrics.double_talk(self.near, self.far, silent, self.near,
                                              self.noise, RATE))

    def test_classes(self):
        cases = [((3.0, 27.0), "Type 1"), ((3.1, 30.0), "Type 2a"), ((5.0, 22.9), "Type 2b"),
                 ((8.0, 17.0), "Type 2b"), ((10.0, 11.0), "Type 2c"), ((10.1, 40.0), "Type 3"),
                 ((0.0, 10.9), "Type 3")]
        for (attenuation, loss), name in cases:
            with self.subTest(attenuation=attenuation, loss=loss):
                self.assertEqual(metrics.dt_class(attenuation, loss), name)


class NearSingleTalk(unittest.TestCase):
    def setUp(self):
        self.near = white(4, 1000, 1)
        self.noise = white(4, 1, 2)
        self.mic = self.near + self.noise

    def test_untouched_talker(self):
        ne = metrics.near_single_talk(self.mic, self.mic, self.near, self.noise, RATE)
        self.assertAlmostEqual(ne["attenuation_db"], 0.0, delta=0.05)
        self.assertGreater(ne["sdr_db"], 40.0)

    def test_a_fixed_filter_is_no_distortion_but_changing_gains_are(self):
        notch = signal.lfilter([1, -1], [1, -0.95], self.mic)
        self.assertGreater(
            metrics.near_single_talk(notch, self.mic, self.near, self.noise, RATE)["sdr_db"], 30)
        gains = np.repeat(np.random.default_rng(3).uniform(0, 1, len(self.mic) // 160), 160)
        ne = metrics.near_single_talk(self.mic * gains, self.mic, self.near, self.noise, RATE)
        self.assertLess(ne["sdr_db"], 10.0)
        self.assertGreater(ne["attenuation_db"], 3.0)


if __name__ == "__main__":
    unittest.main()
