#!/usr/bin/env python3
"""Writes the committed seed corpus of api_fuzzer: short call sequences that reach every
entry point, every rate and layout, valid and refused records, and the hostile frames.
The byte layout is the one api_fuzzer.cpp decodes."""
import os
import struct
import sys

OUT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "corpus", "api_fuzzer")

# Opcodes (low 4 bits); bit 4 picks the block, the top 3 bits the null-pointer variants.
GET_SIZE, INIT, CONFIG, GET_CONFIG, RATIO, HANDLE_ID = 0, 1, 2, 3, 4, 5
RUN, ADF, NLP, ADF_NLP, BURST, RESET, FREE, VERSIONS = 6, 7, 8, 9, 10, 11, 12, 13
NULL_HANDLE, NULL_RECORD, NULL_BUFFER = 7, 6, 3
RAW, CONST, SQUARE, ALTERNATING, IMPULSE, NOISE, SILENCE, ECHO = range(8)
RATES = {16000: 0, 8000: 1, 32000: 2, 48000: 3}


def op(code, slot=0, variant=0):
    return bytes([(variant << 5) | (slot << 4) | code])


def init(rate=16000, near=1, far=1, slot=0, code=INIT, variant=0):
    return op(code, slot, variant) + bytes([0, near - 1, far - 1, RATES[rate]])


def source(kind, level=0, param=0, raw=()):
    b = bytes([kind]) + struct.pack("<h", level) + bytes([param])
    if kind == RAW:
        b = bytes([kind]) + struct.pack("<h", level) + bytes([len(raw) - 1])
        b += b"".join(struct.pack("<h", v) for v in raw)
    return b


def burst(near, far, count, mode=0, slot=0, variant=0):
    return op(BURST, slot, variant) + bytes([mode, count - 1]) + near + far


def config(cn=1, edges=(0, 1, 2, 3, 4, 5), intensities=(0, 1, 1, 0, 2, 2, 2), slot=0, variant=0):
    return op(CONFIG, slot, variant) + bytes([cn]) + b"\0\0" + bytes(edges) + bytes(intensities)


ECHO_SCENE = (source(ECHO, 0, 4), source(NOISE, 3000, 7))

SEEDS = {
    "run_each_rate": b"".join(init(r) + burst(*ECHO_SCENE, 8) + op(FREE) for r in RATES),
    "layouts": b"".join(init(16000, n, f) + burst(*ECHO_SCENE, 4, mode=m) + op(FREE)
                        for n in (1, 2) for f in (1, 2) for m in (0, 3)),
    "config_and_queries": init() + config() + op(GET_CONFIG) + op(RATIO) + bytes([1])
    + op(HANDLE_ID) + struct.pack("<i", 250) + op(VERSIONS) + op(GET_SIZE)
    + burst(*ECHO_SCENE, 6) + op(FREE),
    "refused_records": init(16000) + op(CONFIG) + bytes([2]) + b"\0\0" + bytes(13)
    + config(edges=(10, 11, 0, 1, 2, 3)) + op(INIT) + bytes([1, 0, 0, 0])
    + op(RATIO) + bytes([3]) + op(RUN) + source(SILENCE) + source(SILENCE),
    "null_pointers": init() + op(RUN, variant=NULL_HANDLE) + source(SILENCE) * 2
    + op(CONFIG, variant=NULL_RECORD) + bytes(16) + op(GET_CONFIG, variant=NULL_HANDLE)
    + op(INIT, variant=NULL_BUFFER) + bytes(4) + op(INIT, 1, NULL_RECORD) + bytes(4)
    + op(NLP, variant=NULL_HANDLE) + source(SILENCE) * 2 + op(FREE, variant=NULL_HANDLE),
    "reset_free_reuse": init(48000, 2, 2) + burst(*ECHO_SCENE, 4) + init(8000, 1, 2, code=RESET)
    + burst(*ECHO_SCENE, 4) + op(RESET) + bytes([2, 0, 0, 0]) + init(16000)
    + op(FREE) + op(RUN) + source(SILENCE) * 2 + op(NLP) + source(SILENCE) * 2 + op(FREE),
    "two_instances": init(16000) + init(32000, 2, 1, slot=1) + burst(*ECHO_SCENE, 4)
    + burst(*ECHO_SCENE, 4, slot=1) + op(FREE) + burst(*ECHO_SCENE, 4, slot=1) + op(FREE, 1),
    "alternating_far_end": init() + burst(source(ECHO, 0, 7), source(ALTERNATING), 32)
    + burst(*ECHO_SCENE, 16),
    "full_scale_squares": init() + config() + burst(source(SQUARE, 0, 15), source(SQUARE, 0, 40), 32),
    "dc_and_impulses": init(8000) + burst(source(CONST, 32767), source(CONST, -32768), 16)
    + burst(source(IMPULSE, 32767, 9), source(IMPULSE, -32768, 100), 16, mode=3),
    "raw_samples": init() + op(RUN) + source(RAW, raw=(32767, -32768, 0, 1, -1, 12345))
    + source(RAW, raw=(-32768, -32768, 32767)),
}


def main():
    os.makedirs(OUT, exist_ok=True)
    for name, data in SEEDS.items():
        with open(os.path.join(OUT, name), "wb") as f:
            f.write(data)
    print(f"{len(SEEDS)} seeds in {OUT}", file=sys.stderr)


if __name__ == "__main__":
    main()
