"""Times a 4096 x 4096 Stucki dither to 1 bit through the package against the
bare library call, in one run, interleaved so that a busy machine slows every
variant alike. Prints the best of several rounds and the ratio to the call.

    PAXIMAGE_LIBRARY=build/linux/bin/libPAXIMGUser.so python3 python/bench_stucki.py
"""
import sys
import time

import numpy as np
from PIL import Image as PILImage

import paximage
from paximage import _native

SIDE, ROUNDS = 4096, int(sys.argv[1]) if len(sys.argv) > 1 else 7

if sys.platform.startswith("linux"):
    # Keep freed memory in the heap, as the C benchmarks do (bench_main.cpp) and
    # a long-running host's heap would: otherwise every 48 MiB block is fresh
    # pages from the kernel and the first touch of each is timed too.
    import ctypes
    libc = ctypes.CDLL("libc.so.6")
    libc.mallopt(-4, 0)  # M_MMAP_MAX
    libc.mallopt(-1, 1 << 30)  # M_TRIM_THRESHOLD

y, x = np.mgrid[0:SIDE, 0:SIDE]
rgb = np.stack([x % 256, y % 256, (x + y) // 32 % 256], axis=2).astype(np.uint8)
rgb ^= np.random.default_rng(1).integers(0, 32, rgb.shape, dtype=np.uint8)
picture = PILImage.fromarray(rgb)
image = paximage.Image.from_numpy(rgb)


def bare_call():
    _native.free(_native.DITHERS["stucki"](image.handle, 1))


def close(result):
    if isinstance(result, paximage.Image):
        result.close()


variants = {
    "DitherStucki, the bare library call": bare_call,
    "paximage.dither(Image) -> Image": lambda: close(paximage.dither(image, "stucki", 1)),
    "paximage.dither(ndarray) -> ndarray": lambda: paximage.dither(rgb, "stucki", 1),
    "paximage.dither(Pillow) -> Pillow": lambda: paximage.dither(picture, "stucki", 1),
}
best = {name: float("inf") for name in variants}
for _ in range(ROUNDS):
    for name, run in variants.items():
        start = time.perf_counter()
        run()
        best[name] = min(best[name], time.perf_counter() - start)
base = best["DitherStucki, the bare library call"]
print("4096 x 4096 RGB, Stucki to 1 bit, best of %d rounds" % ROUNDS)
for name, seconds in best.items():
    print("  %-40s %7.1f ms  %5.3f x the call" % (name, seconds * 1e3, seconds / base))
image.close()
