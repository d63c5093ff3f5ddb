"""The package's exceptions and the library's code tables."""

# (name, value, message) as the library's header lists them.
CONVERT_ERRORS = (
    ("CCE_NONE", 0, "no error"),
    ("CCE_NOMEMORY", 1, "the result image could not be allocated"),
    ("CCE_BADMODEL", 2, "colour model out of range or not the image's model"),
    ("CCE_NOCMYKIMAGE", 3, "the CMYK result image could not be created"),
    ("CCE_BADARGUMENT", 4, "invalid argument"),
    ("CCE_NOPROGRESS", 6, "the progress dialog could not be created"),
    ("CCE_NODIALOGENTRY", 7, "the parameter dialog library or its entry is missing"),
    ("CCE_CONVERTFAILED", 8, "converting the image to the requested model failed"),
)
IMAGE_STATUS = (
    ("IMS_OK", 0, "success"),
    ("IMS_NOMEMORY", 1, "out of memory"),
    ("IMS_BADPARAM", 8, "invalid parameter"),
    ("IMS_BADDEPTH", 13, "bit depth not handled by this operation"),
    ("IMS_LOCKFAILED", 17, "a memory block could not be locked"),
    ("IMS_COMPRESSED", 18, "compressed image"),
    ("IMS_EMPTYIMAGE", 19, "image width or height is zero"),
    ("IMS_BADBITS", 20, "requested or source bit depth not supported by the dither"),
)
_BY_NAME = {name: (value, text) for name, value, text in CONVERT_ERRORS + IMAGE_STATUS}


def convert_error_name(value):
    for name, v, _ in CONVERT_ERRORS:
        if v == value:
            return name
    return None


def image_status_name(value):
    for name, v, _ in IMAGE_STATUS:
        if v == value:
            return name
    return None


class PaxImageError(Exception):
    """A library call failed, or was refused before it was made.

    function: the export concerned; name, code, message: the library's code
    (None when the library stores none for that failure); detail: what in the
    call was wrong, when the package knows.
    """

    def __init__(self, function, name=None, detail=None, message=None):
        self.function = function
        self.name = name
        self.code, text = _BY_NAME.get(name, (None, None))
        self.message = message or text
        self.detail = detail
        parts = [function + " failed"]
        if self.message:
            parts.append(": " + self.message)
        if name:
            parts.append(" (%s, %d)" % (name, self.code))
        if detail:
            parts.append(": " + detail)
        super().__init__("".join(parts))


class PaxImageArgumentError(PaxImageError, ValueError):
    """An argument the library would refuse, refused before the call with the
    code the library gives it."""


class LibraryNotFoundError(ImportError):
    """libPAXIMGUser.so / PAXIMGUser.dll could not be loaded; the message names
    every place that was tried."""
