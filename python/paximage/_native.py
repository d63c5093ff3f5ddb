"""Loading the PaxImage library and declaring its exports for ctypes.

Every global block that crosses into Python goes through this module: blocks
the package allocates (`alloc`) and every image handle an export returns
(adopted by the export's result check), until `free` gives it back. The
register of live blocks is what the package's leak checks count.
"""
import ctypes
import ctypes.util
import os
import sys
import threading
from ctypes import POINTER, c_char_p, c_int, c_short, c_size_t, c_ubyte, c_uint, c_uint32, c_void_p

from ._errors import LibraryNotFoundError, PaxImageError

MODELS = ("rgb", "yuv", "cmy", "cmyk", "yiq", "hsv", "hsi", "xyz", "lab")  # codes 1..9
GHND = 0x0042
GMEM_INVALID_HANDLE = 0x8000
GMEM_LOCKCOUNT = 0x00FF

if os.name == "nt":
    LIBRARY_NAMES = ("PAXIMGUser.dll",)
else:
    LIBRARY_NAMES = ("libPAXIMGUser.so", "libPAXIMGUser.so.12")


def _prefixes():
    """Install prefixes to look in: the one the package itself sits under
    (<prefix>/lib/pythonX.Y/site-packages/paximage), then Python's own."""
    here = os.path.dirname(os.path.abspath(__file__))
    found = []
    parts = here.split(os.sep)
    for i in range(len(parts) - 1, 0, -1):
        if parts[i] in ("lib", "lib64", "Lib"):
            found.append(os.sep.join(parts[:i]) or os.sep)
            break
    for p in (sys.prefix, sys.base_prefix, "/usr/local", "/usr"):
        if p not in found:
            found.append(p)
    return found


def candidate_paths():
    """The files to try, in order, when PAXIMAGE_LIBRARY is not set."""
    here = os.path.dirname(os.path.abspath(__file__))
    paths = [os.path.join(here, n) for n in LIBRARY_NAMES]
    sub = ("bin", "lib") if os.name == "nt" else ("lib", "lib64")
    for prefix in _prefixes():  # an installed library goes by its versioned name first
        for d in sub:
            paths += [os.path.join(prefix, d, n) for n in reversed(LIBRARY_NAMES)]
    seen = set()
    return [p for p in paths if not (p in seen or seen.add(p))]


def _load():
    """PAXIMAGE_LIBRARY when set (a file, or a folder holding the library),
    else beside the package, else an install prefix, else the loader's own
    search. Only an explicit PAXIMAGE_LIBRARY is tried alone."""
    tried = []
    env = os.environ.get("PAXIMAGE_LIBRARY")
    if env:
        paths = [os.path.join(env, n) for n in LIBRARY_NAMES] if os.path.isdir(env) else [env]
        for p in paths:
            try:
                return ctypes.CDLL(os.path.abspath(p)), os.path.abspath(p)
            except OSError as e:
                tried.append("%s (PAXIMAGE_LIBRARY): %s" % (p, e))
        raise LibraryNotFoundError("cannot load the PaxImage library; looked in:\n  " + "\n  ".join(tried))
    for p in candidate_paths():
        if not os.path.exists(p):
            tried.append(p + ": not there")
            continue
        try:
            return ctypes.CDLL(p), p
        except OSError as e:
            tried.append("%s: %s" % (p, e))
    names = list(LIBRARY_NAMES)
    found = ctypes.util.find_library("PAXIMGUser")
    if found and found not in names:
        names.append(found)
    for n in names:
        try:
            return ctypes.CDLL(n), n
        except OSError as e:
            tried.append("%s (the loader's search): %s" % (n, e))
    raise LibraryNotFoundError(
        "cannot load the PaxImage library; set PAXIMAGE_LIBRARY to its path. Looked in:\n  "
        + "\n  ".join(tried))


lib, library_path = _load()
_kernel = ctypes.WinDLL("kernel32") if os.name == "nt" else lib

# Global memory (exported by the Linux build; kernel32 on Windows).
GlobalAlloc = _kernel.GlobalAlloc
GlobalAlloc.argtypes, GlobalAlloc.restype = [c_uint, c_size_t], c_void_p
GlobalLock = _kernel.GlobalLock
GlobalLock.argtypes, GlobalLock.restype = [c_void_p], c_void_p
GlobalUnlock = _kernel.GlobalUnlock
GlobalUnlock.argtypes, GlobalUnlock.restype = [c_void_p], c_int
GlobalFree = _kernel.GlobalFree
GlobalFree.argtypes, GlobalFree.restype = [c_void_p], c_void_p
GlobalSize = _kernel.GlobalSize
GlobalSize.argtypes, GlobalSize.restype = [c_void_p], c_size_t
GlobalFlags = _kernel.GlobalFlags
GlobalFlags.argtypes, GlobalFlags.restype = [c_void_p], c_uint

