/* PaxImage for C++: a thin, header-only layer over paximage.h.
 *
 *   pax::Image      owns one global block (moves; GlobalFree when it goes)
 *   pax::Lock       a scoped GlobalLock with the header, table and rows
 *   pax::Model, pax::Filter, pax::DitherMethod, pax::Intensity   typed codes
 *   pax::Error      what a failed call left: the export, the code's name,
 *                   number and message (from the same table as paximage.h)
 *
 * Every operation family has a function that returns the result as an Image
 * or throws pax::Error. Nothing here changes what the library computes.
 */
#ifndef PAXIMAGE_HPP
#define PAXIMAGE_HPP

#include "paximage.h"

#include <cstddef>
#include <cstring>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace pax {

enum class Model : int {
    RGB = MODEL_RGB, YUV = MODEL_YUV, CMY = MODEL_CMY, CMYK = MODEL_CMYK, YIQ = MODEL_YIQ,
    HSV = MODEL_HSV, HSI = MODEL_HSI, XYZ = MODEL_XYZ, LAB = MODEL_LAB
};
enum class Filter : short {
    Kernel = CONV_KERNEL, File = CONV_FILE, Mean = CONV_MEAN, Smooth = CONV_SMOOTH,
    Sharpen = CONV_SHARPEN, SharpenFull = CONV_SHARPEN_FULL
};
enum class DitherMethod { FS4, Burkes, Sierra, JJN, Stucki, SA, Sharp, Smooth };
/* How the intensity-only filters measure intensity. */
enum class Intensity { Mean = 0, Weighted = 1 };
/* The mode argument of the adjustments: progress dialog, parameter dialog. */
enum Mode { kPlain = 0, kProgress = 1, kDialog = 2 };

/* One entry of the library's code tables. */
struct Code {
    const char *name;   /* "CCE_BADMODEL"; null when the value is not in the table */
    long value;
    const char *message;
};
inline Code ConvertErrorCode(long value) {
#define PAX_HPP_CODE(n, v, m) if (value == (v)) return Code{#n, (v), m};
    PAX_CCE_CODES(PAX_HPP_CODE)
    return Code{nullptr, value, "unknown code"};
}
inline Code ImageStatusCode(long value) {
    PAX_IMS_CODES(PAX_HPP_CODE)
#undef PAX_HPP_CODE
    return Code{nullptr, value, "unknown code"};
}

/* A failed call. code().value is 0 when the export gave no reason (a refused
 * depth, or Cancel pressed in a progress dialog). */
class Error : public std::runtime_error {
public:
    Error(const char *operation, const Code &code)
        : std::runtime_error(Text(operation, code)), operation_(operation), code_(code) {}
    const char *operation() const noexcept { return operation_; }
    const Code &code() const noexcept { return code_; }

private:
    static std::string Text(const char *operation, const Code &c) {
        if (c.value == 0) return std::string(operation) + " returned no result";
        return std::string(operation) + " failed: " + c.message + " (" +
               (c.name ? c.name : "code") + ", " + std::to_string(c.value) + ")";
    }
    const char *operation_;
    Code code_;
};

/* Owns one global memory block; a result of the library is one of these. */
class Image {
public:
    Image() noexcept = default;
    explicit Image(HDIB block) noexcept : block_(block) {}
    ~Image() { reset(); }
    Image(Image &&o) noexcept : block_(o.release()) {}
    Image &operator=(Image &&o) noexcept {
        if (this != &o) reset(o.release());
        return *this;
    }
    Image(const Image &) = delete;
    Image &operator=(const Image &) = delete;

    /* A new zero-filled movable block with a 40-byte header for width x height
     * pixels of `bits`, `entries` colour-table entries, rows padded to 4 bytes. */
    static Image Create(long width, long height, int bits, unsigned entries = 0) {
        const size_t stride = ((size_t)width * (size_t)bits + 31) / 32 * 4;
        const size_t rows = stride * (size_t)(height < 0 ? -height : height);
        Image image(GlobalAlloc(GHND, 40 + (size_t)entries * 4 + rows));
        if (!image) throw Error("GlobalAlloc", ImageStatusCode(IMS_NOMEMORY));
        BITMAPINFOHEADER *h = static_cast<BITMAPINFOHEADER *>(GlobalLock(image.get()));
        if (!h) throw Error("GlobalLock", ImageStatusCode(IMS_LOCKFAILED));
        h->biSize = 40;
        h->biWidth = (LONG)width;
        h->biHeight = (LONG)height;
        h->biPlanes = 1;
        h->biBitCount = (WORD)bits;
        h->biSizeImage = (DWORD)rows;
        h->biClrUsed = (bits <= 8 && entries != (1u << bits)) ? entries : 0;
        GlobalUnlock(image.get());
        return image;
    }

