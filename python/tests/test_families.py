"""Every family against the paximg tool on the same picture, byte for byte:
the tool reads a BMP that Pillow wrote, the package takes the Pillow image
itself, and both results are compared as header fields, colour table and
rows. Then the same calls with numpy and Pillow in must give the same image
out, in the caller's own kind."""
import numpy as np
import pytest
from PIL import Image as PILImage

import paximage
from conftest import bmp_parts, dib_parts, picture, run_paximg

P = paximage
K = [[0, 0, 3], [0, 1, 0], [-2, 0, 0]]  # on screen: weights up-right, centre and down-left
K_LIST = "0,0,3,0,1,0,-2,0,0,3"  # the same kernel as paximg takes it: rows top to bottom, then the divisor

FAMILIES = [  # (name, input mode, paximg command, the package's call)
    ("convert-hsv", "RGB", ["convert", "--to", "hsv"], lambda im: P.convert(im, to="hsv")),
    ("convert-cmyk", "RGB", ["convert", "--to", "cmyk"], lambda im: P.convert(im, to="cmyk")),
    ("convert-lab-from-L", "L", ["convert", "--to", "lab"], lambda im: P.convert(im, "lab")),
    ("hue", "RGB", ["hue-saturation", "--hue", 30, "--saturation", 40, "--hue-from", 0, "--hue-to", 60],
     lambda im: P.hue_saturation(im, 30, 40, hue_range=(0, 60))),
    ("hue-across-0", "RGB", ["hue-saturation", "--hue", -150, "--lightness", -20, "--hue-from", 300, "--hue-to", 60],
     lambda im: P.hue_saturation(im, hue=-150, lightness=-20, hue_range=(300, 60))),
    ("desaturate", "P", ["desaturate"], P.desaturate),
    ("replace", "RGB", ["replace-color", "--target", "224,172,138", "--tolerance", 40, "--hue", 120],
     lambda im: P.replace_color(im, (224, 172, 138), 40, hue=120)),
    ("replace-per-channel", "RGB", ["replace-color", "--target", "255,0,0", "--tolerance", "80,10,200",
                                    "--saturation", -100, "--lightness", 30],
     lambda im: P.replace_color(im, target=(255, 0, 0), tolerance=(80, 10, 200), saturation=-100, lightness=30)),
    ("cmyk-levels", "RGB", ["cmyk-levels", "--cyan", 20, "--magenta", -70, "--yellow", 100, "--black", -50],
     lambda im: P.cmyk_levels(im, cyan=20, magenta=-70, yellow=100, black=-50)),
    ("brightness-contrast", "RGB", ["brightness-contrast", "--brightness", 25, "--contrast", -15],
     lambda im: P.brightness_contrast(im, 25, -15)),
    ("brightness-contrast-grey", "L", ["brightness-contrast", "--brightness", -60, "--contrast", 80],
     lambda im: P.brightness_contrast(im, brightness=-60, contrast=80)),
    ("gamma", "RGB", ["gamma", "--gamma-red", 150, "--gamma-green", 10, "--gamma-blue", 500],
     lambda im: P.gamma(im, red=150, green=10, blue=500)),
    ("convolve-sharpen5", "RGB", ["convolve", "--type", "sharpen", "--size", 5],
     lambda im: P.convolve(im, type="sharpen", size=5)),
    ("convolve-mean7", "RGB", ["convolve", "--type", "mean", "--size", 7, "--intensity", "weighted"],
     lambda im: P.convolve(im, type="mean", size=7, intensity="weighted")),
    ("convolve-kernel", "RGB", ["convolve", "--kernel", K_LIST], lambda im: P.convolve(im, K, divisor=3)),
    ("ordered-from-rgb", "RGB", ["ordered", "--type", 3], lambda im: P.ordered(im, type=3)),
    ("dither-from-P", "P", ["dither", "--method", "jjn", "--bits", 4], lambda im: P.dither(im, "jjn", 4)),
    ("dither-from-L", "L", ["dither", "--method", "smooth", "--bits", 4], lambda im: P.dither(im, "smooth", 4)),
] + [
    ("dither-%s-%d" % (m, b), "RGB", ["dither", "--method", m, "--bits", b],
     lambda im, m=m, b=b: P.dither(im, method=m, bits=b))
    for m in P.METHODS for b in (1, 4, 8) if b != 8 or m not in ("sharp", "smooth")
] + [
    ("ordered-%d" % t, "L", ["ordered", "--type", t], lambda im, t=t: P.ordered(im, type=t)) for t in range(7)
]


def source(mode):
    pic = PILImage.fromarray(picture())
    return pic if mode == "RGB" else pic.convert(mode)


