"""The evaluation's tables as HTML (report.html) and Markdown, from the per-run records."""
import html as html_text
import math

import numpy as np

import nlms
import scenarios
import tuning

ALGOS = ("full", "linear", "nlms")
NAMES = {"full": "full", "linear": "linear", "nlms": "NLMS"}


def json_value(o):
    """json.dumps default: numpy scalars as Python numbers."""
    if isinstance(o, np.generic):
        return o.item()
    raise TypeError(type(o).__name__)


def finite(o):
    """o with every NaN or infinity replaced by None (JSON has neither)."""
    if isinstance(o, dict):
        return {k: finite(v) for k, v in o.items()}
    if isinstance(o, (list, tuple)):
        return [finite(v) for v in o]
    if isinstance(o, (float, np.floating)) and not math.isfinite(o):
        return None
    return o


def scenario_table(records):
    seen = dict.fromkeys(r["scenario"] for r in records)
    out = {}
    for name in seen:
        sc = scenarios.BY_NAME[name]
        out[name] = {"title": sc.title, "condition": sc.condition, "seconds": sc.seconds,
                     "room": {"size_m": sc.room.size, "rt60_s": sc.room.rt60},
                     "distance_m": None if sc.stereo else sc.distance, "snr_db": sc.snr_db, "notes": sc.notes}
    return out


def _num(v, digits=1):
    if v is None or (isinstance(v, float) and not math.isfinite(v)):
        return "—"
    text = f"{v:.{digits}f}"
    return text[1:] if text.startswith("-") and float(text) == 0 else text


def _get(record, algo, *keys):
    v = record["results"].get(algo, {})
    for k in keys:
        v = v.get(k) if isinstance(v, dict) else None
    return v


def tables(records):
    """[(title, header, rows)] for the summary."""
    fe = [r for r in records if scenarios.BY_NAME[r["scenario"]].far_talk]
    out = []
    header = (["scenario", "rate"] + [f"ERLE {NAMES[a]} (dB)" for a in ALGOS]
              + ["full/linear (dB)", "full/NLMS (dB)"]
              + [f"to {t} dB {NAMES[a]} (s)" for t in (10, 20) for a in ALGOS])
    rows = []
    for r in fe:
        erle = [_get(r, a, "steady_erle_db") for a in ALGOS]
        ratio = lambda x, y: None if x is None or y is None else x - y
        rows.append([r["scenario"], r["rate"]] + [_num(e) for e in erle]
                    + [_num(ratio(erle[0], erle[1])), _num(ratio(erle[0], erle[2]))]
                    + [_num(_get(r, a, f"conv{t}_s")) for t in (10, 20) for a in ALGOS])
    out.append(("Echo removal: steady-state ERLE in far-end single talk and convergence "
                "time from the start", header, rows))

    change = [r for r in records if scenarios.BY_NAME[r["scenario"]].change_at is not None]
    header = (["scenario", "rate"] + [f"to {t} dB {NAMES[a]} (s)" for t in (10, 20) for a in ALGOS]
              + [f"ERLE after {NAMES[a]} (dB)" for a in ALGOS])
    rows = [[r["scenario"], r["rate"]]
            + [_num(_get(r, a, f"conv{t}_after_change_s")) for t in (10, 20) for a in ALGOS]
            + [_num(_get(r, a, "steady_erle_after_change_db")) for a in ALGOS] for r in change]
    out.append(("Echo-path change: convergence time after the change", header, rows))

    dt = [r for r in records if _get(r, "full", "double_talk")]
    header = (["scenario", "rate"] + [f"near-end attenuation {NAMES[a]} (dB)" for a in ALGOS]
              + [f"echo loss {NAMES[a]} (dB)" for a in ALGOS]
              + [f"class {NAMES[a]}" for a in ALGOS])
    rows = [[r["scenario"], r["rate"]]
            + [_num(_get(r, a, "double_talk", "near_attenuation_db")) for a in ALGOS]
            + [_num(_get(r, a, "double_talk", "echo_loss_db")) for a in ALGOS]
            + [_get(r, a, "double_talk", "class") or "—" for a in ALGOS] for r in dt]
    out.append(("Double talk: attenuation of the near-end talker, echo loss, and the "
                "double-talk class (Type 1 best, 3 worst)", header, rows))

    ne = [r for r in records if _get(r, "full", "near_single")]
    header = (["scenario", "rate"] + [f"attenuation {NAMES[a]} (dB)" for a in ALGOS]
              + [f"SDR {NAMES[a]} (dB)" for a in ALGOS])
    rows = [[r["scenario"], r["rate"]]
            + [_num(_get(r, a, "near_single", "attenuation_db")) for a in ALGOS]
            + [_num(_get(r, a, "near_single", "sdr_db")) for a in ALGOS] for r in ne]
    out.append(("Near-end single talk: attenuation and distortion of the talker",
                header, rows))

    rates = sorted({r["rate"] for r in records})
    header = ["rate"] + [f"× real time {NAMES[a]}" for a in ALGOS] + ["full/NLMS"]
    rows = []
    for rate in rates:
        speed = [float(np.median([_get(r, a, "realtime_x") for r in records
                                  if r["rate"] == rate])) for a in ALGOS]
        rows.append([rate] + [_num(s, 0) for s in speed] + [_num(speed[0] / speed[2], 0)])
    out.append(("Processing speed on this machine, median over the scenarios (x86-64 "
                "host, NEON emulated; the NLMS baseline is numpy)", header, rows))
    return out


