"""PaxImage from Python: exact colour conversions, adjustments, filters and
dithers of the PaxImage library on numpy arrays and Pillow images.

    import paximage
    from PIL import Image
    paximage.dither(Image.open("chart.png"), method="stucki", bits=1).save("epaper.png")

Every function returns what it was given: a Pillow image for a Pillow image, a
numpy array for an array, a `paximage.Image` (a packed DIB in a global block)
for an Image. Failures raise `PaxImageError` with the library's code.
"""
import collections
import ctypes
import numbers

import numpy as np

from . import _native as N
from ._errors import (LibraryNotFoundError, PaxImageArgumentError, PaxImageError, convert_error_name,
                      image_status_name)
from ._image import Image, PaxArray, model_code

__all__ = ["Image", "PaxArray", "PaxImageError", "PaxImageArgumentError", "LibraryNotFoundError",
           "MODELS", "METHODS", "library_path", "version", "convert", "split", "hue_saturation",
           "desaturate", "replace_color", "cmyk_levels", "brightness_contrast", "gamma", "convolve",
           "dither", "ordered", "convert_value"]

MODELS = N.MODELS
METHODS = tuple(N.DITHERS)
library_path = N.library_path


def version():
    """The library's version text, "Version 12.08"."""
    buf = ctypes.create_string_buffer(14)
    N.GetPaxImageVersion(buf, 14)
    return buf.value.decode("ascii")


# -- arguments -----------------------------------------------------------------

def _int(function, code, name, value, lo, hi):
    if isinstance(value, bool) or not isinstance(value, numbers.Integral):
        raise TypeError("%s: %s takes an integer, not %r" % (function, name, value))
    if not lo <= value <= hi:
        raise PaxImageArgumentError(function, code, "%s must lie in %d..%d, not %d" % (name, lo, hi, value))
    return int(value)


def _rgb(function, name, value):
    if isinstance(value, numbers.Integral) and not isinstance(value, bool):
        value = (value,) * 3
    value = tuple(value)
    if len(value) != 3:
        raise PaxImageArgumentError(function, "CCE_BADARGUMENT", "%s takes (red, green, blue)" % name)
    return tuple(_int(function, "CCE_BADARGUMENT", name, v, 0, 255) for v in value)


# -- images in and out -----------------------------------------------------------

def _is_pil(obj):
    try:
        from PIL import Image as PILImage
    except ImportError:  # Pillow is optional for numpy users
        return False
    return isinstance(obj, PILImage.Image)


class _Call:
    """One family call: the caller's object as a DIB, and the result given
    back in the caller's kind. Every block made on the way is freed on exit."""

    def __init__(self, image, rgb24=False):
        self.kind, self.temps = None, []
        if isinstance(image, Image):
            self.kind, self.image = "image", image
            if rgb24 and image.bits <= 8 and image.tag == 0:  # palette images are taken as RGB
                self.image = Image.from_numpy(_expand(image.to_numpy()))
                self.temps.append(self.image)
            return
        if _is_pil(image):
            self.kind = "pil"
            if rgb24 and image.mode in ("L", "P", "1"):
                image = image.convert("RGB")
            self.image = Image.from_pil(image)
        elif isinstance(image, np.ndarray):
            self.kind = "numpy"
            if rgb24 and image.ndim == 2:
                image = _expand(image)
            self.image = Image.from_numpy(image)
        else:
            raise TypeError("paximage takes a numpy array, a Pillow image or a paximage.Image, not %s"
                            % type(image).__name__)
        self.temps.append(self.image)

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        for t in self.temps:
            t.close()

    def give(self, result):
        """The result block (a handle or an Image), as what the caller passed in."""
        result = result if isinstance(result, Image) else Image(result)
        if self.kind == "image":
            return result
        self.temps.append(result)
        return result.to_pil() if self.kind == "pil" else result.to_numpy()


def _expand(array):
    """Grey values, bools or palette indices as an H x W x 3 RGB array."""
    palette = getattr(array, "palette", None)
    if palette is not None:
        return np.asarray(palette)[np.asarray(array)]
    grey = np.asarray(array if array.dtype != np.bool_ else array * np.uint8(255))
    return np.repeat(grey[..., None], 3, axis=2)


