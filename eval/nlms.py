"""The textbook reference: a time-domain NLMS echo canceller, sample by sample, in numpy.

    y(n) = w . x(n),  e(n) = d(n) - y(n),  w += mu e(n) x(n) / (x(n) . x(n) + delta)

with x(n) the last `taps` far-end samples. No double-talk detector, no residual
suppression: what a user would write first. Its output is the error e, with no delay.
"""
import numpy as np
from scipy.linalg import blas


def nlms(near, far, taps=1024, mu=0.5, delta=None):
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