def markdown(records, tuned=()):
    lines = []
    for title, header, rows in tables(records) + [t for r in tuned for t in tuning.tables(r)]:
        lines += [f"**{title}**", "", "| " + " | ".join(header) + " |",
                  "|" + "---|" * len(header)]
        lines += ["| " + " | ".join(str(c) for c in row) + " |" for row in rows]
        lines.append("")
    return "\n".join(lines)


def _table_html(title, header, rows):
    esc = html_text.escape
    head = "".join(f"<th>{esc(str(h))}</th>" for h in header)
    body = "".join("<tr>" + "".join(f"<td>{esc(str(c))}</td>" for c in row) + "</tr>"
                   for row in rows)
    return f"<h3>{esc(title)}</h3><table><tr>{head}</tr>{body}</table>"


STYLE = """body{font-family:sans-serif;max-width:1200px;margin:auto;padding:1em;color:#222}
table{border-collapse:collapse;font-size:13px;margin-bottom:1em}
td,th{border:1px solid #ccc;padding:3px 6px;text-align:right}
th{background:#eee}td:first-child{text-align:left}img{max-width:100%}
details{margin:0.5em 0}.files a{margin-right:0.8em}"""

ABOUT = """<p>Each scenario is a small device on a table: its loudspeaker plays the far-end
talker, its microphone 5&ndash;15 cm away picks up the echo through an image-source model
of the room, the near-end talker about 1 m away and microphone noise. Speech is espeak-ng,
levelled to &minus;26 dBov. Three cancellers see the same signals: <b>full</b> (QenAec_Run),
<b>linear</b> (QenAec_ADF_Run alone) and <b>NLMS</b> (a {taps}-tap time-domain NLMS in numpy,
&mu; = {mu}, no double-talk detector). Default settings: comfort noise off.</p>
<ul><li>ERLE: microphone power over output power in 0.5 s windows where the echo stands
10 dB over the noise and the near-end talker is silent; the steady state sums the windows
of the scenario's later far-end single talk. The NLP also removes microphone noise, so
full ERLE can exceed the SNR.</li>
<li>Convergence: time to the end of the first window at the target from which the next
0.5 s holds it; 0.5 s is the shortest measurable.</li>
<li>Double talk: the output split per 256-sample frame and 8-bin band into the part along
the clean near-end speech and the rest. Attenuation = clean speech over its part; echo
loss = far-end signal over the rest. Classes: Type 1 &le; 3 dB and &ge; 27 dB, 2a &le; 5 /
&ge; 23, 2b &le; 8 / &ge; 17, 2c &le; 10 / &ge; 11, else Type 3.</li>
<li>Near-end single talk: the same attenuation; SDR = output power coherent with the
microphone over the incoherent rest.</li>
<li>Far-end signals carry a &minus;70 dBov line floor: with a digitally silent far end the
linear stage alone skips the frame and repeats its previous output block.</li></ul>""".format(
    taps=nlms.TAPS, mu=nlms.MU)


