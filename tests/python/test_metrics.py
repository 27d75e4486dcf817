"""The evaluation's figures on signals whose answers are known by construction."""
import unittest

import numpy as np
from scipy import signal

import metrics

RATE = 8000


def white(seconds, rms, seed):
    return np.random.default_rng(seed).standard_normal(int(seconds * RATE)) * rms


class Metrics(unittest.TestCase):
    def test_erle_curve_reads_the_level_difference_where_valid(self):
        # 0-2 s echo alone, 2-3 s nothing, 3-4 s echo and near-end talker.
        echo = np.concatenate([white(2, 1000, 1), np.zeros(RATE), white(1, 1000, 2)])
        near = np.concatenate([np.zeros(3 * RATE), white(1, 1000, 3)])
        mic = echo + near + white(4, 1, 4)
        curve = metrics.erle_over_time(mic, mic * 0.1, echo, near, white(4, 1, 4), RATE)
        np.testing.assert_allclose(curve.erle[curve.times <= 2.0 + 1e-9], 20.0, atol=1e-9)
        starts = curve.times - metrics.WINDOW_S
        self.assertTrue(np.all(np.isnan(curve.erle[starts >= 2.0 - 1e-9])))
        # Steady state sums powers rather than decibels, over windows wholly inside the span.
        c = metrics.ErleCurve(np.array([0.5, 1.0, 1.5]), np.array([20.0, 0.0, np.nan]),
                              np.array([100.0, 1.0, 5.0]), np.ones(3))
        self.assertAlmostEqual(metrics.steady_state_erle(c, 0.0), 10 * np.log10(101 / 2))
        self.assertAlmostEqual(metrics.steady_state_erle(c, 0.5), 0.0)

    def test_double_talk_splits_near_loss_from_echo_left(self):
        near, echo, far, noise = (white(4, rms, seed) for rms, seed in
                                  ((1000, 1), (1000, 2), (2000, 3), (1, 4)))
        dt = metrics.double_talk(0.5 * near + white(4, 100, 5), far, echo, near, noise, RATE)
        self.assertAlmostEqual(dt["near_attenuation_db"], 6.02, delta=0.1)
        # The least-squares part takes about 1/16 of the residual along: +0.3 dB.
        self.assertAlmostEqual(dt["echo_loss_db"], 10 * np.log10(2000**2 / 100**2), delta=0.6)
        # A fixed low pass on the near end is attenuation (half its power), not echo.
        shaped = np.concatenate([signal.lfilter(signal.firwin(255, 0.5), 1, near)[127:],
                                 np.zeros(127)])
        dt = metrics.double_talk(shaped, far, echo, near, noise, RATE)
        self.assertAlmostEqual(dt["near_attenuation_db"], 3.0, delta=0.4)
        self.assertGreater(dt["echo_loss_db"], 25.0)
        self.assertIsNone(metrics.double_talk(near, far, np.zeros_like(near), near, noise, RATE))

    def test_near_single_talk_distortion_is_changing_gain_only(self):
        near, noise = white(4, 1000, 1), white(4, 1, 2)
        mic = near + noise
        ne = metrics.near_single_talk(mic, mic, near, noise, RATE)
        self.assertAlmostEqual(ne["attenuation_db"], 0.0, delta=0.05)
        self.assertGreater(ne["sdr_db"], 40.0)
        notch = signal.lfilter([1, -1], [1, -0.95], mic)
        self.assertGreater(metrics.near_single_talk(notch, mic, near, noise, RATE)["sdr_db"], 30)
        gains = np.repeat(np.random.default_rng(3).uniform(0, 1, len(mic) // 160), 160)
        ne = metrics.near_single_talk(mic * gains, mic, near, noise, RATE)
        self.assertLess(ne["sdr_db"], 10.0)
        self.assertGreater(ne["attenuation_db"], 3.0)


if __name__ == "__main__":
    unittest.main()
