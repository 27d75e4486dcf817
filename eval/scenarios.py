"""Echo scenarios for a small device: speech, room, loudspeaker and microphone, at 8, 16,
32 and 48 kHz, all drawn from one seed.

A device stands on a table. Its loudspeaker plays the far-end talker (with the faint noise
floor a decoded line carries) through a small driver (high-pass at 200 Hz, optionally soft
clipping); the microphone 5-15 cm away picks up that sound through the room (image-source
response) after the device's bulk playout-to-capture delay, the near-end talker about a
metre away through the same room, and microphone noise. Talkers are levelled to -26 dBov;
the near-end talker arrives at the microphone at that level too.

`build` returns the int16 signals the canceller gets and the clean components the metrics
need: the echo and the near-end speech as the microphone receives them, and the noise.
"""
from dataclasses import dataclass, replace

import numpy as np
from scipy import signal

import room as rooms
import speech

TALKER_DBOV = -26.0
LINE_FLOOR_DBOV = -70.0
FILTER_TAPS = 1024  # the canceller's reach, in samples at every rate
DEVICE_DELAY_S = 0.006

OFFICE = rooms.Room((4.0, 3.5, 2.7), 0.3)
BOOTH = rooms.Room((3.0, 2.5, 2.4), 0.15)
LIVING = rooms.Room((5.0, 4.0, 2.6), 0.45)
HALL = rooms.Room((7.0, 5.5, 3.0), 0.6)


@dataclass(frozen=True)
class Scenario:
    name: str
    title: str
    condition: str  # "far-end single talk", "near-end single talk" or "double talk"
    seconds: float
    room: rooms.Room = OFFICE
    distance: float = 0.10  # loudspeaker to microphone, metres
    snr_db: float = 30.0  # talker level over microphone noise
    far_talk: bool = True
    near_start: float = None  # seconds; None: no near-end talker
    change_at: float = None  # seconds; the device is moved to a second position
    clip: bool = False
    delay_samples: int = None  # bulk delay; None: DEVICE_DELAY_S
    stereo: bool = False
    steady_from: float = 8.0  # start of the steady-state span, seconds
    notes: str = ""


SCENARIOS = (
    Scenario("fe_single", "Far-end single talk, office", "far-end single talk", 16.0),
    Scenario("ne_single", "Near-end single talk, office", "near-end single talk", 10.0,
             far_talk=False, near_start=0.5, notes="the far end carries only its line floor"),
    Scenario("double_talk", "Double talk, living room", "double talk", 18.0, room=LIVING,
             distance=0.08, near_start=8.0, steady_from=4.0,
             notes="the near-end talker joins at 8 s"),
    Scenario("path_change", "Echo-path change, office", "far-end single talk", 20.0,
             distance=0.06, snr_db=35.0, change_at=10.0, steady_from=5.0,
             notes="at 10 s the device is moved across the room, its microphone now 14 cm "
                   "from the loudspeaker"),
    Scenario("soft_clip", "Loudspeaker soft clipping, booth", "far-end single talk", 14.0,
             room=BOOTH, distance=0.05, snr_db=25.0, clip=True, steady_from=7.0,
             notes="the loudspeaker's driver clips softly"),
    Scenario("hall_noisy", "Reverberant hall, noisy microphone", "far-end single talk", 14.0,
             room=HALL, distance=0.15, snr_db=20.0, steady_from=7.0),
    Scenario("quiet_40db", "Quiet office, 40 dB SNR", "far-end single talk", 12.0,
             snr_db=40.0, steady_from=6.0),
    Scenario("delay_beyond", "Bulk delay beyond the filter", "far-end single talk", 12.0,
             delay_samples=FILTER_TAPS + FILTER_TAPS // 2, steady_from=6.0,
             notes="a bulk delay of 1536 samples puts the direct path past the 1024-tap filter"),
    Scenario("stereo", "Stereo far end, stereo microphone", "far-end single talk", 14.0,
             room=LIVING, stereo=True, steady_from=7.0,
             notes="two far-end talkers panned over two loudspeakers 20 cm apart; two "
                   "microphones between them, 7 and 13 cm from each loudspeaker"),
)
BY_NAME = {s.name: s for s in SCENARIOS}

# Device geometry: on a table in the room, the near-end talker seated about 1 m away.
DEVICE_AT = (0.35, 0.45, 0.8)  # fractions of the room's length and width; height, metres
MOVED_TO = (0.7, 0.3, 0.75)
TALKER_OFFSET = (0.8, 0.6, 0.45)