    HDIB get() const noexcept { return block_; }
    explicit operator bool() const noexcept { return block_ != nullptr; }
    HDIB release() noexcept { return std::exchange(block_, nullptr); }
    void reset(HDIB block = nullptr) noexcept {
        if (block_ && block_ != block) GlobalFree(block_);
        block_ = block;
    }

private:
    HDIB block_ = nullptr;
};

/* A scoped lock on a packed DIB: the header, the colour table and the rows,
 * each row counted from the top of the picture whatever the storage order.
 * The caller vouches that the block holds what its header says. */
class Lock {
public:
    explicit Lock(HGLOBAL block) : block_(block) {
        base_ = static_cast<BYTE *>(block ? GlobalLock(block) : nullptr);
        if (!base_) throw Error("GlobalLock", ImageStatusCode(IMS_LOCKFAILED));
    }
    ~Lock() { GlobalUnlock(block_); }
    Lock(const Lock &) = delete;
    Lock &operator=(const Lock &) = delete;

    BITMAPINFOHEADER &header() const { return *reinterpret_cast<BITMAPINFOHEADER *>(base_); }
    size_t blockSize() const { return GlobalSize(block_); }
    long width() const { return header().biWidth; }
    long height() const { return header().biHeight < 0 ? -(long)header().biHeight : header().biHeight; }
    int bits() const { return header().biBitCount; }
    unsigned tableEntries() const {
        const BITMAPINFOHEADER &h = header();
        return h.biClrUsed ? h.biClrUsed : (h.biBitCount <= 8 ? 1u << h.biBitCount : 0u);
    }
    RGBQUAD *table() const { return reinterpret_cast<RGBQUAD *>(base_ + header().biSize); }
    size_t stride() const { return ((size_t)width() * (size_t)bits() + 31) / 32 * 4; }
    BYTE *pixels() const { return base_ + header().biSize + (size_t)tableEntries() * 4; }
    /* Row y of the picture (0 = top). */
    BYTE *row(long y) const {
        const long stored = header().biHeight < 0 ? y : height() - 1 - y;
        return pixels() + (size_t)stored * stride();
    }
    BYTE *data() const { return base_; }

private:
    HGLOBAL block_;
    BYTE *base_ = nullptr;
};

namespace detail {
inline Image ResultOrConvertError(HDIB result, const char *operation) {
    if (!result) throw Error(operation, ConvertErrorCode((long)GetLastColorConvertError()));
    return Image(result);
}
} // namespace detail

inline std::string Version() {
    char text[64] = {};
    GetPaxImageVersion(text, (int)sizeof text);
    return text;
}

/* Colour values and buffers: `count` bytes of `from` values into `to` values
 * (CMYK values are 4 bytes, every other model 3). */
inline std::vector<BYTE> ConvertValues(Model from, Model to, const std::vector<BYTE> &source) {
    const size_t n = from == Model::CMYK ? 4 : 3, m = to == Model::CMYK ? 4 : 3;
    std::vector<BYTE> out(source.size() / n * m);
    if (ConvertColorSpace(source.data(), out.data(), (int)source.size(), (int)from, (int)to, 0,
                          nullptr) == 0 && !source.empty())
        throw Error("ConvertColorSpace", ConvertErrorCode((long)GetLastColorConvertError()));
    return out;
}

/* With from == to the library hands back the image itself: `image` is then
 * moved into the result. */
inline Image Convert(Image &image, Model from, Model to, bool progress = false, HWND owner = nullptr) {
    HDIB result = ConvertDIBColorSpace(image.get(), (int)from, (int)to, progress ? 1 : 0, owner);
    if (result && result == image.get()) return std::move(image);
    return detail::ResultOrConvertError(result, "ConvertDIBColorSpace");
}

