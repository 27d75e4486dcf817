"""Loads libqenaec.so and declares the C records and function signatures for ctypes.

The library is found, in this order, at the path in the QENAEC_LIBRARY environment
variable, in the release build tree of this checkout, or on the system search path.
"""
import ctypes
import ctypes.util
import os
import pathlib

FRAME = 128
RATES = (8000, 16000, 32000, 48000)

# Return codes, as the public header numbers them (the gap after 0x...409 is intended).
RET_CODES = {
    0x00000000: "ALGO_AEC_RET_SUCCESS",
    0x10000401: "ALGO_AEC_RET_INIT_ERROR",
    0x10000402: "ALGO_AEC_RET_INVALID_HANDLE",
    0x10000403: "ALGO_AEC_RET_INVALID_SAMPLE_RATE",
    0x10000404: "ALGO_AEC_RET_INVALID_POINT_NUMBER",
    0x10000405: "ALGO_AEC_RET_INVALID_CHANNEL",
    0x10000406: "ALGO_AEC_RET_INVALID_ENABLE",
    0x10000407: "ALGO_AEC_RET_INVALID_SUP_BAND",
    0x10000408: "ALGO_AEC_RET_INVALID_SUP_MODE",
    0x10000409: "ALGO_AEC_RET_INVALID_COMFORT_NOISE",
    0x10000410: "ALGO_AEC_RET_INVALID_DELAY_SAMPLE",
    0x10000411: "ALGO_AEC_RET_INVALID_RECURSIVE_RATIO",
    0x10000412: "ALGO_AEC_RET_API_CONFLICT",
    0x10000413: "ALGO_AEC_RET_INVALID_CALLING",
}
CODE = {name: value for value, name in RET_CODES.items()}


class AudioAecInit(ctypes.Structure):
    _fields_ = [
        ("point_number", ctypes.c_uint32),
        ("nearend_channel", ctypes.c_uint32),
        ("farend_channel", ctypes.c_uint32),
        ("sample_rate", ctypes.c_int32),
    ]


class AudioAecConfig(ctypes.Structure):
    _fields_ = [
        ("comfort_noise_enable", ctypes.c_int32),
        ("delay_sample", ctypes.c_int16),
        ("suppression_mode_freq", ctypes.c_uint32 * 6),
        ("suppression_mode_intensity", ctypes.c_uint32 * 7),
    ]


def _candidates():
    env = os.environ.get("QENAEC_LIBRARY")
    if env:
        yield env
        return
    root = pathlib.Path(__file__).resolve().parents[2]
    yield str(root / "build" / "release" / "src" / "libqenaec.so")
    found = ctypes.util.find_library("qenaec")
    if found:
        yield found


def _declare(lib):
    # PCM pointers are plain addresses, so a frame offset into a numpy buffer passes as an int.
    handle, short_p = ctypes.c_void_p, ctypes.c_void_p
    ret = ctypes.c_int32  # ALGO_AEC_RET, or -1 for a null or uninitialised handle
    signatures = {
        "QenAec_GetBufferSize": (ctypes.c_uint, []),
        "QenAec_Init": (handle, [ctypes.c_void_p, ctypes.POINTER(AudioAecInit)]),
        "QenAec_Config": (ret, [handle, ctypes.POINTER(AudioAecConfig)]),
        "QenAec_GetConfig": (
            ret, [handle, ctypes.POINTER(AudioAecInit), ctypes.POINTER(AudioAecConfig)]),
        "QenAec_Free": (ret, [handle]),
        "QenAec_Run": (ret, [handle, short_p, short_p]),
        "QenAec_ADF_Run": (ret, [handle, short_p, short_p]),
        "QenAec_NLP_Run": (ret, [handle, short_p]),
        "QenAec_SetRecursiveRatio": (ret, [handle, ctypes.c_uint]),
    }
    for name, (restype, argtypes) in signatures.items():
        fn = getattr(lib, name)
        fn.restype, fn.argtypes = restype, argtypes
    return lib


_lib = None


def library():
    """The loaded shared object (loaded once per process)."""
    global _lib
    if _lib is None:
        tried = []
        for path in _candidates():
            tried.append(path)
            if os.path.sep in path and not os.path.exists(path):
                continue
            _lib = _declare(ctypes.CDLL(path))
            break
        else:
            raise OSError("libqenaec.so not found (set QENAEC_LIBRARY); tried: " +
                          ", ".join(tried or ["nothing"]))
    return _lib
