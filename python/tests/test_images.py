"""Images in and out (numpy, Pillow, the DIB layout), refused arguments,
the loader's search, and blocks freed on every path."""
import ctypes
import os
import shutil
import subprocess
import sys

import numpy as np
import pytest
from PIL import Image as PILImage

import paximage
from paximage import PaxImageArgumentError, PaxImageError, _native
from conftest import picture

P = paximage
RGB = picture()


def tagged(array, **attrs):
    out = array.view(P.PaxArray)
    for k, v in attrs.items():
        setattr(out, k, v)
    return out


PALETTE16 = np.random.default_rng(3).integers(0, 256, (16, 3), dtype=np.uint8)
ARRAYS = {
    "rgb": RGB,
    "grey": RGB[..., 1].copy(),
    "cmyk": tagged(np.dstack([RGB, RGB[..., :1]]), model="cmyk"),
    "hsv": tagged(RGB.copy(), model="hsv"),
    "indices4": tagged(RGB[..., 0] % 16, palette=PALETTE16, bits=4),
    "indices8": tagged(RGB[..., 2].copy(), palette=np.random.default_rng(4).integers(0, 256, (256, 3), np.uint8), bits=8),
}


@pytest.mark.parametrize("name", ARRAYS)
def test_numpy_round_trip(name):
    a = ARRAYS[name]
    with P.Image.from_numpy(a) as im:
        back = im.to_numpy()
    assert np.array_equal(back, a)
    for attr in ("model", "bits"):
        assert getattr(back, attr, None) == getattr(a, attr, None)
    assert np.array_equal(getattr(back, "palette", None), getattr(a, "palette", None))


def pil(mode):
    pic = PILImage.fromarray(RGB)
    if mode == "hsv":
        pic.info["paximage.model"] = "hsv"
        return pic
    return pic.convert(mode) if mode != "RGB" else pic


@pytest.mark.parametrize("mode", ["RGB", "L", "P", "1", "CMYK", "hsv"])
def test_pillow_round_trip_and_layout(mode):
    """Out and back in Pillow, and the block read by Pillow's BMP reader (an
    independent decoder of the DIB layout) shows the same picture."""
    import io
    pic = pil(mode)
    with P.Image.from_pil(pic) as im:
        back = im.to_pil()
        bmp = im.tobmp()
    assert (back.mode, back.tobytes(), back.info.get("paximage.model")) == \
           (pic.mode, pic.tobytes(), pic.info.get("paximage.model"))
    if mode in ("RGB", "L", "P", "1"):
        assert PILImage.open(io.BytesIO(bmp)).convert("RGB").tobytes() == pic.convert("RGB").tobytes()


def test_dither_results_in_each_kind():
    """1 bit: Pillow mode 1, numpy 0 and 255; 4 and 8 bits: mode P and numpy
    indices with the library's palette (the cube's corners; 3-3-2 levels)."""
    i = np.arange(256)
    want = {4: np.stack([(i[:16] >> 3 & 1) * 255, (i[:16] >> 2 & 1) * 255, (i[:16] >> 1 & 1) * 255], 1),
            8: np.stack([(i >> 5) * 36, (i >> 2 & 7) * 36, (i & 3) * 85], 1)}
    one = P.dither(RGB, "fs4", 1)
    assert one.dtype == np.uint8 and set(np.unique(one)) <= {0, 255}
    assert P.dither(PILImage.fromarray(RGB), "fs4", 1).mode == "1"
    for bits in (4, 8):
        a, p = P.dither(RGB, "burkes", bits), P.dither(PILImage.fromarray(RGB), "burkes", bits)
        assert a.bits == bits and np.array_equal(a.palette, want[bits])
        assert p.mode == "P" and p.getpalette()[:3 * len(want[bits])] == want[bits].reshape(-1).tolist()
        assert np.array_equal(np.asarray(p), a)


def c_convert_error(call):
    """The code the library itself stores for a call made straight to it."""
    with P.Image.from_numpy(RGB) as im:
        assert not call(im.handle)
    return _native.GetLastColorConvertError()


