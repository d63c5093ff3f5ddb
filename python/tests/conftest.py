"""Shared fixtures: the library under test, the paximg tool beside it, a
seeded test picture, and the census of blocks every test must leave clean."""
import gc
import os
import struct
import subprocess
import sys

import numpy as np
import pytest

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
sys.path.insert(0, os.path.join(ROOT, "python"))
os.environ.setdefault("PAXIMAGE_LIBRARY", os.path.join(ROOT, "build", "linux", "bin", "libPAXIMGUser.so"))

import paximage  # noqa: E402  (after the library path is known)
from paximage import _native  # noqa: E402

PAXIMG = os.environ.get("PAXIMG") or os.path.join(os.path.dirname(paximage.library_path), "paximg")


def picture(width=37, height=23, seed=5):
    """Ramps, a saturated band, grey rows and seeded noise: every hue and
    lightness the families treat differently, at an odd width."""
    rng = np.random.default_rng(seed)
    y, x = np.mgrid[0:height, 0:width]
    a = np.stack([x * 255 // (width - 1), y * 255 // (height - 1), (x + y) * 7 % 256], axis=2).astype(np.uint8)
    a[height // 3] = [[255, 0, 0], [0, 255, 0], [0, 0, 255], [255, 255, 0]] * (width // 4) + [[224, 172, 138]] * (width % 4)
    a[height // 2] = np.repeat(np.arange(width, dtype=np.uint8)[:, None] * 7, 3, axis=1)
    a[-4:] = rng.integers(0, 256, (4, width, 3), dtype=np.uint8)
    return a


def run_paximg(*args):
    done = subprocess.run([PAXIMG, *map(str, args)], capture_output=True, text=True)
    assert done.returncode == 0, done.stderr
    return done.stdout


def dib_parts(data):
    """(width, height, bits, tag, colour table, pixel rows) of a packed DIB."""
    size, w, h, _, bits, tag, _, _, _, used, _ = struct.unpack_from("<IiiHHIIiiII", data)
    entries = used or {1: 2, 4: 16, 8: 256}.get(bits, 0)
    stride = (w * bits + 31) // 32 * 4
    table = data[40:40 + 4 * entries]
    return w, h, bits, tag, table, data[40 + 4 * entries:40 + 4 * entries + stride * h]


def bmp_parts(path):
    with open(path, "rb") as f:
        return dib_parts(f.read()[14:])


def live_census():
    gc.collect()
    blocks = _native.live_blocks()
    locks = sum(_native.GlobalFlags(h) & _native.GMEM_LOCKCOUNT for h in blocks)
    return set(blocks), locks


@pytest.fixture(autouse=True)
def census():
    """Every test leaves the blocks the package holds, and their locks, as it
    found them: results, temporaries and failure paths included."""
    before = live_census()
    yield
    assert live_census() == before
