"""The library's messages, handed to the `qenaec` logger instead of the process's output.

The library prints its messages with printf on standard output. While the binding calls into
it, file descriptor 1 points at a temporary file; when the outermost such call returns, each
line collected goes to logging.getLogger("qenaec"): "[ALGO_MSG_ERR]" lines as errors,
"[ALGO_MSG_WRN]" lines as warnings, everything else (the set-up banner, the announcement
of the active levels) as debug. Unless DML_PATH is set, an instance is set up at message
level 1 (errors only), as the command-line tool sets it up, so nothing but errors is printed
in the first place, and the announcement of that level is dropped as the tool drops it.
Whatever other threads write to file descriptor 1 during a call is collected with the
library's lines.
"""
import contextlib
import ctypes
import logging
import os
import sys
import tempfile
import threading

LOGGER = logging.getLogger("qenaec")
LEVELS = {"[ALGO_MSG_ERR]": logging.ERROR, "[ALGO_MSG_WRN]": logging.WARNING,
          "[ALGO_MSG_MSG]": logging.DEBUG}
# Init announces each active level by its name, tagged with that level: news of the set-up,
# not an error or a warning.
ANNOUNCEMENTS = ("ALGO_MSG_ERR", "ALGO_MSG_WRN", "ALGO_MSG_MSG")

_libc = ctypes.CDLL(None)
_lock = threading.Lock()
_state = {"depth": 0, "saved": None, "file": None, "drop": False}


def _flush():
    sys.stdout.flush()
    _libc.fflush(None)  # the library's printf buffers until it is flushed


def forward(text, drop_announcements=False):
    """Logs each line of `text` at the level its tag names, without the tag."""
    for line in text.splitlines():
        line = line.strip()
        tag, _, rest = line.partition(" ")
        rest = rest.strip()
        if not line or (drop_announcements and rest in ANNOUNCEMENTS):
            continue
        if tag in LEVELS:
            LOGGER.log(logging.DEBUG if rest in ANNOUNCEMENTS else LEVELS[tag], "%s", rest)
        else:
            LOGGER.debug("%s", line)


@contextlib.contextmanager
def collected(drop_announcements=False):
    """Collects what is printed on file descriptor 1 within the block, and logs it."""
    with _lock:
        if _state["depth"] == 0:
            _flush()
            _state["file"] = tempfile.TemporaryFile()
            _state["saved"] = os.dup(1)
            os.dup2(_state["file"].fileno(), 1)
        _state["depth"] += 1
        _state["drop"] = _state["drop"] or drop_announcements
    try:
        yield
    finally:
        text, drop = None, False
        with _lock:
            _state["depth"] -= 1
            if _state["depth"] == 0:
                _flush()
                os.dup2(_state["saved"], 1)
                os.close(_state["saved"])
                f = _state["file"]
                f.seek(0)
                text, drop = f.read().decode("utf-8", "replace"), _state["drop"]
                f.close()
                _state.update(saved=None, file=None, drop=False)
        if text:
            forward(text, drop)


@contextlib.contextmanager
def quiet_level():
    """For the block, DML_PATH names a level file of 1 (errors only), unless the caller set
    DML_PATH; yields whether it did."""
    if "DML_PATH" in os.environ:
        yield False
        return
    with tempfile.NamedTemporaryFile("w", suffix=".json", delete=False) as f:
        f.write('{"debug_level": 1}\n')
    os.environ["DML_PATH"] = f.name
    try:
        yield True
    finally:
        os.environ.pop("DML_PATH", None)
        os.unlink(f.name)