BAD = [  # (call, exception, code, the same call made to the library directly, or None)
    (lambda: P.hue_saturation(RGB, hue=181), PaxImageArgumentError, "CCE_BADARGUMENT",
     lambda h: _native.ColorHueSaturation(h, 181, 0, 0, 0, 0, 0, None)),
    (lambda: P.hue_saturation(RGB, saturation=-256), PaxImageArgumentError, "CCE_BADARGUMENT",
     lambda h: _native.ColorHueSaturation(h, 0, -256, 0, 0, 0, 0, None)),
    (lambda: P.hue_saturation(RGB, hue_range=(90, 90)), PaxImageArgumentError, "CCE_BADARGUMENT",
     lambda h: _native.ColorHueSaturation(h, 0, 0, 0, 90, 90, 0, None)),
    (lambda: P.hue_saturation(RGB, hue_range=(0, 361)), PaxImageArgumentError, "CCE_BADARGUMENT",
     lambda h: _native.ColorHueSaturation(h, 0, 0, 0, 0, 361, 0, None)),
    (lambda: P.replace_color(RGB, (1, 2, 3), lightness=256), PaxImageArgumentError, "CCE_BADARGUMENT",
     lambda h: _native.ReplaceColor(h, (ctypes.c_ubyte * 3)(), (ctypes.c_ubyte * 3)(), 0, 0, 256, 0, None)),
    (lambda: P.cmyk_levels(RGB, black=101), PaxImageArgumentError, "CCE_BADARGUMENT",
     lambda h: _native.ColorCMYKLevels(h, 0, 0, 0, 101, 0, None)),
    (lambda: P.gamma(RGB, 9), PaxImageArgumentError, "CCE_BADARGUMENT",
     lambda h: _native.GammaCorrection(h, 9, 9, 9, 0, None)),
    (lambda: P.gamma(RGB, blue=501), PaxImageArgumentError, "CCE_BADARGUMENT",
     lambda h: _native.GammaCorrection(h, 100, 100, 501, 0, None)),
    (lambda: P.convert(RGB, to="lab", from_="hsv"), PaxImageError, "CCE_BADMODEL",
     lambda h: _native.ConvertDIBColorSpace(h, 6, 9, 0, None)),
    (lambda: P.convert(RGB, to="rgba"), PaxImageArgumentError, "CCE_BADMODEL",
     lambda h: _native.ConvertDIBColorSpace(h, 1, 10, 0, None)),
    (lambda: P.split(ARRAYS["hsv"], "rgb"), PaxImageError, "CCE_BADMODEL", None),
    (lambda: P.brightness_contrast(RGB, contrast=-101), PaxImageArgumentError, "IMS_BADPARAM", None),
    (lambda: P.brightness_contrast(P.dither(PILImage.fromarray(RGB), "sa", 1)), PaxImageArgumentError,
     "IMS_BADDEPTH", None),
    (lambda: P.convolve(RGB, [[128, 0, 0], [0, 0, 0], [0, 0, 0]]), PaxImageArgumentError, "IMS_BADPARAM", None),
    (lambda: P.convolve(RGB, [[100, 0], [0, 28]]), PaxImageArgumentError, "IMS_BADPARAM", None),
    (lambda: P.convolve(RGB, type="smooth", size=7), PaxImageArgumentError, "IMS_BADPARAM", None),
    (lambda: P.convolve(RGB, type="file", filter_file="/no/such/filter"), PaxImageError, "IMS_BADPARAM", None),
    (lambda: P.dither(RGB, "sharp", 8), PaxImageArgumentError, "IMS_BADPARAM", None),
    (lambda: P.dither(RGB, "stucki", 2), PaxImageArgumentError, "IMS_BADPARAM", None),
    (lambda: P.dither(RGB, "atkinson"), PaxImageArgumentError, "IMS_BADPARAM", None),
    (lambda: P.dither(RGB[..., 0].copy(), "fs4", 8), PaxImageArgumentError, "IMS_BADBITS", None),
    (lambda: P.dither(ARRAYS["cmyk"], "fs4", 1), PaxImageArgumentError, "IMS_COMPRESSED", None),
    (lambda: P.hue_saturation(ARRAYS["hsv"]), PaxImageArgumentError, "CCE_BADMODEL", None),
    (lambda: P.convolve(ARRAYS["cmyk"]), PaxImageArgumentError, "IMS_COMPRESSED", None),
    (lambda: P.ordered(RGB, type=7), PaxImageArgumentError, "IMS_BADPARAM", None),
    (lambda: P.convert_value((1, 2, 3), to="cmyk", from_="cmyk"), PaxImageArgumentError, "CCE_BADARGUMENT", None),
    (lambda: P.convert_value((1, 2, 256), to="lab"), PaxImageArgumentError, "CCE_BADARGUMENT", None),
]


