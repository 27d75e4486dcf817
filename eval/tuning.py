"""The evaluation's tuning section: `qenaec tune` on two scenarios at 16 kHz.

For each scenario the two recordings the tool works from are made from the scenario itself
(tune_recordings.py: the echo recording without a talker, the talker recording without the
loudspeaker), the tool searches them, and the section shows every candidate's ERLE against
its talker loss, the front of the best ERLE for each loss, the defaults and the tuned result.
The tool is found at QENAEC_TOOL or in this checkout's release build.
"""
import csv
import json
import os
import pathlib
import subprocess
import time

import scenarios
import tune_recordings

SCENARIOS = ("fe_single", "hall_noisy")
RATE = 16000
ROOT = pathlib.Path(__file__).resolve().parents[1]


def tool():
    return os.environ.get("QENAEC_TOOL",
                          str(ROOT / "build" / "release" / "tools" / "qenaec" / "qenaec"))


def front(points):
    """The points no other point beats: the most ERLE for at most each loss, in rising loss."""
    best, out = float("-inf"), []
    for loss, erle in sorted(points, key=lambda p: (p[0], -p[1])):
        if erle > best:
            out.append((loss, erle))
            best = erle
    return out


def read_candidates(path):
    with open(path, newline="") as f:
        return [(float(r["near_loss_db"]), float(r["erle_db"])) for r in csv.DictReader(f)]


def tune(name, out, jobs, seed=1):
    """Makes the recordings of scenario `name`, runs the search and returns its record:
    the tool's JSON result, every candidate as (loss, ERLE), the command and its time."""
    folder = pathlib.Path(out) / "tuning" / name
    mic, ref, talker = tune_recordings.write(scenarios.BY_NAME[name], RATE, folder, seed)
    result, table = folder / "tuned.json", folder / "candidates.csv"
    args = ["tune", "--near", mic.name, "--far", ref.name, "--talker", talker.name,
            "--jobs", str(jobs), "--json", result.name, "--csv", table.name]
    start = time.perf_counter()
    done = subprocess.run([tool()] + args, cwd=folder, capture_output=True, text=True)
    if done.returncode != 0:
        raise RuntimeError(f"qenaec tune failed on {name}: {done.stderr.strip()}")
    return {
        "scenario": name,
        "rate": RATE,
        "command": "qenaec " + " ".join(args),
        "seconds_taken": round(time.perf_counter() - start, 1),
        "result": json.loads(result.read_text()),
        "candidates": read_candidates(table),
        "summary": done.stdout,
        "folder": str(folder.relative_to(out)),
    }