def _check_convert_result(function, handle):
    if handle:
        return handle
    code = N.GetLastColorConvertError()
    if code:
        raise PaxImageError(function, convert_error_name(code))
    raise PaxImageError(function, detail="no image returned (an image it does not take, or no memory)")


def _check_rgb(function, call, tag_code="CCE_BADMODEL", depth_code=None):
    """The 24-bit RGB families. Images tagged with another model are refused
    (the adjustments would take their bytes as R, G, B); the library itself
    refuses other depths, with no code for the CCE families."""
    im = call.image
    if im.tag != 0:
        raise PaxImageArgumentError(function, tag_code, "the image holds %s values; convert it to rgb first"
                                    % (im.model or "unknown"))
    if im.bits != 24:
        raise PaxImageArgumentError(function, depth_code, "it takes 24-bit images, not %d-bit ones" % im.bits)


def _model_of(image):
    if isinstance(image, Image):
        return image.model or "rgb"
    if _is_pil(image):
        return "cmyk" if image.mode == "CMYK" else image.info.get("paximage.model", "rgb")
    return getattr(image, "model", "cmyk" if np.ndim(image) == 3 and np.shape(image)[2] == 4 else "rgb")


# -- the families -----------------------------------------------------------------

def convert(image, to, from_=None):
    """Converts an image between colour models ('rgb', 'yuv', 'cmy', 'cmyk',
    'yiq', 'hsv', 'hsi', 'xyz', 'lab'). from_ defaults to the model the image
    is tagged with. CMYK images have 4 components a pixel, the others 3."""
    f = model_code(from_ if from_ is not None else _model_of(image), "from_")
    t = model_code(to, "to")
    with _Call(image, rgb24=True) as call:
        h = call.image.handle
        result = _check_convert_result("ConvertDIBColorSpace", N.ConvertDIBColorSpace(h, f, t, 0, None))
        if result == h:  # the same model: the library hands back the caller's image
            return call.give(call.image.copy())
        return call.give(result)


def split(image, model="rgb"):
    """One grey image per component of `model`, as a named tuple (fields are the
    component letters: r, g, b; h, s, v; c, m, y, k; ...). The library's own
    order for CMYK (M, Y, K, C) is put back into C, M, Y, K. Numpy results are
    H x W arrays, Pillow results mode L."""
    code = model_code(model)
    with _Call(image, rgb24=True) as call:
        channels = (ctypes.c_void_p * 4)()
        n = N.SplitColorChannels(call.image.handle, channels, code)
        made = [Image(N.adopt(channels[k], "SplitColorChannels")) for k in range(n)]
        if n == 0:
            _check_convert_result("SplitColorChannels", None)
        names = N.MODELS[code - 1] if n == 3 or code == 4 else "rgbx"
        if code == 4:
            made = [made[3], made[0], made[1], made[2]]
        out = []
        for im in made:
            if call.kind == "image":
                out.append(im)
                continue
            call.temps.append(im)
            grey = np.ascontiguousarray(im.to_numpy()[..., 0])
            out.append(grey if call.kind == "numpy" else _pil_grey(grey))
        return collections.namedtuple("Channels", list(names))(*out)


def _pil_grey(a):
    from PIL import Image as PILImage
    return PILImage.fromarray(a, "L")


def hue_saturation(image, hue=0, saturation=0, lightness=0, hue_range=None):
    """Turns the hue of the pixels whose hue lies in hue_range (degrees, from,
    to; None: every hue; from above to is a range across 0) by `hue` degrees
    (-180..180), and adds saturation and lightness (-255..255 each)."""
    fn, bad = "ColorHueSaturation", "CCE_BADARGUMENT"
    hue = _int(fn, bad, "hue", hue, -180, 180)
    saturation = _int(fn, bad, "saturation", saturation, -255, 255)
    lightness = _int(fn, bad, "lightness", lightness, -255, 255)
    lo, hi = (0, 0) if hue_range is None else tuple(hue_range)
    lo, hi = _int(fn, bad, "hue_range", lo, 0, 360), _int(fn, bad, "hue_range", hi, 0, 360)
    if lo == hi and lo != 0:
        raise PaxImageArgumentError(fn, bad, "hue_range needs two different ends")
    with _Call(image, rgb24=True) as call:
        _check_rgb(fn, call)
        return call.give(_check_convert_result(fn, N.ColorHueSaturation(
            call.image.handle, hue, saturation, lightness, lo, hi, 0, None)))