def _device_points(room, distance, stereo, at):
    x, y = at[0] * room.size[0], at[1] * room.size[1]
    z = at[2]
    if not stereo:
        return [(x, y, z)], [(x + distance, y, z)]
    # Loudspeakers 20 cm apart, microphones 6 cm apart between them, 2 cm forward.
    speakers = [(x - 0.10, y, z), (x + 0.10, y, z)]
    mics = [(x - 0.03, y + 0.02, z), (x + 0.03, y + 0.02, z)]
    return speakers, mics


def _loudspeaker(x, rate, clip):
    """A small driver: no output below about 200 Hz; soft clipping when asked."""
    sos = signal.butter(2, 200.0, "highpass", fs=rate, output="sos")
    y = signal.sosfilt(sos, x)
    if clip:
        knee = 2.0 * speech.FULL_SCALE * 10 ** (TALKER_DBOV / 20)
        y = knee * np.tanh(y / knee)
    return y


def _echo(sc, rate, played, at, distance, n, delay):
    """Echo at each microphone: (n, mics) float."""
    speakers, mics = _device_points(sc.room, distance, sc.stereo, at)
    echo = np.zeros((n, len(mics)))
    for s, src in enumerate(speakers):
        for m, mic in enumerate(mics):
            h = rooms.impulse_response(sc.room, src, mic, rate)
            h = np.concatenate([np.zeros(delay), h])
            echo[:, m] += signal.fftconvolve(played[:, s], h)[:n]
    return echo


def _switch(first, second, at, rate):
    """first until `at`, then second, with a 10 ms crossfade."""
    ramp = np.clip((np.arange(len(first)) - at * rate) / (0.01 * rate), 0.0, 1.0)[:, None]
    return first * (1 - ramp) + second * ramp


def far_end(sc, rate, seed):
    """The far-end signal as sent to the device: (n, 1 or 2) float in sample units."""
    rng = np.random.default_rng([seed, 1])
    n = int(round(sc.seconds * rate))
    channels = 2 if sc.stereo else 1
    talk = np.zeros((n, channels))
    if sc.far_talk:
        a = speech.talker("far", rate, sc.seconds, seed=seed, dbov=TALKER_DBOV)
        if sc.stereo:
            b = speech.talker("far2", rate, sc.seconds, start=1.0, seed=seed + 7,
                              dbov=TALKER_DBOV)
            talk = np.stack([0.9 * a + 0.3 * b, 0.3 * a + 0.9 * b], 1)
        else:
            talk[:, 0] = a
    floor = speech.FULL_SCALE * 10 ** (LINE_FLOOR_DBOV / 20)
    return talk + rng.standard_normal((n, channels)) * floor


def build(sc, rate, seed=1):
    """The scenario's signals at `rate` (see the module text); deterministic in seed."""
    n = int(round(sc.seconds * rate))
    far = speech.to_pcm(far_end(sc, rate, seed))
    played = np.stack([_loudspeaker(far[:, c].astype(float), rate, sc.clip)
                       for c in range(far.shape[1])], 1)
    delay = sc.delay_samples if sc.delay_samples is not None else int(DEVICE_DELAY_S * rate)
    echo = _echo(sc, rate, played, DEVICE_AT, sc.distance, n, delay)
    if sc.change_at is not None:
        moved = _echo(sc, rate, played, MOVED_TO, 0.14, n, delay)
        echo = _switch(echo, moved, sc.change_at, rate)

    mics = echo.shape[1]
    near = np.zeros((n, mics))
    if sc.near_start is not None:
        voice = speech.talker("near", rate, sc.seconds, start=sc.near_start, seed=seed + 3)
        _, mic_points = _device_points(sc.room, sc.distance, sc.stereo, DEVICE_AT)
        for m, mic in enumerate(mic_points):
            mouth = tuple(p + o for p, o in zip(mic, TALKER_OFFSET))
            h = rooms.impulse_response(sc.room, mouth, mic, rate)
            near[:, m] = signal.fftconvolve(voice, h)[:n]
        near *= 10 ** ((TALKER_DBOV - speech.level_dbov(near[:, 0], rate)) / 20)

    rng = np.random.default_rng([seed, 2])
    noise_rms = speech.FULL_SCALE * 10 ** ((TALKER_DBOV - sc.snr_db) / 20)
    noise = rng.standard_normal((n, mics)) * noise_rms
    mic = speech.to_pcm(echo + near + noise)
    squeeze = (lambda a: a) if sc.stereo else (lambda a: a[:, 0])
    return {
        "rate": rate,
        "far": squeeze(far),
        "mic": squeeze(mic),
        "echo": squeeze(echo),
        "near": squeeze(near),
        "noise": squeeze(noise),
        "delay": delay,
    }


def scenario(name, **changes):
    """A named scenario, with fields replaced (e.g. a shorter `seconds`)."""
    return replace(BY_NAME[name], **changes)
