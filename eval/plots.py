"""PNG plots of one scenario at one rate: waveforms in and out, spectrograms in and out on
one colour scale, and ERLE over time for each canceller."""
import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt  # noqa: E402
import numpy as np  # noqa: E402
from scipy import signal  # noqa: E402

FULL_SCALE = 32768.0
SPECTRUM_RANGE_DB = (-120.0, -30.0)  # one scale for every spectrogram
COLOURS = {"full": "tab:blue", "linear": "tab:orange", "nlms": "tab:green"}
LABELS = {"full": "QenAec full", "linear": "QenAec linear", "nlms": "NLMS baseline"}
DPI = 80
ENVELOPE_POINTS = 3000


def _channel(x):
    """One channel to draw: the mean of two microphones is what the canceller filters, and
    its two output channels are one signal."""
    x = np.asarray(x, dtype=float)
    return x if x.ndim == 1 else x.mean(axis=1)


def _input_title(sc, rate, mic):
    both = " (mean of the two channels)" if np.ndim(mic) == 2 else ""
    return f"{sc.title}, {rate // 1000} kHz: microphone (input){both}"


def _marks(ax, sc):
    if sc.near_start is not None and sc.far_talk:
        ax.axvspan(sc.near_start, sc.seconds, color="0.9", zorder=0, label="near-end talker active")
    if sc.change_at is not None:
        ax.axvline(sc.change_at, color="k", ls=":", lw=1, label="echo path changes")


def waveforms(path, sc, rate, mic, outputs):
    rows = [(_input_title(sc, rate, mic), mic)] + [(LABELS[a] + " output", o) for a, o in outputs.items()]
    fig, axes = plt.subplots(len(rows), 1, figsize=(9, 1.6 * len(rows)), sharex=True, sharey=True)
    for ax, (title, x) in zip(axes, rows):
        # The envelope per bucket of samples draws the same picture as every sample.
        x = _channel(x) / FULL_SCALE
        bucket = max(1, len(x) // ENVELOPE_POINTS)
        x = np.reshape(x[:len(x) // bucket * bucket], (-1, bucket))
        t = np.arange(len(x)) * bucket / rate
        ax.fill_between(t, x.min(axis=1), x.max(axis=1), lw=0, color="0.2")
        _marks(ax, sc)
        ax.set_title(title, fontsize=9, loc="left")
        ax.set_ylabel("amplitude\n(full scale)", fontsize=8)
    peak = np.max(np.abs(_channel(mic))) / FULL_SCALE
    axes[0].set_ylim(-1.1 * peak, 1.1 * peak)
    axes[-1].set_xlabel("time (s)")
    fig.tight_layout()
    fig.savefig(path, dpi=DPI)
    plt.close(fig)


def spectrograms(path, sc, rate, mic, out):
    fig, axes = plt.subplots(2, 1, figsize=(9, 5.2), sharex=True)
    rows = ((_input_title(sc, rate, mic), mic),
            ("QenAec full output", out))
    for ax, (title, x) in zip(axes, rows):
        x = _channel(x) / FULL_SCALE
        _, _, power = signal.spectrogram(x, fs=rate, window="hann", nperseg=256,
                                                 noverlap=128, scaling="density")
        # Digital silence sits at the bottom of the scale rather than off it.
        level = 10 * np.log10(np.maximum(power, 10 ** (SPECTRUM_RANGE_DB[0] / 10)))
        image = ax.imshow(level, origin="lower", aspect="auto", cmap="magma",
                          extent=(0, len(x) / rate, 0, rate / 2000),
                          vmin=SPECTRUM_RANGE_DB[0], vmax=SPECTRUM_RANGE_DB[1])
        ax.set_title(title, fontsize=9, loc="left")
        ax.set_ylabel("frequency (kHz)")
        fig.colorbar(image, ax=ax, label="power density\n(dB re full scale / Hz)")
    axes[-1].set_xlabel("time (s)")
    fig.tight_layout()
    fig.savefig(path, dpi=DPI)
    plt.close(fig)


def erle(path, sc, rate, curves):
    fig, ax = plt.subplots(figsize=(9, 3.6))
    _marks(ax, sc)
    for algorithm, curve in curves.items():
        ax.plot(curve.times, curve.erle, ".-", ms=2, lw=0.8, color=COLOURS[algorithm],
                label=LABELS[algorithm])
    for level in (10, 20):
        ax.axhline(level, color="0.5", lw=0.6, ls="--")
    if all(np.all(np.isnan(c.erle)) for c in curves.values()):
        ax.text(0.5, 0.5, "no echo in this scenario: ERLE is not defined",
                transform=ax.transAxes, ha="center")
    ax.set_xlim(0, sc.seconds)
    finite = [np.nanmax(c.erle) for c in curves.values() if not np.all(np.isnan(c.erle))]
    ax.set_ylim(-10, min(120, max([60] + [v + 5 for v in finite])))
    ax.set_xlabel("time (s), at the end of each 0.5 s window")
    ax.set_ylabel("ERLE (dB)")
    ax.set_title(f"{sc.title}, {rate // 1000} kHz: ERLE over time (far-end single talk windows)",
                 fontsize=9, loc="left")
    ax.legend(fontsize=8, loc="upper center", bbox_to_anchor=(0.5, -0.2), ncol=5, frameon=False)
    ax.grid(alpha=0.3)
    fig.tight_layout()
    fig.savefig(path, dpi=DPI)
    plt.close(fig)


def pareto(path, title, candidates, front, result):
    """ERLE against talker loss for every candidate of a `qenaec tune` search (loss, ERLE
    pairs), the front of the most ERLE within each loss, and the library as initialised,
    the defaults and the tuned result marked."""
    fig, ax = plt.subplots(figsize=(9, 4.2))
    loss, erle = np.array(candidates).T
    ax.plot(loss, erle, ".", ms=3, color="0.7", label="candidates")
    ax.step([p[0] for p in front], [p[1] for p in front], where="post", color="tab:blue",
            lw=1.2, label="front: the most ERLE within each loss")
    limit = result["max_near_loss_db"]
    marks = (("initialised", "v", "tab:orange", "as initialised (no QenAec_Config)"),
             ("default", "s", "tab:red", "defaults (QenAec_Config with the default table)"),
             ("tuned", "*", "tab:green", f"tuned (talker loss at most {limit:g} dB)"))
    for key, marker, colour, label in marks:
        r = result[key]
        ax.plot(r["near_loss_db"], r["erle_db"], marker, ms=10, color=colour, label=label,
                markeredgecolor="k", zorder=3)
    ax.axvline(limit, color="tab:green", ls=":", lw=1)
    ax.set_xlim(0, max(12.0, result["default"]["near_loss_db"] + 2))
    ax.set_xlabel("talker loss in double talk (dB)")
    ax.set_ylabel("ERLE (dB)")
    ax.set_title(title, fontsize=9, loc="left")
    ax.grid(alpha=0.3)
    ax.legend(fontsize=8, loc="lower right")
    fig.tight_layout()
    fig.savefig(path, dpi=DPI)
    plt.close(fig)
