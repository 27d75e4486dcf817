"""The evaluation's tuning section: `qenaec tune` on two scenarios at 16 kHz.

For each scenario the two recordings the tool works from are made from the scenario itself
(tune_recordings.py: the echo recording without a talker, the talker recording without the
loudspeaker), the tool searches them (the band edges too), and the section shows every
candidate's ERLE against its talker loss, the front of the best ERLE for each loss, the
defaults and the tuned result.
The tool is found at QENAEC_TOOL or in this checkout's release build.
"""
import csv
import json
import os
import pathlib
import subprocess
import time

import plots
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
    """Makes the recordings of scenario `name`, runs the search, draws its candidates and
    returns its record: the tool's JSON result, the command and its time, the plot."""
    folder = pathlib.Path(out) / "tuning" / name
    mic, ref, talker = tune_recordings.write(scenarios.BY_NAME[name], RATE, folder, seed)
    result, table = folder / "tuned.json", folder / "candidates.csv"
    args = ["tune", "--near", mic.name, "--far", ref.name, "--talker", talker.name,
            "--search-edges", "--jobs", str(jobs), "--json", result.name, "--csv", table.name]
    start = time.perf_counter()
    done = subprocess.run([tool()] + args, cwd=folder, capture_output=True, text=True)
    if done.returncode != 0:
        raise RuntimeError(f"qenaec tune failed on {name}: {done.stderr.strip()}")
    taken = round(time.perf_counter() - start, 1)
    found = json.loads(result.read_text())
    sc = scenarios.BY_NAME[name]
    candidates = read_candidates(table)
    plots.pareto(folder / "pareto.png", f"{sc.title}, {RATE // 1000} kHz: ERLE against talker "
                 f"loss of every candidate of the search", candidates, front(candidates), found)
    rel = lambda f: str((folder / f).relative_to(out))
    return {
        "scenario": name,
        "title": sc.title,
        "rate": RATE,
        "command": "qenaec " + " ".join(args),
        "seconds_taken": taken,
        "result": found,
        "files": {"result": rel(result.name), "candidates": rel(table.name),
                  "echo_mic": rel(mic.name), "echo_ref": rel(ref.name),
                  "talker": rel(talker.name)},
        "plot": rel("pareto.png"),
    }


ROWS = (("as initialised (no QenAec_Config)", "initialised"), ("defaults", "default"),
        ("tuned", "tuned"), ("at the defaults' talker loss", "at_default_loss"))


def _settings(entry):
    if "intensity" not in entry:
        return ["—", "—", "—"]
    return [",".join(map(str, entry["intensity"])), ",".join(map(str, entry["edges"])),
            entry["ratio"]]


def _figures(entry):
    return [f"{entry[k]:.1f}" for k in ("erle_db", "near_loss_db", "near_sdr_db")]


def tables(record):
    """[(title, header, rows)]: the settings side by side, and the Pareto table."""
    r = record["result"]
    header = ["ERLE (dB)", "talker loss (dB)", "talker SDR (dB)", "intensity", "edges",
              "ratio"]
    side = [[label] + _figures(r[key]) + _settings(r[key]) for label, key in ROWS]
    pareto = []
    for p in r["pareto"]:
        if p.get("erle_db") is None:
            pareto.append([f"{p['max_near_loss_db']:g}"] + ["—"] * 6)
        else:
            pareto.append([f"{p['max_near_loss_db']:g}"] + _figures(p) + _settings(p))
    n = r["candidates"]
    return [
        (f"Tuning, {record['title']} ({record['rate']} Hz): {n} candidates in "
         f"{r['seconds']:g} s ({n / r['seconds']:.1f} per second); the tuned result keeps the "
         f"talker loss within {r['max_near_loss_db']:g} dB", [""] + header, side),
        (f"Tuning, {record['title']}: the most ERLE reached within each talker-loss limit",
         ["loss limit (dB)"] + header, pareto),
    ]