@pytest.mark.parametrize("case", range(len(BAD)))
def test_refused_arguments_carry_the_library_code(case):
    call, exc, name, direct = BAD[case]
    with pytest.raises(exc) as info:
        call()
    assert info.value.name == name and name in str(info.value) and info.value.message in str(info.value)
    if direct is not None:  # the library refuses the same call with the same code
        assert c_convert_error(direct) == info.value.code


def test_convolution_code_from_the_library():
    status = ctypes.c_int(0)
    bad = (ctypes.c_short * 10)(128, 0, 0, 0, 0, 0, 0, 0, 0, 0)
    with P.Image.from_numpy(RGB) as im:
        assert not _native.ColorConvolution(im.handle, 1, 0, 1, 3, None, bad, ctypes.byref(status), 0, None)
    assert status.value == 8  # what the package reports as IMS_BADPARAM for the same kernel


@pytest.mark.parametrize("thing,exc", [(RGB.astype(np.int16), TypeError), ("picture.png", TypeError),
                                       (RGB[..., :2], ValueError), (PILImage.new("RGBA", (3, 3)), ValueError)])
def test_images_it_cannot_take(thing, exc):
    with pytest.raises(exc):
        P.desaturate(thing)


def probe(env, package_dir):
    """Imports the package found in package_dir with env; (ok, output)."""
    e = {k: v for k, v in os.environ.items() if k != "PAXIMAGE_LIBRARY"}
    e.update(env, PYTHONPATH=package_dir)
    done = subprocess.run([sys.executable, "-c", "import paximage; print(paximage.library_path)"],
                          capture_output=True, text=True, env=e, cwd=package_dir)
    return done.returncode == 0, done.stdout + done.stderr


def test_loader_search_order_and_message(tmp_path):
    pkg = tmp_path / "site"
    shutil.copytree(os.path.dirname(P.__file__), pkg / "paximage", ignore=shutil.ignore_patterns("*.so*"))
    ok, out = probe({"PAXIMAGE_LIBRARY": "/no/such/libPAXIMGUser.so"}, str(pkg))
    assert not ok and "LibraryNotFoundError" in out and "/no/such/libPAXIMGUser.so (PAXIMAGE_LIBRARY)" in out
    ok, out = probe({}, str(pkg))
    if not ok:  # nothing installed on this machine: every place tried is named
        assert str(pkg / "paximage" / "libPAXIMGUser.so") + ": not there" in out
        assert "/usr/local/lib/libPAXIMGUser.so" in out and "the loader's search" in out
    prefix = tmp_path / "prefix"  # installed: <prefix>/lib/python3/site-packages and <prefix>/lib
    shutil.copytree(pkg, prefix / "lib" / "python3" / "site-packages")
    shutil.copy(P.library_path, prefix / "lib" / "libPAXIMGUser.so.12")
    site = str(prefix / "lib" / "python3" / "site-packages")
    assert probe({}, site) == (True, str(prefix / "lib" / "libPAXIMGUser.so.12") + "\n")
    shutil.copy(P.library_path, pkg / "paximage" / "libPAXIMGUser.so")
    assert probe({}, str(pkg)) == (True, str(pkg / "paximage" / "libPAXIMGUser.so") + "\n")
    assert probe({"PAXIMAGE_LIBRARY": P.library_path}, str(pkg)) == (True, P.library_path + "\n")