/* One grey image per component, in the library's order. */
inline std::vector<Image> Split(HDIB image, Model model) {
    HGLOBAL channels[4] = {};
    const int n = SplitColorChannels(image, channels, (BYTE)model);
    if (n <= 0) throw Error("SplitColorChannels", ConvertErrorCode((long)GetLastColorConvertError()));
    std::vector<Image> out;
    for (int k = 0; k < n && k < 4; ++k) out.emplace_back(channels[k]);
    return out;
}

inline Image HueSaturation(HDIB image, int hue, int saturation, int lightness, unsigned hueFrom,
                           unsigned hueTo, int mode = kPlain, HWND owner = nullptr) {
    return detail::ResultOrConvertError(
        ColorHueSaturation(image, hue, saturation, lightness, hueFrom, hueTo, mode, owner),
        "ColorHueSaturation");
}
inline Image Desaturate(HDIB image, int mode = kPlain, HWND owner = nullptr) {
    return detail::ResultOrConvertError(::Desaturate(image, mode, owner), "Desaturate");
}
/* target in pixel byte order (B, G, R), tolerance as R, G, B. */
inline Image ReplaceColor(HDIB image, const BYTE target[3], const BYTE tolerance[3], int hue,
                          int saturation, int lightness, int mode = kPlain, HWND owner = nullptr) {
    return detail::ResultOrConvertError(
        ::ReplaceColor(image, target, tolerance, hue, saturation, lightness, mode, owner),
        "ReplaceColor");
}
inline Image CMYKLevels(HDIB image, int cyan, int magenta, int yellow, int black,
                        int mode = kPlain, HWND owner = nullptr) {
    return detail::ResultOrConvertError(
        ColorCMYKLevels(image, cyan, magenta, yellow, black, mode, owner), "ColorCMYKLevels");
}
inline Image BrightnessContrast(HDIB image, short brightness, short contrast, bool dialog = false) {
    return detail::ResultOrConvertError(
        ColorBrightnessContrast(image, brightness, contrast, dialog ? 1 : 0), "ColorBrightnessContrast");
}
inline Image Gamma(HDIB image, int red, int green, int blue, int mode = kPlain, HWND owner = nullptr) {
    return detail::ResultOrConvertError(GammaCorrection(image, red, green, blue, mode, owner),
                                        "GammaCorrection");
}

/* ColorConvolution. coefficients (Filter::Kernel): size x size weights in the
 * library's order, then the divisor; file: Filter::File. With newImage false
 * the image's own pixels are filtered and `image` is moved into the result. */
inline Image Convolve(Image &image, Filter filter, short size, const short *coefficients = nullptr,
                      const char *file = nullptr, Intensity intensity = Intensity::Mean,
                      bool newImage = true, int mode = kPlain, HWND owner = nullptr) {
    int status = 0;
    HDIB result = ColorConvolution(image.get(), newImage ? 1 : 0, (int)intensity, (short)filter, size,
                                   file, coefficients, &status, mode, owner);
    if (result && result == image.get()) return std::move(image);
    if (result) return Image(result);
    if (status != 0) throw Error("ColorConvolution", ImageStatusCode(status));
    throw Error("ColorConvolution", ConvertErrorCode((long)GetLastColorConvertError()));
}

inline Image Dither(HDIB image, DitherMethod method, int bits) {
    using Fn = HDIB(PAXCALL *)(HDIB, int);
    static const struct {
        Fn fn;
        const char *name;
    } kDithers[] = {{DitherFS4, "DitherFS4"},       {DitherBurkes, "DitherBurkes"},
                    {DitherSierra, "DitherSierra"}, {DitherJJN, "DitherJJN"},
                    {DitherStucki, "DitherStucki"}, {DitherSA, "DitherSA"},
                    {DitherSharp, "DitherSharp"},   {DitherSmooth, "DitherSmooth"}};
    const auto &d = kDithers[(int)method];
    HDIB result = d.fn(image, bits);
    if (!result) throw Error(d.name, ImageStatusCode(0));
    return Image(result);
}
inline Image Ordered(HDIB image, int type) {
    HDIB result = DitherOrdered(image, type);
    if (!result) throw Error("DitherOrdered", ImageStatusCode(0));
    return Image(result);
}

} // namespace pax

#endif
