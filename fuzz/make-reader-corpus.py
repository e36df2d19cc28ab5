#!/usr/bin/env python3
"""Writes the seed inputs of fuzz_aris and fuzz_recording into corpus/aris and corpus/recording:
small recordings of each format, whole and damaged. The ARIS seeds take their header from the
real recording in ../shared/real-data when it is there, with fewer samples per beam."""
import os
import struct

here = os.path.dirname(os.path.abspath(__file__))
real = os.path.join(here, "..", "..", "shared", "real-data", "aris", "sample.aris")


def write(folder, name, data):
    path = os.path.join(here, "corpus", folder)
    os.makedirs(path, exist_ok=True)
    with open(os.path.join(path, name), "wb") as f:
        f.write(data)


# --- ARIS: a 1024-byte file header, frames of a 1024-byte header and beams x samples bytes.
def aris_headers():
    if os.path.exists(real):
        data = open(real, "rb").read(2048)
        return bytearray(data[:1024]), bytearray(data[1024:2048])
    file_header = bytearray(1024)
    struct.pack_into("<II", file_header, 0, 0x05464444, 2)
    frame_header = bytearray(1024)
    struct.pack_into("<IQI", frame_header, 0, 0, 1371198079122519, 0x05464444)
    struct.pack_into("<IIIIIffII", frame_header, 436, 1, 1, 4, 14, 1, 6.5, 1435.9, 2000, 1)
    struct.pack_into("<IIII", frame_header, 476, 4593, 1, 2, 1098)
    struct.pack_into("<I", frame_header, 516, 1)
    return file_header, frame_header


def aris_frame(header, index, samples, beams=48, reordered=1, ping_mode=None):
    h = bytearray(header)
    struct.pack_into("<IQ", h, 0, index, 1371198079122519 + 152000 * index)
    struct.pack_into("<I", h, 468, samples)
    struct.pack_into("<I", h, 516, reordered)
    if ping_mode is not None:
        struct.pack_into("<I", h, 436, ping_mode)
    body = bytes((b * 5 + s * 3 + index) % 256 for s in range(samples) for b in range(beams))
    return bytes(h) + body


file_header, frame_header = aris_headers()
two = bytes(file_header) + aris_frame(frame_header, 0, 20) + aris_frame(frame_header, 1, 20)
write("aris", "two-frames", two)
write("aris", "trailing-partial-frame", two + aris_frame(frame_header, 2, 20)[:700])
write("aris", "bad-ping-mode-later", bytes(file_header) + aris_frame(frame_header, 0, 20)
      + aris_frame(frame_header, 1, 20, ping_mode=0))
write("aris", "live-order", bytes(file_header) + aris_frame(frame_header, 0, 16, reordered=0))
write("aris", "128-beams", bytes(file_header) + aris_frame(frame_header, 0, 8, beams=128, ping_mode=9))
write("aris", "file-header-only", bytes(file_header))


# --- The viewer's recordings (docs/recording-format.md), intensities stored as they are.
def crc32c(data):
    crc = 0xFFFFFFFF
    for byte in data:
        crc ^= byte
        for _ in range(8):
            crc = (crc >> 1) ^ 0x82F63B78 if crc & 1 else crc >> 1
    return crc ^ 0xFFFFFFFF


def recording_header(start_ms=1700000000000):
    head = b"\x89NRC\r\n\x1a\n" + struct.pack("<HHIqI", 1, 32, 0, start_ms, 0)
    return head + struct.pack("<I", crc32c(head))


def record(width, height, bearings, timestamp, kind=1):
    intensities = bytes((x * 7 + y) % 256 for y in range(height) for x in range(width))
    payload = struct.pack("<HHddIIB3x", width, height, 20.0, 1.0, len(bearings), len(intensities), 0)
    payload += struct.pack("<%dh" % len(bearings), *bearings) + intensities
    head = b"NRRC" + struct.pack("<HHIqI", kind, 0, len(payload), timestamp, crc32c(payload))
    return head + struct.pack("<I", crc32c(head)) + payload


good = recording_header() + record(8, 6, [-300, -200, -100, 0, 100, 200, 300, 400], 0) \
    + record(8, 6, [-300, -200, -100, 0, 100, 200, 300, 400], 40000)
write("recording", "two-frames", good)
write("recording", "cut-in-a-record", good[:-7])
write("recording", "unknown-record-kind", recording_header() + record(2, 2, [-1, 1], 0, kind=7)
      + record(2, 2, [-1, 1], 10))
write("recording", "header-only", recording_header())
