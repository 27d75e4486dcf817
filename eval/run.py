"""`make eval`: every scenario at every rate through full, linear and the NLMS baseline,
and `qenaec tune` on two scenarios at 16 kHz; writes WAVs and PNGs per scenario and rate,
results.json and report.html under eval/out.

Usage: python3 eval/run.py [--out DIR] [--rates 16000,...] [--scenarios a,b] [--seed N]
                           [--jobs N] [--tune a,b]
"""
import argparse
import json
import multiprocessing
import os
import pathlib
import sys
import time

HERE = pathlib.Path(__file__).resolve().parent
sys.path[:0] = [str(HERE), str(HERE.parent / "python")]

import numpy as np  # noqa: E402
import soundfile  # noqa: E402

import evaluate  # noqa: E402
import plots  # noqa: E402
import report  # noqa: E402
import scenarios  # noqa: E402
import speech  # noqa: E402
import tuning  # noqa: E402

RATES = (8000, 16000, 32000, 48000)


def _wav(path, x, rate):
    soundfile.write(str(path), np.asarray(x), rate, subtype="PCM_16")


def one(job):
    """Evaluates one scenario at one rate and writes its files; returns its record."""
    name, rate, seed, out = job
    sc = scenarios.BY_NAME[name]
    results, data = evaluate.evaluate(sc, rate, seed)
    folder = pathlib.Path(out) / name / str(rate)
    folder.mkdir(parents=True, exist_ok=True)
    sig = data["signals"]
    files = {"far": sig["far"], "mic": sig["mic"], "near_clean": speech.to_pcm(sig["near"])}
    files.update({f"out_{a}": o for a, o in data["outputs"].items()})
    for label, x in files.items():
        _wav(folder / f"{label}.wav", x, rate)
    plots.waveforms(folder / "waveforms.png", sc, rate, sig["mic"], data["outputs"])
    plots.spectrograms(folder / "spectrograms.png", sc, rate, sig["mic"], data["outputs"]["full"])
    plots.erle(folder / "erle.png", sc, rate, data["curves"])
    rel = lambda f: str((folder / f).relative_to(out))
    return {
        "scenario": name,
        "rate": rate,
        "results": results,
        "wavs": {label: rel(f"{label}.wav") for label in files},
        "plots": {p: rel(f"{p}.png") for p in ("waveforms", "spectrograms", "erle")},
    }


def _quiet_library(out):
    """The library prints on standard output (a banner per instance by default): keep it
    to errors, and send the workers' standard output to a log beside the report."""
    if "DML_PATH" not in os.environ:
        path = pathlib.Path(out) / "dml.json"
        path.write_text('{"debug_level": 1}\n')
        os.environ["DML_PATH"] = str(path)
    log = pathlib.Path(out) / "library.log"
    log.write_text("")
    return str(log)


def _worker_start(log):
    sys.stdout.flush()
    os.dup2(os.open(log, os.O_WRONLY | os.O_APPEND), 1)


def main(argv=None):
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--out", default=str(HERE / "out"))
    parser.add_argument("--rates", default=",".join(map(str, RATES)))
    parser.add_argument("--scenarios", default=",".join(s.name for s in scenarios.SCENARIOS))
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--jobs", type=int, default=min(2, os.cpu_count() or 1))
    parser.add_argument("--tune", default=",".join(tuning.SCENARIOS),
                        help="scenarios for the tuning section (empty: none)")
    args = parser.parse_args(argv)
    out = pathlib.Path(args.out)
    out.mkdir(parents=True, exist_ok=True)
    log = _quiet_library(out)
    jobs = [(name, int(rate), args.seed, str(out)) for name in args.scenarios.split(",")
            for rate in args.rates.split(",")]
    start = time.perf_counter()
    # Longest first, so that the two workers finish together.
    jobs.sort(key=lambda j: -scenarios.BY_NAME[j[0]].seconds * j[1])
    with multiprocessing.Pool(args.jobs, _worker_start, (log,)) as pool:
        records = []
        for record in pool.imap_unordered(one, jobs):
            records.append(record)
            print(f"  {record['scenario']:>14} {record['rate']:>5} Hz  done", flush=True)
    order = {s.name: i for i, s in enumerate(scenarios.SCENARIOS)}
    records.sort(key=lambda r: (order[r["scenario"]], r["rate"]))
    tuned = []
    for name in filter(None, args.tune.split(",")):
        tuned.append(tuning.tune(name, out, args.jobs, args.seed))
        print(f"  {name:>14} tuned in {tuned[-1]['seconds_taken']} s", flush=True)
    meta = {"seed": args.seed, "seconds_taken": round(time.perf_counter() - start, 1),
            "scenarios": report.scenario_table(records)}
    records = report.finite(records)
    (out / "results.json").write_text(json.dumps({"meta": meta, "records": records,
                                                  "tuning": tuned},
                                                 indent=1, default=report.json_value))
    (out / "report.html").write_text(report.html(records, meta, tuned))
    (out / "summary.md").write_text(report.markdown(records, tuned))
    print(f"eval: {len(records)} runs in {meta['seconds_taken']} s; "
          f"{out / 'report.html'}, {out / 'results.json'}")


if __name__ == "__main__":
    main()