def desaturate(image):
    """Replaces every pixel by the grey (max + min) / 2 of its components."""
    with _Call(image, rgb24=True) as call:
        _check_rgb("Desaturate", call)
        return call.give(_check_convert_result("Desaturate", N.Desaturate(call.image.handle, 0, None)))


def replace_color(image, target, tolerance=0, hue=0, saturation=0, lightness=0):
    """Moves the pixels within `tolerance` (one value, or per red, green, blue)
    of the colour `target` (red, green, blue): hue turned by `hue` degrees
    (-180..180), saturation and lightness added (-255..255)."""
    fn, bad = "ReplaceColor", "CCE_BADARGUMENT"
    r, g, b = _rgb(fn, "target", target)
    tol = _rgb(fn, "tolerance", tolerance)
    hue = _int(fn, bad, "hue", hue, -180, 180)
    saturation = _int(fn, bad, "saturation", saturation, -255, 255)
    lightness = _int(fn, bad, "lightness", lightness, -255, 255)
    target_bgr = (ctypes.c_ubyte * 3)(b, g, r)  # the library takes the target in pixel order
    tolerance_rgb = (ctypes.c_ubyte * 3)(*tol)
    with _Call(image, rgb24=True) as call:
        _check_rgb(fn, call)
        return call.give(_check_convert_result(fn, N.ReplaceColor(
            call.image.handle, target_bgr, tolerance_rgb, hue, saturation, lightness, 0, None)))


def cmyk_levels(image, cyan=0, magenta=0, yellow=0, black=0):
    """Scales each ink of every pixel: -100 removes it, 0 keeps it, 100 doubles it."""
    fn, bad = "ColorCMYKLevels", "CCE_BADARGUMENT"
    levels = [_int(fn, bad, n, v, -100, 100) for n, v in
              (("cyan", cyan), ("magenta", magenta), ("yellow", yellow), ("black", black))]
    with _Call(image, rgb24=True) as call:
        _check_rgb(fn, call)
        return call.give(_check_convert_result(fn, N.ColorCMYKLevels(call.image.handle, *levels, 0, None)))


def brightness_contrast(image, brightness=0, contrast=0):
    """Brightness and contrast, -100..100 each. 4- and 8-bit images have their
    colour table adjusted (grey arrays and mode L images stay grey)."""
    fn, bad = "ColorBrightnessContrast", "IMS_BADPARAM"
    brightness = _int(fn, bad, "brightness", brightness, -100, 100)
    contrast = _int(fn, bad, "contrast", contrast, -100, 100)
    with _Call(image) as call:
        if call.image.tag != 0:
            raise PaxImageArgumentError(fn, "IMS_COMPRESSED", "the image holds %s values" % call.image.model)
        if call.image.bits not in (4, 8, 24):
            raise PaxImageArgumentError(fn, "IMS_BADDEPTH", "it takes 4-, 8- and 24-bit images, not %d-bit ones"
                                        % call.image.bits)
        h = N.ColorBrightnessContrast(call.image.handle, brightness, contrast, 0)
        if not h:  # every check has passed: only memory can fail now
            raise PaxImageError(fn, "IMS_NOMEMORY")
        return call.give(h)


def gamma(image, value=100, *, red=None, green=None, blue=None):
    """Raises each component v to ln(g) / ln(100) (the library's gamma, 10..500,
    100 keeps the image). `value` sets all three; red, green, blue override it."""
    fn, bad = "GammaCorrection", "CCE_BADARGUMENT"
    g = [_int(fn, bad, n, value if v is None else v, 10, 500) for n, v in
         (("red", red), ("green", green), ("blue", blue))]
    with _Call(image, rgb24=True) as call:
        _check_rgb(fn, call)
        return call.give(_check_convert_result(fn, N.GammaCorrection(call.image.handle, *g, 0, None)))