def test_blocks_are_freed_by_with_close_and_collection():
    freed = []
    with P.Image.from_numpy(RGB) as im:
        freed.append(im.handle)
    im2 = P.Image.from_numpy(RGB)
    freed.append(im2.handle)
    im2.close()
    im2.close()  # a second close does nothing
    im3 = P.Image.from_numpy(RGB)
    handle = im3.handle
    del im3
    assert handle not in _native.live_blocks()
    with pytest.raises(ValueError):
        im.to_numpy()
    owner = P.Image.from_numpy(RGB).detach()  # handed over, and taken back
    assert owner not in _native.live_blocks() and _native.GlobalFlags(owner) == 0
    with P.Image.adopt(owner) as back:
        assert np.array_equal(back.to_numpy(), RGB)
    short = _native.GlobalAlloc(_native.GHND, 60)  # a header promising more than the block holds
    ctypes.memmove(_native.GlobalLock(short), bytes.fromhex("28000000" "05000000" "05000000" "0100" "1800"), 16)
    _native.GlobalUnlock(short)
    with pytest.raises(ValueError):
        P.Image.adopt(short)
    assert _native.GlobalFree(short) is None  # refused, so still the caller's to free


@pytest.mark.parametrize("kind,where", [("numpy", "_image.np.copyto"), ("numpy", "Image.to_numpy"),
                                        ("numpy", "Image.palette"), ("pil", "_image.np.copyto"),
                                        ("pil", "Image.to_pil"), ("pil", "Image.palette")])
def test_failures_midway_free_every_block(monkeypatch, where, kind):
    """A failure while an image is converted in or out leaves nothing behind
    (the census fixture checks), whichever step it hits."""
    target = {"_image.np.copyto": (paximage._image.np, "copyto"), "Image.to_numpy": (P.Image, "to_numpy"),
              "Image.to_pil": (P.Image, "to_pil"), "Image.palette": (P.Image, "palette")}[where]

    def boom(*a, **k):
        raise RuntimeError("injected")
    monkeypatch.setattr(*target, boom)
    source = RGB if kind == "numpy" else PILImage.fromarray(RGB)
    failed = 0
    for call in (lambda: P.dither(source, "stucki", 4), lambda: P.split(source, "cmyk"),
                 lambda: P.convert(source, "rgb"), lambda: P.ordered(source, 2)):
        try:
            call()
        except RuntimeError:
            failed += 1
    assert failed > 0


def test_pip_install_offline_bundles_the_library(tmp_path):
    """pip with Debian's setuptools, no network and no build isolation installs
    the package with the built library beside it; it imports from anywhere."""
    root = os.path.dirname(os.path.dirname(P.__file__))
    shutil.copytree(root, tmp_path / "src", ignore=shutil.ignore_patterns(
        "build", "*.egg-info", "__pycache__", "tests", "*.so*"))
    venv = tmp_path / "venv"
    subprocess.run([sys.executable, "-m", "venv", "--system-site-packages", "--without-pip", str(venv)], check=True)
    python = str(venv / "bin" / "python")
    done = subprocess.run([python, "-m", "pip", "install", "--no-index", "--no-build-isolation", "--no-deps",
                           "-q", str(tmp_path / "src")], capture_output=True, text=True, cwd=tmp_path)
    assert done.returncode == 0, done.stdout + done.stderr
    env = {k: v for k, v in os.environ.items() if k not in ("PAXIMAGE_LIBRARY", "PYTHONPATH")}
    done = subprocess.run([python, "-c", "import paximage; print(paximage.library_path, paximage.version(), sep='|')"],
                          capture_output=True, text=True, env=env, cwd=tmp_path)
    assert done.returncode == 0, done.stderr
    path, version = done.stdout.strip().split("|")
    assert path.startswith(str(venv)) and path.endswith("paximage/libPAXIMGUser.so") and version == "Version 12.08"
