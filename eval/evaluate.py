"""One scenario at one rate through each canceller, and its figures.

The cancellers: "full" (both stages), "linear" (the adaptive filter alone) and "nlms" (the
numpy baseline). With two microphones the library filters their average and writes one
result to both channels, so the input the figures compare with is that average, and the
baseline gets the same average and the first far-end channel, as the library's filter does.
"""
import time

import numpy as np

import metrics
import nlms
import qenaec
import scenarios
import speech

ALGORITHMS = ("full", "linear", "nlms")


def _mono(x):
    x = np.asarray(x, dtype=float)
    return x if x.ndim == 1 else x.mean(axis=1)


def run_canceller(algorithm, sig):
    """(output as int16 in the input's layout, output aligned with the input as mono float,
    seconds taken)."""
    mic, far = sig["mic"], sig["far"]
    start = time.perf_counter()
    if algorithm == "nlms":
        ref = far if far.ndim == 1 else far[:, 0]
        error = nlms.nlms(_mono(mic), ref)
        taken = time.perf_counter() - start
        out = speech.to_pcm(error)
        return out, error, taken
    channels = lambda x: 1 if x.ndim == 1 else x.shape[1]
    with qenaec.Canceller(sig["rate"], channels(mic), channels(far)) as aec:
        out = aec.process(mic, far, mode=algorithm)
    taken = time.perf_counter() - start
    first = (out if out.ndim == 1 else out[:, 0]).astype(float)
    lag = qenaec.OUTPUT_DELAY[algorithm]
    aligned = np.concatenate([first[lag:], np.zeros(lag)])
    return out, aligned, taken


def figures(sc, sig, aligned, taken):
    """The figures of one canceller's aligned output, and its ERLE curve."""
    rate = sig["rate"]
    mic, far = _mono(sig["mic"]), _mono(sig["far"])
    echo, near, noise = _mono(sig["echo"]), _mono(sig["near"]), _mono(sig["noise"])
    curve = metrics.erle_over_time(mic, aligned, echo, near, noise, rate)
    single_talk_end = min(t for t in (sc.near_start, sc.change_at, sc.seconds) if t is not None)
    result = {"realtime_x": metrics.realtime_factor(len(mic), rate, taken)}
    if sc.far_talk:
        result.update({
            "steady_erle_db": metrics.steady_state_erle(curve, sc.steady_from, single_talk_end),
            "conv10_s": metrics.convergence_time(curve, 0.0, 10.0, single_talk_end),
            "conv20_s": metrics.convergence_time(curve, 0.0, 20.0, single_talk_end),
        })
    if sc.change_at is not None:
        result.update({
            "conv10_after_change_s": metrics.convergence_time(curve, sc.change_at, 10.0),
            "conv20_after_change_s": metrics.convergence_time(curve, sc.change_at, 20.0),
            "steady_erle_after_change_db": metrics.steady_state_erle(
                curve, sc.change_at + (sc.seconds - sc.change_at) / 2),
        })
    if sc.far_talk and sc.near_start is not None:
        result["double_talk"] = metrics.double_talk(aligned, far, echo, near, noise, rate)
    if not sc.far_talk:
        result["near_single"] = metrics.near_single_talk(aligned, mic, near, noise, rate)
    return result, curve


def evaluate(sc, rate, seed=1, algorithms=ALGORITHMS):
    """(figures per algorithm, the scenario's signals, outputs and ERLE curves)."""
    sig = scenarios.build(sc, rate, seed)
    results, outputs, curves = {}, {}, {}
    for algorithm in algorithms:
        out, aligned, taken = run_canceller(algorithm, sig)
        results[algorithm], curves[algorithm] = figures(sc, sig, aligned, taken)
        outputs[algorithm] = out
    return results, {"signals": sig, "outputs": outputs, "curves": curves}