_FILTERS = {"kernel": 1, "file": 2, "mean": 3, "smooth": 4, "sharpen": 5, "sharpen-full": 6}


def convolve(image, kernel=None, *, divisor=0, type=None, size=3, intensity="mean", filter_file=None):
    """Filters the intensity of an image and moves every pixel's components by
    the change. `kernel` is an n x n array (n = 3, 5 or 7) as it is seen on
    screen: kernel[i][j] weights the pixel i - n//2 rows below and j - n//2
    columns right of the one computed. divisor 0 takes the kernel's sum.
    Without a kernel: type 'mean', 'smooth', 'sharpen', 'sharpen-full' (or
    'file' with filter_file) of `size`. intensity: 'mean' or 'weighted'."""
    fn, bad = "ColorConvolution", "IMS_BADPARAM"
    if type is None:
        type = "kernel" if kernel is not None else ("file" if filter_file else "sharpen")
    if type not in _FILTERS:
        raise PaxImageArgumentError(fn, bad, "type takes one of %s, not %r" % (", ".join(_FILTERS), type))
    if intensity not in ("mean", "weighted"):
        raise PaxImageArgumentError(fn, bad, "intensity takes 'mean' or 'weighted', not %r" % (intensity,))
    coefficients = None
    if type == "kernel":
        if kernel is None:
            raise PaxImageArgumentError(fn, bad, "type 'kernel' needs a kernel")
        k = np.asarray(kernel)
        if k.ndim != 2 or k.shape[0] != k.shape[1] or k.shape[0] not in (3, 5, 7):
            raise PaxImageArgumentError(fn, bad, "the kernel is 3 x 3, 5 x 5 or 7 x 7, not %s" % (k.shape,))
        if not np.issubdtype(k.dtype, np.integer):
            raise TypeError("%s: the kernel takes integers, not %s" % (fn, k.dtype))
        pos, neg = int(k[k > 0].sum()), int(-k[k < 0].sum())
        if np.abs(k).max() > 127 or pos > 127 or neg > 127:
            raise PaxImageArgumentError(fn, bad, "kernel weights lie in -127..127 and the positive and the "
                                        "negative ones each sum to at most 127 in magnitude")
        size = k.shape[0]
        divisor = _int(fn, bad, "divisor", divisor, -32768, 32767)
        # The library's list runs down the columns from the right one, each
        # from the top row of the picture: the kernel turned a quarter left.
        coefficients = (ctypes.c_short * (size * size + 1))(*np.rot90(k).reshape(-1).tolist(), divisor)
    elif kernel is not None:
        raise PaxImageArgumentError(fn, bad, "a kernel goes with type 'kernel' only")
    sizes = (3, 5, 7) if type in ("kernel", "mean") else (3, 5)
    if size not in sizes:
        raise PaxImageArgumentError(fn, bad, "type %r takes the sizes %s, not %r" % (type, sizes, size))
    if type == "file" and not filter_file:
        raise PaxImageArgumentError(fn, bad, "type 'file' needs filter_file")
    path = str(filter_file).encode() if type == "file" else None
    with _Call(image, rgb24=True) as call:
        _check_rgb(fn, call, "IMS_COMPRESSED", "IMS_BADDEPTH")
        status = ctypes.c_int(0)
        h = N.ColorConvolution(call.image.handle, 1, 1 if intensity == "weighted" else 0, _FILTERS[type],
                               size, path, coefficients, ctypes.byref(status), 0, None)
        if not h:
            raise PaxImageError(fn, image_status_name(status.value))
        return call.give(h)


