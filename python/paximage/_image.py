"""Packed DIBs in global blocks, and their numpy and Pillow counterparts.

A packed DIB is a 40-byte header, a colour table of 4-byte (blue, green, red,
0) entries, then bottom-up rows padded to 4 bytes. A pixel of a 3-component
model stores its components reversed (blue, green, red for RGB); a CMYK pixel
stores K, Y, M, C. An image converted into another model carries the tag
code + 8 in biCompression (0 for RGB).
"""
import ctypes
import struct

import numpy as np

from . import _native as N
from ._errors import PaxImageArgumentError, PaxImageError

HEADER = struct.Struct("<IiiHHIIiiII")
PELS_PER_METRE = 2835  # 72 dots per inch


def model_code(model, argument="model"):
    """A colour model by name ('rgb', 'hsv', ...) or code (1..9) -> code."""
    if isinstance(model, str) and model.lower() in N.MODELS:
        return N.MODELS.index(model.lower()) + 1
    if isinstance(model, int) and not isinstance(model, bool) and 1 <= model <= 9:
        return model
    raise PaxImageArgumentError("paximage", "CCE_BADMODEL",
                                "%s takes one of %s (or 1..9), not %r" % (argument, ", ".join(N.MODELS), model))


def model_of_tag(tag):
    if tag == 0:
        return "rgb"
    if 10 <= tag <= 17:
        return N.MODELS[tag - 9]
    return None


def tag_of_model(code):
    return 0 if code == 1 else code + 8


def stride(width, bits):
    return (width * bits + 31) // 32 * 4


def grey_palette():
    return np.repeat(np.arange(256, dtype=np.uint8)[:, None], 3, axis=1)


def _reverse_components(src, dst):
    """dst = src[..., ::-1] for 3 or 4 bytes a pixel, at close to copying
    speed: numpy's own reversed copy walks byte by byte."""
    if src.shape[2] == 4 and src.strides[1:] == (4, 1) and dst.strides[1:] == (4, 1):
        # four bytes reversed are a 32-bit byte swap
        np.copyto(dst.view("<u4"), src.view(">u4"), casting="unsafe")
        return
    np.copyto(dst, src)  # row by row contiguous; then the outer components trade places
    np.copyto(dst[..., 0], src[..., -1])
    np.copyto(dst[..., -1], src[..., 0])
    if src.shape[2] == 4:
        np.copyto(dst[..., 1], src[..., 2])
        np.copyto(dst[..., 2], src[..., 1])


class PaxArray(np.ndarray):
    """A numpy array that remembers the colour model of the image it came
    from (`model`), and for palette indices the palette (`palette`, N x 3
    RGB) and depth (`bits`)."""

    def __array_finalize__(self, obj):
        self.model = getattr(obj, "model", "rgb")
        self.palette = getattr(obj, "palette", None)
        self.bits = getattr(obj, "bits", None)


def _tagged(array, model="rgb", palette=None, bits=None):
    if model == "rgb" and palette is None:
        return array
    out = array.view(PaxArray)
    out.model, out.palette, out.bits = model, palette, bits
    return out


