#!/usr/bin/env python3
"""Executed ARM instructions per frame by function, from two qemu-arm runs of the counting
driver (see arm_instructions.sh, TOP=N). Each run leaves PREFIX.hist (guest address and
count of every executed instruction address) and PREFIX.pages (qemu's page log); the
difference of the two histograms, divided by the frame difference, is attributed to the
function that contains each address. Code segments are told apart by the size of each
library's text segment; a shared library's own functions show under the nearest exported
symbol before them.

usage: arm_profile.py PROGRAM FROM_PREFIX TO_PREFIX FRAMES TOP
"""
import bisect
import collections
import os
import re
import subprocess
import sys

SYSROOT_LIB = "/usr/arm-linux-gnueabihf/lib"
MULTIARCH_LIB = "/usr/lib/arm-linux-gnueabihf"
LIBRARIES = {
    "libc": f"{SYSROOT_LIB}/libc.so.6",
    "libm": f"{SYSROOT_LIB}/libm.so.6",
    "libstdc++": f"{SYSROOT_LIB}/libstdc++.so.6",
    "libgcc_s": f"{SYSROOT_LIB}/libgcc_s.so.1",
    "ld.so": f"{SYSROOT_LIB}/ld-linux-armhf.so.3",
    "libNE10": f"{MULTIARCH_LIB}/libNE10.so.10",
    "libcjson": f"{MULTIARCH_LIB}/libcjson.so.1",
    "libkissfft": f"{MULTIARCH_LIB}/libkissfft-float.so.131",
}


def histogram(path):
    counts = {}
    with open(path) as f:
        for line in f:
            address, count = line.split()
            counts[int(address, 16)] = int(count)
    return counts


def run(*args):
    return subprocess.run(args, capture_output=True, text=True, check=True).stdout


def text_pages(path):
    for line in run("arm-linux-gnueabihf-readelf", "-lW", path).splitlines():
        fields = line.split()
        if fields and fields[0] == "LOAD" and "E" in fields[6:-1]:
            return (int(fields[5], 16) + 0xFFF) & ~0xFFF
    return None


def code_segments(pages_log, libraries):
    """(start, end, name) of every executable mapping in the last page layout qemu logged."""
    layout = open(pages_log).read().split("page layout changed")[-1]
    by_size = collections.defaultdict(list)
    for name, path in libraries.items():
        if os.path.exists(path):
            by_size[text_pages(path)].append(name)
    segments = []
    for m in re.finditer(r"^([0-9a-f]+)-([0-9a-f]+) [0-9a-f]+ r-x", layout, re.M):
        start, end = int(m.group(1), 16), int(m.group(2), 16)
        names = by_size.get(end - start, [])
        segments.append((start, end, names[0] if len(names) == 1 else "?"))
    return segments


def symbols(path, dynamic):
    args = ["arm-linux-gnueabihf-nm", "-n", "-C", "--defined-only"]
    out = run(*(args + (["-D"] if dynamic else []) + [path]))
    addresses, names = [], []
    for line in out.splitlines():
        fields = line.split(" ", 2)
        if len(fields) == 3 and fields[1] in "tTwW":
            addresses.append(int(fields[0], 16) & ~1)
            names.append(fields[2])
    return addresses, names


def main():
    program, before, after, frames, top = sys.argv[1:6]
    frames, top = int(frames), int(top)
    a, b = histogram(before + ".hist"), histogram(after + ".hist")
    libraries = dict(LIBRARIES, driver=program)
    segments = code_segments(after + ".pages", libraries)
    tables = {}
    by_function = collections.Counter()
    by_library = collections.Counter()
    for address in set(a) | set(b):
        count = b.get(address, 0) - a.get(address, 0)
        if count == 0:
            continue
        library, base = next(((n, s) for s, e, n in segments if s <= address < e), ("?", 0))
        if library not in tables:
            path = libraries.get(library)
            tables[library] = symbols(path, library != "driver") if path else ([], [])
        addresses, names = tables[library]
        i = bisect.bisect_right(addresses, address - base) - 1
        by_function[(library, names[i] if i >= 0 else "?")] += count
        by_library[library] += count
    total = sum(by_library.values())
    print(f"  per frame by library ({total // frames:,} in all):")
    for library, count in by_library.most_common():
        print(f"    {count // frames:>9,}  {library}")
    print(f"  per frame by function, top {top}:")
    for (library, name), count in by_function.most_common(top):
        print(f"    {count // frames:>9,}  {100 * count / total:5.1f}%  {library:<9} {name[:70]}")


if __name__ == "__main__":
    main()
