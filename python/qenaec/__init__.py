"""Python binding of the QenAec echo canceller (ctypes over libqenaec.so, numpy in and out)."""
from ._lib import FRAME, RATES, RET_CODES
from .canceller import MODES, OUTPUT_DELAY, Canceller, QenAecError
from .erle import Erle, erle

__all__ = ["Canceller", "QenAecError", "FRAME", "RATES", "RET_CODES", "MODES", "OUTPUT_DELAY",
           "Erle", "erle"]