@pytest.mark.parametrize("name,mode,command,call", FAMILIES, ids=[f[0] for f in FAMILIES])
def test_family_matches_paximg(tmp_path, name, mode, command, call):
    pic = source(mode)
    pic.save(tmp_path / "in.bmp")
    run_paximg(command[0], *command[1:], tmp_path / "in.bmp", tmp_path / "out.bmp")
    with P.Image.from_pil(pic) as im, call(im) as result:
        assert dib_parts(result.tobytes()) == bmp_parts(tmp_path / "out.bmp")


@pytest.mark.parametrize("model", ["rgb", "hsv", "cmyk", "lab"])
def test_split_matches_paximg(tmp_path, model):
    pic = source("RGB")
    pic.save(tmp_path / "in.bmp")
    run_paximg("split", "--model", model, tmp_path / "in.bmp", tmp_path / "ch.bmp")
    with P.Image.from_pil(pic) as im:
        channels = P.split(im, model)
        try:
            assert len(channels) == len(model)
            for letter, channel in zip(channels._fields, channels):
                assert dib_parts(channel.tobytes()) == bmp_parts(tmp_path / ("ch-%s.bmp" % letter)), letter
        finally:
            for c in channels:
                c.close()


@pytest.mark.parametrize("first,second", [("cmyk", "rgb"), ("lab", "hsv"), ("yiq", "cmyk")])
def test_tagged_images_convert_on_like_paximg(tmp_path, first, second):
    """The tag made by one conversion is what the next one starts from."""
    pic = source("RGB")
    pic.save(tmp_path / "in.bmp")
    run_paximg("convert", "--to", first, tmp_path / "in.bmp", tmp_path / "mid.bmp")
    run_paximg("convert", "--to", second, tmp_path / "mid.bmp", tmp_path / "out.bmp")
    with P.Image.from_pil(pic) as im, P.convert(im, first) as mid, P.convert(mid, second) as out:
        assert mid.model == first and out.model == second
        assert dib_parts(out.tobytes()) == bmp_parts(tmp_path / "out.bmp")


def test_convert_value_matches_paximg_for_every_pair():
    values = {3: ["0,0,0", "255,128,0", "10,200,30", "255,255,255", "37,91,201"],
              4: ["0,0,0,0", "10,20,30,40", "200,0,50,255", "255,255,255,255"]}
    for f in P.MODELS:
        for t in P.MODELS:
            if f == t:
                continue
            vs = values[4 if f == "cmyk" else 3]
            lines = run_paximg("color", "--from", f, "--to", t, *vs).splitlines()
            for v, line in zip(vs, lines):
                got = P.convert_value([int(c) for c in v.split(",")], to=t, from_=f)
                assert line.endswith(" " + ",".join(map(str, got))), (f, t, v, line)


def test_kernel_is_applied_as_seen_on_screen():
    """A kernel that only weights the pixel up and to the left moves the
    picture one pixel down and right (edges repeat): grey pixels keep their
    value as intensity, so each takes the value of its upper-left neighbour."""
    grey = picture()[..., 0].copy()
    shifted = grey[np.r_[0, 0:grey.shape[0] - 1]][:, np.r_[0, 0:grey.shape[1] - 1]]
    out = P.convolve(np.repeat(grey[..., None], 3, axis=2), [[1, 0, 0], [0, 0, 0], [0, 0, 0]])
    assert (out == shifted[..., None]).all()


def same_pil(a, b):
    return (a.mode, a.size, a.tobytes(), a.getpalette(), a.info.get("paximage.model")) == \
           (b.mode, b.size, b.tobytes(), b.getpalette(), b.info.get("paximage.model"))


KINDS = [f for f in FAMILIES if f[1] != "RGB" or f[0].startswith(("convert", "ordered-from", "dither-stucki"))] + FAMILIES[3:15:3]


@pytest.mark.parametrize("name,mode,command,call", KINDS, ids=[f[0] for f in KINDS])
def test_numpy_and_pillow_get_their_own_kind_back(name, mode, command, call):
    pic = source(mode)
    with P.Image.from_pil(pic) as im, call(im) as expected:
        from_pil = call(pic)
        assert isinstance(from_pil, PILImage.Image) and same_pil(from_pil, expected.to_pil())
        assert from_pil.mode == "L" or name != "brightness-contrast-grey"  # a grey table stays grey
        array = np.asarray(pic) if mode != "P" else np.asarray(pic.convert("RGB"))
        from_numpy = call(array)
        want = expected.to_numpy()
        assert isinstance(from_numpy, np.ndarray) and np.array_equal(from_numpy, want)
        assert getattr(from_numpy, "model", "rgb") == getattr(want, "model", "rgb") == (expected.model or "rgb")
