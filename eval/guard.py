"""Quality guard for ctest: two short 16 kHz scenarios (about 11 s of audio) through the
full pipeline and the linear stage; fails when a figure falls past its floor.

The floors sit a few dB behind the figures measured when they were set (seed 1; the
spread over seeds 1-5 is in the comments), so that only a real loss of quality trips them.
"""
import os
import pathlib
import sys

HERE = pathlib.Path(__file__).resolve().parent
sys.path[:0] = [str(HERE), str(HERE.parent / "python")]

import evaluate  # noqa: E402
import scenarios  # noqa: E402

RATE = 16000
SEED = int(os.environ.get("QENAEC_GUARD_SEED", "1"))
CASES = (
    scenarios.scenario("fe_single", seconds=5.0, steady_from=2.5),
    scenarios.scenario("double_talk", seconds=6.0, near_start=3.0, steady_from=1.5),
)

# (scenario, algorithm, figure path, bound, "min" or "max"); after each, what seed 1 gave
# and the range over seeds 1-5.
LIMITS = (
    ("fe_single", "full", ("steady_erle_db",), 36.0, "min"),  # 41.5; 38.1-41.5
    ("fe_single", "linear", ("steady_erle_db",), 19.0, "min"),  # 22.1; 20.5-22.1
    ("double_talk", "full", ("steady_erle_db",), 40.0, "min"),  # 44.3; 44.3-52.4
    ("double_talk", "full", ("double_talk", "near_attenuation_db"), 7.5, "max"),  # 4.9; 3.5-5.2
    ("double_talk", "full", ("double_talk", "echo_loss_db"), 10.0, "min"),  # 13.0; 13.0-15.7
    ("double_talk", "linear", ("double_talk", "near_attenuation_db"), 2.0, "max"),  # 0.4; 0.2-0.5
)


def measure():
    return {sc.name: evaluate.evaluate(sc, RATE, SEED, ("full", "linear"))[0] for sc in CASES}


def check(measured):
    failures = []
    for name, algorithm, path, bound, kind in LIMITS:
        value = measured[name][algorithm]
        for key in path:
            value = value.get(key) if isinstance(value, dict) else None
        ok = value is not None and (value >= bound if kind == "min" else value <= bound)
        label = f"{name} {algorithm} {'.'.join(path)}"
        print(f"{'ok  ' if ok else 'FAIL'} {label:55} {value if value is None else round(value, 2)}"
              f" ({'floor' if kind == 'min' else 'ceiling'} {bound})")
        if not ok:
            failures.append(label)
    return failures


def main():
    failures = check(measure())
    print(f"{len(LIMITS) - len(failures)} passed, {len(failures)} failed")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