def dither(image, method="fs4", bits=1):
    """Reduces a 4-, 8- or 24-bit image to `bits` (1, 4 or 8; 'sharp' and
    'smooth' 1 or 4) by error diffusion: 'fs4' (Floyd-Steinberg), 'burkes',
    'sierra' (Sierra lite), 'jjn' (Jarvis-Judice-Ninke), 'stucki', 'sa'
    (Stevenson-Arce), or the 2x2 block dithers 'sharp' and 'smooth'. 1 bit is
    black and white; 4 bits the 8 corners of the colour cube; 8 bits 3-3-2."""
    fn = "Dither" + {"fs4": "FS4", "jjn": "JJN", "sa": "SA"}.get(method, str(method).capitalize())
    if method not in N.DITHERS:
        raise PaxImageArgumentError("dither", "IMS_BADPARAM", "method takes one of %s, not %r"
                                    % (", ".join(N.DITHERS), method))
    allowed = (1, 4) if method in ("sharp", "smooth") else (1, 4, 8)
    if isinstance(bits, bool) or bits not in allowed:
        raise PaxImageArgumentError(fn, "IMS_BADPARAM", "bits takes %s, not %r" % (allowed, bits))
    with _Call(image) as call:
        im = call.image
        if im.tag != 0:
            raise PaxImageArgumentError(fn, "IMS_COMPRESSED", "the image holds %s values; convert it to rgb first"
                                        % im.model)
        if bits >= im.bits or im.bits not in (4, 8, 24):
            raise PaxImageArgumentError(fn, "IMS_BADBITS", "%d bits from a %d-bit image" % (bits, im.bits))
        h = N.DITHERS[method](im.handle, bits)
        if not h:  # every check has passed: only memory can fail now
            raise PaxImageError(fn, "IMS_NOMEMORY")
        return call.give(h)


def ordered(image, type=0):
    """Black and white by a threshold matrix (type 0..6: 0 and 2 clustered
    dots, 1 lines, 3 irregular, 4 Bayer 8x8, 5 and 6 dispersed) over the
    image's grey levels. Images other than 8-bit grey are made grey first
    (Rec. 601 weights, rounded: (299 R + 587 G + 114 B + 500) / 1000)."""
    fn = "DitherOrdered"
    type = _int(fn, "IMS_BADPARAM", "type", type, 0, 6)
    with _Call(image) as call:
        im = call.image
        if im.tag != 0:
            raise PaxImageArgumentError(fn, "IMS_COMPRESSED", "the image holds %s values" % im.model)
        palette = im.palette()
        if not (im.bits == 8 and len(palette) == 256 and (palette == np.arange(256)[:, None]).all()):
            a = im.to_numpy()
            rgb = a.palette[a] if getattr(a, "palette", None) is not None else a
            rgb = np.repeat(rgb[..., None], 3, axis=2) if rgb.ndim == 2 else rgb
            rgb = rgb.astype(np.int32)
            grey = ((299 * rgb[..., 0] + 587 * rgb[..., 1] + 114 * rgb[..., 2] + 500) // 1000).astype(np.uint8)
            im = Image.from_numpy(grey)
            call.temps.append(im)
        h = N.DitherOrdered(im.handle, type)
        if not h:
            raise PaxImageError(fn, "IMS_NOMEMORY")
        return call.give(h)


def convert_value(value, to, from_="rgb"):
    """One colour value converted between models by the library's single-value
    conversion: a tuple of 3 bytes (4 for CMYK: C, M, Y, K)."""
    f, t = model_code(from_, "from_"), model_code(to, "to")
    n = 4 if f == 4 else 3
    value = tuple(value)
    if len(value) != n:
        raise PaxImageArgumentError("convert_value", "CCE_BADARGUMENT", "a %s value has %d components, not %d"
                                    % (N.MODELS[f - 1], n, len(value)))
    src = (ctypes.c_ubyte * 4)(*[_int("convert_value", "CCE_BADARGUMENT", "value", v, 0, 255) for v in value])
    if f == t:
        return tuple(src[:n])
    conversion = N.single_conversion(f, t)
    if t == 4:
        q = conversion(src)
        return (q.c, q.m, q.y, q.k)
    dst = (ctypes.c_ubyte * 3)()
    conversion(dst, src)
    return tuple(dst)
