#!/usr/bin/env python3
"""Writes the fuzz targets' seed corpora: small valid inputs of every kind.

    fuzz/make_corpus.py OUTDIR   # OUTDIR/<target>/<name> for each target
"""
import os
import struct
import sys

# The image exports in the harness's order, with arguments that succeed on a
# 24-bit RGB image (6 int32 values).
EXPORTS = [
    ("convert", [1, 9]), ("split", [6]), ("hue", [40, -30, 10, 0, 200]), ("desaturate", []),
    ("replace", [0x604020, 0x303030, 90, 20]), ("cmyk", [20, -40, 0, 60]),
    ("brightness", [25, -15]), ("gamma", [80, 150, 220]), ("convolve", [1, 5, 3]),
    ("convolve_in_place", [0, 1, 5, 1])] + [
    (name, [bits]) for name, bits in [("fs4", 4), ("burkes", 1), ("sierra", 8), ("jjn", 4),
                                      ("stucki", 1), ("sa", 4), ("sharp", 1), ("smooth", 4),
                                      ("ordered", 3)]]


def image(width, height, bits, compression=0):
    """A packed DIB: 40-byte header, grey palette below 16 bits, patterned rows."""
    stride = (width * bits + 31) // 32 * 4
    entries = 1 << bits if bits <= 8 else 0
    header = struct.pack("<IiiHHIIiiII", 40, width, height, 1, bits, compression,
                         stride * height, 0, 0, 0, 0)
    table = b"".join(bytes([i * 255 // (entries - 1)] * 3 + [0]) for i in range(entries))
    rows = bytes((i * 37 + (i >> 3) * 11) & 255 for i in range(stride * height))
    return header + table + rows


def image_input(index, args, block, flags=0, mode=0):
    args = (args + [0] * 6)[:6]
    return bytes([index, flags]) + struct.pack("<6ii", *args, mode) + block


def main():
    out = sys.argv[1]
    seeds = {t: {} for t in ("image_ops", "faults", "buffer", "filter_file")}
    for i, (name, args) in enumerate(EXPORTS):
        for bits in (1, 4, 8, 24, 32):
            base = image_input(i, args, image(7, 5, bits))
            seeds["image_ops"][f"{name}-{bits}"] = base
            seeds["faults"][f"{name}-{bits}"] = bytes([1, 2, 4, 0]) + base
        seeds["image_ops"][f"{name}-progress"] = image_input(i, args, image(9, 6, 24), 2, 1)
        seeds["faults"][f"{name}-lock"] = bytes([2, 1, 0, 0]) + image_input(i, args, image(9, 6, 24), 2, 3)
    # Images in other models, tagged model + 8, for the conversions from them.
    for model in range(2, 10):
        bits = 32 if model == 4 else 24
        seeds["image_ops"][f"convert-from-{model}"] = image_input(0, [model, 1], image(6, 4, bits, model + 8))
    for src, dst in [(1, 6), (1, 4), (4, 1), (4, 9), (9, 9), (2, 8), (7, 5)]:
        size = 4 if src == 4 else 3
        data = bytes(range(40, 40 + 4 * size))
        for flags in (0, 1, 2):
            seeds["buffer"][f"{src}-{dst}-{flags}"] = bytes([src, dst, flags]) + data
    for n, kernel in [(3, [1, 2, 1, 2, 4, 2, 1, 2, 1, 16]), (5, [1] * 25 + [0]), (4, [0] * 16 + [1])]:
        for flags in (0, 1, 3, 5):
            seeds["filter_file"][f"{n}-{flags}"] = bytes([n, flags, 10, 7]) + struct.pack(
                f"<{len(kernel)}h", *kernel)
    for target, files in seeds.items():
        os.makedirs(os.path.join(out, target), exist_ok=True)
        for name, data in files.items():
            with open(os.path.join(out, target, name), "wb") as f:
                f.write(data)


if __name__ == "__main__":
    main()