class Image:
    """A packed DIB in a movable global block that this object owns.

    Use it in a `with` block or call `close()`; an unclosed image is freed when
    it is collected.
    """

    def __init__(self, handle):
        if handle not in N.live_blocks():
            raise ValueError("an Image takes a block registered with the package")
        self._handle = handle
        h = self._header()
        self.width, self.height, self.bits, self.tag = h[1], abs(h[2]), h[4], h[5]
        self.top_down = h[2] < 0  # only in blocks made elsewhere
        self.model = model_of_tag(self.tag)
        if h[0] != 40 or self.width < 0 or 40 + 4 * self.table_entries() + \
                stride(self.width, self.bits) * self.height > N.GlobalSize(handle):
            self._handle = None  # not this object's to free
            raise ValueError("the block does not hold the packed DIB its header describes")

    @classmethod
    def adopt(cls, handle):
        """Takes ownership of a packed DIB block made elsewhere (freed with
        GlobalFree by this object)."""
        N.adopt(handle, "adopted")
        try:
            return cls(handle)
        except BaseException:
            N.disown(handle)  # still the caller's
            raise

    # -- ownership -----------------------------------------------------------
    @property
    def handle(self):
        if self._handle is None:
            raise ValueError("the image is closed")
        return self._handle

    @property
    def closed(self):
        return self._handle is None

    def close(self):
        h, self._handle = getattr(self, "_handle", None), None
        if h is not None:
            N.free(h)

    def detach(self):
        """Hands the block to the caller, who frees it with GlobalFree."""
        h, self._handle = self.handle, None
        N.disown(h)
        return h

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()

    def __del__(self):
        self.close()

    def __repr__(self):
        state = "closed" if self.closed else "%dx%d, %d bits, %s" % (self.width, self.height, self.bits, self.model)
        return "<paximage.Image %s>" % state

    # -- raw access ----------------------------------------------------------
    def _locked(self):
        return _Lock(self.handle)

    def _header(self):
        with self._locked() as p:
            return HEADER.unpack(ctypes.string_at(p, 40))

    def tobytes(self):
        """The whole block: header, colour table and rows."""
        with self._locked() as p:
            return ctypes.string_at(p, N.GlobalSize(self.handle))

    def tobmp(self):
        """The image as a BMP file (the model tag kept in biCompression)."""
        dib = self.tobytes()
        off = 14 + 40 + 4 * self.table_entries()
        return struct.pack("<2sIHHI", b"BM", 14 + len(dib), 0, 0, off) + dib

    def table_entries(self):
        h = self._header()
        if h[9]:
            return h[9]
        return {1: 2, 4: 16, 8: 256}.get(h[4], 0)

    def palette(self):
        """The colour table as an N x 3 RGB array (None above 8 bits)."""
        n = self.table_entries()
        if self.bits > 8:
            return None
        with self._locked() as p:
            t = np.frombuffer(ctypes.string_at(p + 40, 4 * n), np.uint8).reshape(n, 4)
        return t[:, 2::-1].copy()

    def _rows(self, p):
        """A view of the pixel rows, top row first: height x stride bytes."""
        s = stride(self.width, self.bits)
        off = 40 + 4 * self.table_entries()
        buf = (ctypes.c_ubyte * (s * self.height)).from_address(p + off)
        rows = np.ctypeslib.as_array(buf).reshape(self.height, s)
        return rows if self.top_down else rows[::-1]

    def copy(self):
        """A new block holding the same bytes."""
        size = N.GlobalSize(self.handle)
        h = N.alloc(size)
        try:
            with _Lock(h) as dst, self._locked() as src:
                ctypes.memmove(dst, src, size)
            return Image(h)
        except BaseException:
            N.free(h)
            raise

    # -- making images -------------------------------------------------------
    @classmethod
    def new(cls, width, height, bits, tag=0, palette=None):
        entries = 0 if palette is None else len(palette)
        size = 40 + 4 * entries + stride(width, bits) * height
        h = N.alloc(size)
        try:
            with _Lock(h) as p:
                used = 0 if entries == (1 << bits if bits <= 8 else 0) else entries
                ctypes.memmove(p, HEADER.pack(40, width, height, 1, bits, tag, stride(width, bits) * height,
                                              PELS_PER_METRE, PELS_PER_METRE, used, 0), 40)
                if entries:
                    table = np.zeros((entries, 4), np.uint8)
                    table[:, :3] = np.asarray(palette, np.uint8)[:, ::-1]
                    ctypes.memmove(p + 40, table.tobytes(), 4 * entries)
            return cls(h)
        except BaseException:
            N.free(h)
            raise

    @classmethod
    def from_numpy(cls, array, model=None):
        """H x W x 3 (components in model order), H x W x 4 (C, M, Y, K), H x W
        grey, H x W bool (1 bit), or palette indices carrying `palette`."""
        a = np.asarray(array)
        model = model or getattr(array, "model", "rgb")
        code = model_code(model)
        if a.dtype == np.bool_ and a.ndim == 2:
            return cls._from_indices(a.astype(np.uint8), 1, [(0, 0, 0), (255, 255, 255)])
        if a.dtype != np.uint8:
            raise TypeError("paximage takes uint8 arrays (or a bool array for 1 bit), not %s" % a.dtype)
        palette = getattr(array, "palette", None)
        if a.ndim == 2 and palette is not None:
            bits = getattr(array, "bits", None) or (4 if len(palette) <= 16 else 8)
            return cls._from_indices(a, bits, palette)
        if a.ndim == 2:
            return cls._from_indices(a, 8, grey_palette())
        if a.ndim != 3 or a.shape[2] not in (3, 4):
            raise ValueError("paximage takes H x W, H x W x 3 or H x W x 4 arrays, not shape %s" % (a.shape,))
        if a.shape[2] == 4 and code not in (1, 4):
            code = 4
        if a.shape[2] == 3 and code == 4:
            raise ValueError("a CMYK array has 4 components a pixel")
        height, width, n = a.shape
        image = cls.new(width, height, 8 * n, tag_of_model(code))
        try:
            with image._locked() as p:
                # The block's rows in memory order (bottom row first): numpy copies
                # much faster into positive strides than into a flipped view.
                stored = image._rows(p)[::-1]
                _reverse_components(a[::-1], stored[:, :n * width].reshape(height, width, n))
        except BaseException:
            image.close()
            raise
        return image

    @classmethod
    def _from_indices(cls, indices, bits, palette):
        height, width = indices.shape
        image = cls.new(width, height, bits, 0, palette)
        try:
            with image._locked() as p:
                rows = image._rows(p)
                if bits == 8:
                    rows[:, :width] = indices
                elif bits == 4:
                    padded = np.zeros((height, width + (width & 1)), np.uint8)
                    padded[:, :width] = indices & 15
                    rows[:, :(width + 1) // 2] = padded[:, 0::2] << 4 | padded[:, 1::2]
                else:
                    packed = np.packbits(indices & 1, axis=1)
                    rows[:, :packed.shape[1]] = packed
        except BaseException:
            image.close()
            raise
        return image

    def _indices(self, rows):
        w = self.width
        if self.bits == 8:
            return rows[:, :w].copy()
        if self.bits == 4:
            b = rows[:, :(w + 1) // 2]
            return np.stack((b >> 4, b & 15), axis=2).reshape(self.height, -1)[:, :w].copy()
        return np.unpackbits(rows, axis=1, count=w)

    def to_numpy(self):
        """24 bits: H x W x 3 in model order; 32-bit CMYK: H x W x 4 (C, M, Y,
        K); 1, 4 and 8 bits with a grey colour table: H x W grey values;
        other palettes: H x W indices carrying `palette` and `bits`."""
        model = self.model or "rgb"
        with self._locked() as p:
            rows = self._rows(p)
            if self.bits in (24, 32):
                n = self.bits // 8
                pixels = rows[:, :n * self.width].reshape(self.height, self.width, n)
                out = np.empty(pixels.shape, np.uint8)
                _reverse_components(pixels, out)
                return _tagged(out, model)
            if self.bits not in (1, 4, 8):
                raise PaxImageError("to_numpy", detail="%d-bit images have no array form here" % self.bits)
            indices = self._indices(rows)
        palette = self.palette()
        full = np.zeros((1 << self.bits, 3), np.uint8)  # entries past the table read as black
        full[:min(len(palette), len(full))] = palette[:len(full)]
        if (full[:, 0] == full[:, 1]).all() and (full[:, 1] == full[:, 2]).all():
            if self.bits == 1 and full[0, 0] == 0 and full[1, 0] == 255:
                return np.multiply(indices, 255, out=indices)
            return np.take(full[:, 0], indices)
        return _tagged(indices, "rgb", palette, self.bits)

    @classmethod
    def from_pil(cls, picture):
        """Pillow modes RGB, L, P, 1 and CMYK; an RGB image whose
        info['paximage.model'] names another model keeps that tag."""
        mode = picture.mode
        if mode == "RGB":
            # Pillow packs the components reversed in C; numpy only turns the rows over.
            width, height = picture.size
            code = model_code(picture.info.get("paximage.model", "rgb"))
            bgr = np.frombuffer(picture.tobytes("raw", "BGR"), np.uint8).reshape(height, 3 * width)
            image = cls.new(width, height, 24, tag_of_model(code))
            try:
                with image._locked() as p:
                    np.copyto(image._rows(p)[::-1, :3 * width], bgr[::-1])
            except BaseException:
                image.close()
                raise
            return image
        if mode == "CMYK":
            return cls.from_numpy(np.asarray(picture), "cmyk")
        if mode == "L":
            return cls._from_indices(np.asarray(picture), 8, grey_palette())
        if mode == "1":
            return cls._from_indices(np.asarray(picture).astype(np.uint8), 1, [(0, 0, 0), (255, 255, 255)])
        if mode == "P":
            raw = picture.getpalette() or []
            pal = np.zeros((256, 3), np.uint8)
            raw = np.asarray(raw[:768], np.uint8).reshape(-1, 3)
            pal[:len(raw)] = raw
            return cls._from_indices(np.asarray(picture), 8, pal)
        raise ValueError("paximage takes Pillow images of modes RGB, L, P, 1 and CMYK, not %s; "
                         "convert it first" % mode)

    def to_pil(self):
        """24 bits: RGB (info['paximage.model'] for other models); CMYK; 1 bit
        black and white: mode 1; 8-bit grey ramp: L; other palettes: P."""
        from PIL import Image as PILImage
        if self.bits == 24:
            with self._locked() as p:
                rows = self._rows(p)[::-1]  # memory order; Pillow unpacks B, G, R bottom-up in C
                # mode RGB is never mapped onto the buffer: Pillow decodes a copy
                out = PILImage.frombuffer("RGB", (self.width, self.height), rows, "raw", "BGR", rows.shape[1], -1)
            if self.model != "rgb":
                out.info["paximage.model"] = self.model
            return out
        if self.bits == 32:
            if self.model != "cmyk":
                raise PaxImageError("to_pil", detail="32-bit RGB images have no Pillow mode here")
            return PILImage.fromarray(np.asarray(self.to_numpy()), "CMYK")
        palette = self.palette()
        with self._locked() as p:
            rows = self._rows(p)
            if self.bits == 1 and len(palette) == 2 and (palette == [[0, 0, 0], [255, 255, 255]]).all():
                # Pillow packs mode 1 the same way: most significant bit first.
                return PILImage.frombytes("1", (self.width, self.height), np.ascontiguousarray(rows).tobytes(),
                                          "raw", "1", rows.shape[1])
            indices = self._indices(rows)
        if self.bits == 8 and (palette[:, :1] == palette).all():  # a grey table: its values, mode L
            return PILImage.fromarray(self.to_numpy(), "L")
        out = PILImage.fromarray(indices, "P")
        out.putpalette(palette.reshape(-1).tolist())
        return out


class _Lock:
    def __init__(self, handle):
        self.handle = handle

    def __enter__(self):
        self.p = N.GlobalLock(self.handle)
        if not self.p:
            raise PaxImageError("GlobalLock", message="the image block could not be locked")
        return self.p

    def __exit__(self, *exc):
        N.GlobalUnlock(self.handle)