# The register of blocks the package holds: handle -> what made it.
_live = {}
_live_lock = threading.Lock()


def alloc(nbytes):
    h = GlobalAlloc(GHND, nbytes)
    if not h:
        raise PaxImageError("GlobalAlloc", message="cannot allocate a block of %d bytes" % nbytes)
    with _live_lock:
        _live[h] = "GlobalAlloc"
    return h


def adopt(h, origin):
    with _live_lock:
        _live[h] = origin
    return h


def free(h):
    with _live_lock:
        owned = _live.pop(h, None)
    if owned is not None:
        GlobalFree(h)


def disown(h):
    with _live_lock:
        _live.pop(h, None)


def live_blocks():
    """Handles the package holds now (the leak checks count these)."""
    with _live_lock:
        return dict(_live)


def _adopt_result(result, func, args):
    # A handle an export returns belongs to the caller from that moment, unless
    # it is the caller's own handle given back.
    if result and result != args[0]:
        adopt(result, func.__name__)
    return result


def _declare(name, restype, *argtypes):
    f = getattr(lib, name)
    f.argtypes, f.restype = list(argtypes), restype
    if restype is c_void_p and argtypes and argtypes[0] is c_void_p:
        f.errcheck = _adopt_result
    return f


class CMYKQUAD(ctypes.Structure):
    _fields_ = [("c", c_ubyte), ("m", c_ubyte), ("y", c_ubyte), ("k", c_ubyte)]


Bytes = POINTER(c_ubyte)
GetLastColorConvertError = _declare("GetLastColorConvertError", c_uint32)
GetPaxImageVersion = _declare("GetPaxImageVersion", None, c_char_p, c_int)
ConvertDIBColorSpace = _declare("ConvertDIBColorSpace", c_void_p, c_void_p, c_int, c_int, c_int, c_void_p)
SplitColorChannels = _declare("SplitColorChannels", c_int, c_void_p, POINTER(c_void_p), c_ubyte)
ColorHueSaturation = _declare("ColorHueSaturation", c_void_p, c_void_p, c_int, c_int, c_int, c_uint,
                              c_uint, c_int, c_void_p)
Desaturate = _declare("Desaturate", c_void_p, c_void_p, c_int, c_void_p)
ReplaceColor = _declare("ReplaceColor", c_void_p, c_void_p, Bytes, Bytes, c_int, c_int, c_int, c_int,
                        c_void_p)
ColorCMYKLevels = _declare("ColorCMYKLevels", c_void_p, c_void_p, c_int, c_int, c_int, c_int, c_int,
                           c_void_p)
ColorBrightnessContrast = _declare("ColorBrightnessContrast", c_void_p, c_void_p, c_short, c_short, c_int)
GammaCorrection = _declare("GammaCorrection", c_void_p, c_void_p, c_int, c_int, c_int, c_int, c_void_p)
ColorConvolution = _declare("ColorConvolution", c_void_p, c_void_p, c_int, c_int, c_short, c_short,
                            c_char_p, POINTER(c_short), POINTER(c_int), c_int, c_void_p)
DITHERS = {name: _declare(export, c_void_p, c_void_p, c_int) for name, export in (
    ("fs4", "DitherFS4"), ("burkes", "DitherBurkes"), ("sierra", "DitherSierra"), ("jjn", "DitherJJN"),
    ("stucki", "DitherStucki"), ("sa", "DitherSA"), ("sharp", "DitherSharp"), ("smooth", "DitherSmooth"))}
DitherOrdered = _declare("DitherOrdered", c_void_p, c_void_p, c_int)

_SINGLE = {}


def single_conversion(source, destination):
    """The exported conversion of one colour value between two models."""
    key = (source, destination)
    if key not in _SINGLE:
        name = MODELS[source - 1].upper() + "to" + MODELS[destination - 1].upper()
        if destination == 4:
            _SINGLE[key] = _declare(name, CMYKQUAD, Bytes)
        else:
            _SINGLE[key] = _declare(name, c_void_p, Bytes, Bytes)
    return _SINGLE[key]