def _scenario_html(name, info, recs):
    esc = html_text.escape
    room = info["room"]
    facts = [info["condition"], f"{info['seconds']:g} s",
             f"room {' × '.join(f'{v:g}' for v in room['size_m'])} m, RT60 {room['rt60_s']:g} s",
             f"{info['snr_db']:g} dB SNR"] + ([info["notes"]] if info["notes"] else [])
    if info["distance_m"] is not None:
        facts.insert(3, f"loudspeaker {info['distance_m'] * 100:g} cm from the microphone")
    parts = [f"<h2 id='{name}'>{esc(info['title'])}</h2>", f"<p>{esc('; '.join(facts))}.</p>"]
    for r in recs:
        files = " ".join(f"<a href='{esc(p)}'>{esc(k)}.wav</a>" for k, p in r["wavs"].items())
        audio = "".join(f"<div>{esc(k)}: <audio controls preload='none' src='{esc(p)}'></audio>"
                        f"</div>" for k, p in r["wavs"].items() if k in ("mic", "out_full"))
        images = "".join(f"<img src='{esc(p)}' alt='{esc(k)}'>" for k, p in r["plots"].items())
        opened = " open" if r["rate"] == 16000 else ""
        parts.append(f"<details{opened}><summary>{r['rate']} Hz</summary>"
                     f"<p class='files'>{files}</p>{audio}{images}</details>")
    return "".join(parts)


TUNING_ABOUT = """<p><code>qenaec tune</code> fits the suppressor to a device from two
recordings, made here from the scenario itself: the echo recording (the far-end talker on the
loudspeaker, nobody in the room) and the talker recording (the near-end talker, the
loudspeaker silent). The tool mixes the talker into the echo recording, so that it knows the
talker in double talk exactly, and searches the band intensities, the smoothing ratio and
the band edges from the default table for the most ERLE (measured as <code>qenaec
process</code> measures it, on the echo recording) whose talker loss in double talk stays
within the limit. Each
dot below is one candidate setting; the line is the front of the most ERLE within each
loss. Where the defaults lie on that front, more ERLE costs the talker more loss.</p>"""


def _tuning_html(tuned):
    esc = html_text.escape
    parts = [f"<h2 id='tuning'>Tuning the suppressor (qenaec tune)</h2>{TUNING_ABOUT}"]
    for r in tuned:
        files = " ".join(f"<a href='{esc(p)}'>{esc(p.rsplit('/', 1)[-1])}</a>"
                         for p in r["files"].values())
        parts.append(f"<h3>{esc(r['title'])}</h3><p><code>{esc(r['command'])}</code></p>"
                     f"<p class='files'>{files}</p>"
                     + "".join(_table_html(*t) for t in tuning.tables(r))
                     + f"<img src='{esc(r['plot'])}' alt='ERLE against talker loss'>")
    return "".join(parts)


def html(records, meta, tuned=()):
    tabs = "".join(_table_html(*t) for t in tables(records))
    sections = "".join(
        _scenario_html(name, info, [r for r in records if r["scenario"] == name])
        for name, info in meta["scenarios"].items())
    index = " · ".join([f"<a href='#{n}'>{html_text.escape(i['title'])}</a>"
                        for n, i in meta["scenarios"].items()]
                       + (["<a href='#tuning'>Tuning</a>"] if tuned else []))
    return (f"<!doctype html><html><head><meta charset='utf-8'><title>QenAec quality"
            f"</title><style>{STYLE}</style></head><body><h1>QenAec quality evaluation</h1>"
            f"{ABOUT}<p>Seed {meta['seed']}; evaluated in {meta['seconds_taken']} s.</p>"
            f"<p>{index}</p>{tabs}{sections}{_tuning_html(tuned) if tuned else ''}"
            f"</body></html>")
