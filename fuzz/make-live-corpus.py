#!/usr/bin/env python3
"""Writes the seed inputs of fuzz_beacon and fuzz_framepart into corpus/beacon and corpus/framepart:
beacons of each kind of sonar, and frame streams (whole frames, parts out of order, repeated, of an
older frame), encoded by hand in the protocol buffers' wire format."""
import os
import struct

here = os.path.dirname(os.path.abspath(__file__))


def write(folder, name, data):
    path = os.path.join(here, "corpus", folder)
    os.makedirs(path, exist_ok=True)
    with open(os.path.join(path, name), "wb") as f:
        f.write(data)


def varint(value):
    out = bytearray()
    value &= (1 << 64) - 1
    while True:
        byte = value & 0x7F
        value >>= 7
        if value:
            out.append(byte | 0x80)
        else:
            out.append(byte)
            return bytes(out)


def field_varint(number, value):
    return varint(number << 3) + varint(value)


def field_bytes(number, data):
    return varint(number << 3 | 2) + varint(len(data)) + data


# Beacons: serial, system type, software version, connection state.
version = field_varint(1, 2) + field_varint(2, 8) + field_varint(3, 4321)
for name, system, busy in (("aris-1800", 0, 0), ("aris-3000-busy", 1, 1), ("aris-1200", 2, 0)):
    write("beacon", name, field_varint(1, 1098 + system) + field_varint(2, system) + field_bytes(3, version)
          + field_varint(4, busy) + field_bytes(5, field_bytes(1, b"KA")))


# Frame streams: 48 beams x 4 samples, header in the first part.
def header(samples=4, reordered=0):
    h = bytearray(744)
    struct.pack_into("<IQI", h, 0, 0, 1371198079122519, 0x05464444)
    struct.pack_into("<I", h, 436, 1)
    struct.pack_into("<IIIffII", h, 448, 20000, 14, 1, 6.5, 1435.9, samples, 1)
    struct.pack_into("<IIII", h, 476, 4593, 0, 2, 1098)
    struct.pack_into("<I", h, 516, reordered)
    return bytes(h)


def part(index, total, offset, data, with_header=None):
    message = field_varint(1, index) + field_varint(2, total)
    if with_header:
        message += field_bytes(3, with_header)
    message += field_bytes(4, data) + field_varint(5, offset) + field_varint(6, 50000)
    return struct.pack("<H", len(message)) + message


samples = bytes((i * 7) % 256 for i in range(192))
whole = part(1, 192, 0, samples[:96], header()) + part(1, 192, 96, samples[96:])
write("framepart", "whole-frame", whole)
write("framepart", "out-of-order", part(2, 192, 96, samples[96:]) + part(2, 192, 0, samples[:96], header()))
write("framepart", "repeated-and-older", whole + part(1, 192, 96, samples[96:]) + part(3, 192, 0, samples[:96], header())
      + part(2, 192, 0, samples[:96], header()))
write("framepart", "display-order", part(1, 192, 0, samples, header(reordered=1)))
write("framepart", "lost-part", part(1, 192, 0, samples[:96], header()) + part(2, 192, 0, samples[:96], header())
      + part(2, 192, 96, samples[96:]))
