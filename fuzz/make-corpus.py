#!/usr/bin/env python3
"""Writes the seed inputs of fuzz_frame (layout: see fuzz_frame.cpp) into corpus/frame."""
import math
import os
import struct

here = os.path.dirname(os.path.abspath(__file__))
out = os.path.join(here, "corpus", "frame")
os.makedirs(out, exist_ok=True)


def session(flags=0, clamp=0.01, rotation=0.0, factor=1.0, zoom=1.0, width=640, height=480):
    return struct.pack("<BffdfHH", flags, clamp, rotation, factor, zoom, width, height)


def frame(beams, lines, rng, first=-6500, last=6500, bearings=None, data=None):
    if bearings is None:
        head = struct.pack("<HHdBhh", beams, lines, rng, 0, first, last)
    else:
        head = struct.pack("<HHdB", beams, lines, rng, 1) + struct.pack("<%dh" % len(bearings), *bearings)
    if data is None:
        data = bytes((b * 7 + l * 3) % 256 for l in range(lines) for b in range(beams))
    return head + struct.pack("<I", len(data)) + data


seeds = {
    "good-frame": session() + frame(64, 40, 50.0),
    "two-layouts": session(clamp=0.05) + frame(32, 20, 30.0) + frame(48, 20, 30.0, -4500, 4500),
    "raw-bearings": session(flags=0x31) + frame(8, 4, 12.34, bearings=[-6000, -4000, -2000, 0, 10, 2000, 4000, 6000]),
    "descending-bearings": session() + frame(4, 4, 10.0, bearings=[300, 200, 100, 0]),
    "short-data": session() + frame(16, 16, 10.0, data=bytes(20)),
    "nan-range": session() + frame(16, 8, math.nan),
    "odd-session": session(flags=0xEE, clamp=2.0, rotation=-200.0, factor=1e300, zoom=-3.0, width=1, height=5000)
    + frame(16, 8, 1e6),
    "empty-view": session(width=0, height=0, zoom=0.0) + frame(16, 8, 100.0),
}
for name, content in seeds.items():
    with open(os.path.join(out, name), "wb") as f:
        f.write(content)
