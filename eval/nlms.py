"""The textbook reference: a time-domain NLMS echo canceller, sample by sample, in numpy.

    y(n) = w . x(n),  e(n) = d(n) - y(n),  w += mu e(n) x(n) / (x(n) . x(n) + delta)

with x(n) the last `taps` far-end samples. No double-talk detector, no residual
suppression: what a user would write first. Its output is the error e, with no delay.

The step size and length are the benchmarks' too (bench/nlms.h). Of the steps tried on the
evaluation (0.2, 0.3, 0.5, 1.0), 0.3 gives this baseline its best all-round showing: the
steady-state ERLE of 0.2 (17.7 dB on average over the far-end scenarios; 0.5 gives 17.1),
20 dB reached in the most cases, and re-convergence after an echo-path change as fast as 0.5.
"""
import numpy as np
from scipy.linalg import blas

TAPS = 1024  # the library's filter reach
MU = 0.3


def nlms(near, far, taps=TAPS, mu=MU, delta=None):
    """Cancels far's echo from near (1-D float or int arrays); returns the error as float."""
    d = np.asarray(near, dtype=float)
    x = np.concatenate([np.zeros(taps - 1), np.asarray(far, dtype=float)])
    if delta is None:
        # Regularisation of a far end at -60 dBov over the whole window.
        delta = taps * (32768.0 * 10 ** (-60 / 20)) ** 2
    w = np.zeros(taps)  # w[k] weighs x(n - taps + 1 + k): the window in time order
    e = np.empty(len(d))
    power = 0.0
    # BLAS dot and in-place axpy: the same arithmetic as numpy's, without a temporary.
    dot, axpy = blas.ddot, blas.daxpy
    for n in range(len(d)):
        window = x[n:n + taps]
        power = max(0.0, power + x[n + taps - 1] ** 2 - (x[n - 1] ** 2 if n > 0 else 0.0))
        err = d[n] - dot(w, window)
        e[n] = err
        w = axpy(window, w, a=mu * err / (power + delta))
    return e
