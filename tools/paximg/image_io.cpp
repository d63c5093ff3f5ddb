// Reading and writing images, and the packed DIBs that hold them in memory.
//
// Every image the tool hands to the library is a packed DIB in a movable,
// zero-filled global block (GHND): a 40-byte header, the colour table, then
// bottom-up rows padded to 4 bytes. Files are read whole and checked against
// their own headers before anything is copied.
#include "paximg.h"

#include "stb_image.h"
#include "stb_image_write.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>

#include <sys/stat.h>

#ifdef _WIN32
#include <fcntl.h>
#include <io.h>
#include <process.h>
#else
#include <unistd.h>
#endif

namespace paximg {

namespace {

// The library's row engines count pixels in signed 16 bits, so no side may
// exceed 32767; a block is also kept under 1 GiB.
constexpr long kMaxSide = 32767;
constexpr uint64_t kMaxBlock = 1ull << 30;

uint16_t Le16(const uint8_t *p) { return (uint16_t)(p[0] | p[1] << 8); }
uint32_t Le32(const uint8_t *p) {
    return (uint32_t)p[0] | (uint32_t)p[1] << 8 | (uint32_t)p[2] << 16 | (uint32_t)p[3] << 24;
}
void Put16(uint8_t *p, uint32_t v) {
    p[0] = (uint8_t)v;
    p[1] = (uint8_t)(v >> 8);
}
void Put32(uint8_t *p, uint32_t v) {
    for (int i = 0; i < 4; ++i) p[i] = (uint8_t)(v >> (8 * i));
}

std::vector<uint8_t> ReadStandardInput() {
#ifdef _WIN32
    _setmode(_fileno(stdin), _O_BINARY);
#endif
    std::vector<uint8_t> bytes;
    uint8_t buffer[65536];
    for (size_t n; (n = std::fread(buffer, 1, sizeof buffer, stdin)) > 0;) {
        bytes.insert(bytes.end(), buffer, buffer + n);
        if (bytes.size() > kMaxBlock + 4096) Fail("the standard input is too large");
    }
    if (std::ferror(stdin)) Fail("cannot read the standard input");
    return bytes;
}

std::vector<uint8_t> ReadWholeFile(const std::string &path) {
    if (path == "-") return ReadStandardInput();
    struct stat info;
    if (stat(path.c_str(), &info) == 0 && (info.st_mode & S_IFMT) == S_IFDIR)
        Fail("'" + path + "' is a directory");
    std::ifstream in(path, std::ios::binary);
    if (!in) Fail("cannot open '" + path + "': " + std::strerror(errno));
    in.seekg(0, std::ios::end);
    std::streamoff size = in.tellg();
    if (size < 0) Fail("cannot read '" + path + "'");
    if ((uint64_t)size > kMaxBlock + 4096)
        Fail("'" + path + "' is too large (" + std::to_string(size) + " bytes)");
    in.seekg(0, std::ios::beg);
    std::vector<uint8_t> bytes((size_t)size);
    if (size > 0 && !in.read(reinterpret_cast<char *>(bytes.data()), size))
        Fail("cannot read '" + path + "'");
    return bytes;
}

void CheckSize(const std::string &path, long width, long height) {
    if (width <= 0 || height <= 0)
        Fail("'" + path + "' has no pixels (" + std::to_string(width) + " x " +
             std::to_string(height) + ")");
    if (width > kMaxSide || height > kMaxSide)
        Fail("'" + path + "' is " + std::to_string(width) + " x " + std::to_string(height) +
             " pixels; the library takes at most " + std::to_string(kMaxSide) +
             " pixels a side");
}

// Run-length rows (RLE8 at 8 bits, RLE4 at 4), bottom-up: pairs of a count
// and a value, or 0 and an escape (0 end of row, 1 end of picture, 2 a jump
// right and up, 3 or more: that many literal pixels, padded to 2 bytes).
// Pixels a jump or an early end skips keep index 0.
template <typename Malformed>
void DecodeRle(const std::vector<uint8_t> &f, size_t at, uint32_t bits, long width, long height,
               const DibView &v, Malformed malformed) {
    long x = 0, y = 0; // y counts stored rows, bottom first
    auto put = [&](unsigned index) {
        if (x >= width || y >= height) malformed("a run goes past the end of a row");
        uint8_t *row = v.Row((int)(height - 1 - y));
        if (bits == 8) row[x] = (uint8_t)index;
        else row[x / 2] |= (uint8_t)((index & 15) << (x % 2 ? 0 : 4));
        ++x;
    };
    auto byte = [&]() -> unsigned {
        if (at >= f.size()) malformed("the run-length data is truncated");
        return f[at++];
    };
    while (true) {
        const unsigned count = byte(), value = byte();
        if (count > 0) {
            for (unsigned i = 0; i < count; ++i) put(bits == 8 ? value : (i % 2 ? value & 15 : value >> 4));
        } else if (value == 0) {
            x = 0;
            if (++y > height) malformed("more rows than the header declares");
        } else if (value == 1) {
            return;
        } else if (value == 2) {
            x += (long)byte();
            y += (long)byte();
            if (x > width || y > height) malformed("a jump leaves the picture");
        } else {
            const size_t literal = bits == 8 ? value : (value + 1) / 2;
            for (unsigned i = 0; i < value; ++i) put(bits == 8 ? byte() : (i % 2 ? f[at - 1] & 15 : byte() >> 4));
            if (literal % 2) byte();
        }
    }
}

Dib ReadBmp(const std::string &path, const std::vector<uint8_t> &f) {
    auto malformed = [&](const std::string &why) -> void {
        Fail("'" + path + "' is not a valid BMP file: " + why);
    };
    if (f.size() < 14 + 12) malformed("the file is truncated");
    const uint32_t offBits = Le32(&f[10]);
    const uint32_t hs = Le32(&f[14]);
    const bool core = hs == 12;
    if (!core && hs != 40 && hs != 52 && hs != 56 && hs != 108 && hs != 124)
        Fail("'" + path + "' has a BMP header of " + std::to_string(hs) +
             " bytes, which is not supported");
    if (f.size() < 14 + (uint64_t)hs) malformed("the file is truncated");
    const uint8_t *h = &f[14];
    long width, height;
    uint32_t bits, compression = 0, clrUsed = 0;
    int32_t xppm = 0, yppm = 0;
    if (core) {
        width = Le16(h + 4);
        height = Le16(h + 6);
        bits = Le16(h + 10);
    } else {
        width = (int32_t)Le32(h + 4);
        height = (int32_t)Le32(h + 8);
        bits = Le16(h + 14);
        compression = Le32(h + 16);
        xppm = (int32_t)Le32(h + 24);
        yppm = (int32_t)Le32(h + 28);
        clrUsed = Le32(h + 32);
    }
    if (bits != 1 && bits != 4 && bits != 8 && bits != 24 && bits != 32)
        Fail("'" + path + "' has " + std::to_string(bits) +
             " bits per pixel; the library takes 1, 4, 8, 24 and 32");
    bool topDown = false;
    if (height < 0) {
        if (height == INT32_MIN) malformed("bad height");
        height = -height;
        topDown = true;
    }
    CheckSize(path, width, height);

    // Bit fields are taken only when they spell plain 8-bit B, G, R bytes.
    uint64_t tableAt = 14 + (uint64_t)hs;
    if (compression == 3 && bits == 32 && !core) {
        // The three masks follow the first 40 header bytes, inside a longer
        // header or after a 40-byte one (the table then starts after them).
        if (hs == 40) tableAt += 12;
        const uint8_t *masks = h + 40;
        if (f.size() < 14 + 40 + 12) malformed("the file is truncated");
        if (Le32(masks) != 0xFF0000 || Le32(masks + 4) != 0xFF00 || Le32(masks + 8) != 0xFF)
            Fail("'" + path + "' uses bit fields other than 8-bit R, G, B; not supported");
        compression = 0;
    } else if ((compression == 1 && bits == 8) || (compression == 2 && bits == 4)) {
        if (topDown) malformed("run-length rows must be stored bottom-up");
    } else if (compression == 1 || compression == 2 || compression == 3 || compression == 4 ||
               compression == 5) {
        Fail("'" + path + "' is a compressed BMP (" + std::to_string(compression) +
             "); only uncompressed BMP files are supported");
    } else if (compression != 0) {
        int model = ModelOfTag(compression);
        if (!model) Fail("'" + path + "' has an unknown compression " + std::to_string(compression));
        if (bits != (model == MODEL_CMYK ? 32u : 24u))
            malformed(std::string("a ") + ModelName(model) + " image must have " +
                      (model == MODEL_CMYK ? "32" : "24") + " bits per pixel");
    }

    uint32_t entries = 0;
    if (bits <= 8) {
        uint32_t full = 1u << bits;
        entries = clrUsed ? clrUsed : full;
        if (entries > full) malformed("the colour table has more entries than the depth allows");
    }
    const uint32_t entrySize = core ? 3 : 4;
    if (tableAt + (uint64_t)entries * entrySize > f.size()) malformed("the file is truncated");

    const uint64_t stride = RowStride((int)width, (int)bits);
    const uint64_t imageBytes = stride * (uint64_t)height;
    if (40 + (uint64_t)entries * 4 + imageBytes > kMaxBlock)
        Fail("'" + path + "' is too large for memory (" + std::to_string(imageBytes) +
             " bytes of pixels)");
    const bool rle = compression == 1 || compression == 2;
    if (!rle && (uint64_t)offBits + imageBytes > f.size()) malformed("the file is truncated");
    if (rle && offBits > f.size()) malformed("the file is truncated");

    Dib dib = NewDib((int)width, (int)height, (int)bits, bits <= 8 ? entries : 0);
    {
        DibView v(dib.get());
        BITMAPINFOHEADER &bi = v.Header();
        bi.biCompression = rle ? 0 : compression;
        bi.biXPelsPerMeter = xppm;
        bi.biYPelsPerMeter = yppm;
        bi.biClrUsed = (bits <= 8 && clrUsed) ? clrUsed : 0;
        for (uint32_t i = 0; i < (bits <= 8 ? entries : 0); ++i) {
            const uint8_t *e = &f[tableAt + (uint64_t)i * entrySize];
            v.Table()[i] = RGBQUAD{e[0], e[1], e[2], 0};
        }
        if (rle) {
            DecodeRle(f, offBits, bits, width, height, v, malformed);
            return dib;
        }
        // The file's rows are bottom-up unless its height was negative.
        for (long row = 0; row < height; ++row) {
            const uint8_t *src = &f[offBits + (uint64_t)row * stride];
            long y = topDown ? row : height - 1 - row;
            std::memcpy(v.Row((int)y), src, stride);
        }
    }
    return dib;
}

// The orientation a JPEG's EXIF block asks for (1..8; 1 when it has none):
// the APP1 segment "Exif", then tag 0x0112 of the first TIFF directory.
int ExifOrientation(const std::vector<uint8_t> &f) {
    size_t at = 2;
    while (at + 4 <= f.size() && f[at] == 0xFF) {
        const unsigned marker = f[at + 1];
        const size_t length = (size_t)f[at + 2] << 8 | f[at + 3];
        if (marker == 0xDA || marker == 0xD9 || length < 2) break; // image data: no more headers
        const size_t body = at + 4, end = at + 2 + length;
        if (end > f.size()) break;
        if (marker == 0xE1 && length >= 8 + 8 && std::memcmp(&f[body], "Exif\0\0", 6) == 0) {
            const uint8_t *t = &f[body + 6];
            const size_t size = end - body - 6;
            const bool little = t[0] == 'I';
            auto u16 = [&](size_t o) -> unsigned { return o + 2 > size ? 0 : little ? t[o] | t[o + 1] << 8 : t[o] << 8 | t[o + 1]; };
            auto u32 = [&](size_t o) -> size_t { return (size_t)u16(little ? o + 2 : o) << 16 | u16(little ? o : o + 2); };
            const size_t dir = u32(4);
            for (unsigned i = 0, n = u16(dir); i < n; ++i) {
                const size_t entry = dir + 2 + 12 * (size_t)i;
                if (u16(entry) == 0x0112) {
                    const unsigned o = u16(entry + 8);
                    return o >= 1 && o <= 8 ? (int)o : 1;
                }
            }
        }
        at = end;
    }
    return 1;
}

Dib ReadStb(const std::string &path, const std::vector<uint8_t> &f, const char *kind) {
    if (f.size() > (size_t)INT32_MAX) Fail("'" + path + "' is too large");
    int w = 0, h = 0, comp = 0;
    const int len = (int)f.size();
    if (!stbi_info_from_memory(f.data(), len, &w, &h, &comp))
        Fail("'" + path + "' is not a valid " + kind + " file: " + stbi_failure_reason());
    CheckSize(path, w, h);
    unsigned char *pixels = stbi_load_from_memory(f.data(), len, &w, &h, &comp, 0);
    if (!pixels)
        Fail("'" + path + "' is not a valid " + kind + " file: " + stbi_failure_reason());
    struct Free {
        unsigned char *p;
        ~Free() { stbi_image_free(p); }
    } guard{pixels};
    CheckSize(path, w, h);
    if (stbi_is_16_bit_from_memory(f.data(), len))
        std::fprintf(stderr, "paximg: note: '%s' has 16-bit samples; they are reduced to 8 bits\n", path.c_str());
    // A JPEG is turned upright as its EXIF orientation asks: output pixel
    // (x, y) comes from source pixel (sx, sy).
    const int orientation = kind[0] == 'J' ? ExifOrientation(f) : 1;
    const bool swap = orientation >= 5;
    const int ow = swap ? h : w, oh = swap ? w : h;
    auto source = [&](int x, int y, int &sx, int &sy) {
        switch (orientation) {
        case 2: sx = w - 1 - x, sy = y; break;
        case 3: sx = w - 1 - x, sy = h - 1 - y; break;
        case 4: sx = x, sy = h - 1 - y; break;
        case 5: sx = y, sy = x; break;
        case 6: sx = y, sy = h - 1 - x; break;
        case 7: sx = w - 1 - y, sy = h - 1 - x; break;
        case 8: sx = w - 1 - y, sy = x; break;
        default: sx = x, sy = y;
        }
    };
    const bool grey = comp < 3;
    Dib dib = NewDib(ow, oh, grey ? 8 : 24, grey ? 256 : 0);
    DibView v(dib.get());
    if (grey)
        for (int i = 0; i < 256; ++i) v.Table()[i] = RGBQUAD{(BYTE)i, (BYTE)i, (BYTE)i, 0};
    for (int y = 0; y < oh; ++y) {
        uint8_t *row = v.Row(y);
        for (int x = 0; x < ow; ++x) {
            int sx, sy;
            source(x, y, sx, sy);
            const uint8_t *src = pixels + ((size_t)sy * w + sx) * comp;
            // Transparent pixels are laid over white.
            int alpha = (comp == 2 || comp == 4) ? src[comp - 1] : 255;
            auto over = [&](int c) { return (uint8_t)((c * alpha + 255 * (255 - alpha) + 127) / 255); };
            if (grey) {
                row[x] = over(src[0]);
            } else {
                row[3 * x] = over(src[2]);
                row[3 * x + 1] = over(src[1]);
                row[3 * x + 2] = over(src[0]);
            }
        }
    }
    return dib;
}

} // namespace

size_t RowStride(int width, int bits) {
    return (((size_t)width * (size_t)bits + 31) / 32) * 4;
}

Dib NewDib(int width, int height, int bits, uint32_t entries) {
    const size_t stride = RowStride(width, bits);
    const uint64_t size = 40 + (uint64_t)entries * 4 + (uint64_t)stride * (uint64_t)height;
    if (size > kMaxBlock) Fail("image too large for memory");
    try {
        Dib dib = pax::Image::Create(width, height, bits, entries);
        {
            pax::Lock lock(dib.get());
            lock.header().biXPelsPerMeter = lock.header().biYPelsPerMeter = 2835; // 72 dots per inch
        }
        return dib;
    } catch (const pax::Error &) {
        Fail("out of memory for a " + std::to_string(width) + " x " + std::to_string(height) + " image");
    }
}

DibView::DibView(HGLOBAL block) : lock_(block), base_(lock_.data()) {
    const SIZE_T size = lock_.blockSize();
    auto bad = [&](const char *why) { Fail(std::string("the image block is not a valid packed DIB: ") + why); };
    if (size < 40) bad("smaller than its header");
    const BITMAPINFOHEADER &bi = Header();
    if (bi.biSize != 40) bad("header size is not 40");
    if (bi.biWidth <= 0 || bi.biHeight <= 0 || bi.biWidth > kMaxSide || bi.biHeight > kMaxSide)
        bad("bad dimensions");
    const int bits = bi.biBitCount;
    if (bits != 1 && bits != 4 && bits != 8 && bits != 24 && bits != 32) bad("bad depth");
    entries_ = bi.biClrUsed ? bi.biClrUsed : (bits <= 8 ? 1u << bits : 0);
    if (entries_ > 256) bad("colour table too large");
    stride_ = RowStride(bi.biWidth, bits);
    used_ = 40 + (size_t)entries_ * 4 + stride_ * (size_t)bi.biHeight;
    if (used_ > size) bad("smaller than its header declares");
    pixels_ = base_ + 40 + (size_t)entries_ * 4;
}

void DibView::PixelRGB(int x, int y, uint8_t rgb[3]) const {
    const uint8_t *row = Row(y);
    const int bits = Bits();
    if (bits >= 24) {
        const uint8_t *p = row + (size_t)x * (bits / 8);
        rgb[0] = p[2];
        rgb[1] = p[1];
        rgb[2] = p[0];
        return;
    }
    unsigned index;
    if (bits == 8) index = row[x];
    else if (bits == 4) index = (row[x / 2] >> (x % 2 ? 0 : 4)) & 15;
    else index = (row[x / 8] >> (7 - x % 8)) & 1;
    if (index >= entries_) index = 0;
    const RGBQUAD &q = Table()[index];
    rgb[0] = q.rgbRed;
    rgb[1] = q.rgbGreen;
    rgb[2] = q.rgbBlue;
}

Dib ReadImage(const std::string &path) {
    std::vector<uint8_t> f = ReadWholeFile(path);
    if (f.size() >= 2 && f[0] == 'B' && f[1] == 'M') return ReadBmp(path, f);
    if (f.size() >= 8 && std::memcmp(f.data(), "\x89PNG\r\n\x1a\n", 8) == 0)
        return ReadStb(path, f, "PNG");
    if (f.size() >= 3 && f[0] == 0xFF && f[1] == 0xD8 && f[2] == 0xFF)
        return ReadStb(path, f, "JPEG");
    if (f.empty()) Fail("'" + path + "' is empty");
    Fail("'" + path + "' is not a BMP, PNG or JPEG file");
}

std::vector<uint8_t> EncodeBmp(HGLOBAL dib) {
    DibView v(dib);
    std::vector<uint8_t> out(14 + v.UsedBytes());
    out[0] = 'B';
    out[1] = 'M';
    Put32(&out[2], (uint32_t)out.size());
    Put32(&out[10], 14 + 40 + v.TableEntries() * 4);
    std::memcpy(&out[14], v.Base(), v.UsedBytes());
    // The header in the file keeps the model tag; the size field is made exact.
    Put32(&out[14 + 20], (uint32_t)(v.Stride() * (size_t)v.Height()));
    (void)Put16;
    return out;
}

namespace {
int g_jpegQuality = 90;

// PNG (quality 0) or JPEG of an RGB image. An image whose colours are all
// grey (a palette of grey entries only) is written with one grey channel.
std::vector<uint8_t> EncodeStb(HGLOBAL dib, int quality) {
    DibView v(dib);
    const char *kind = quality ? "JPEG" : "PNG";
    if (v.Tag() != 0) {
        int model = ModelOfTag(v.Tag());
        Fail(std::string("the image holds ") + (model ? ModelName(model) : "non-RGB") + " values; " + kind +
             " holds only RGB images, write a .bmp file instead");
    }
    bool grey = v.Bits() <= 8;
    for (uint32_t i = 0; grey && i < v.TableEntries(); ++i)
        grey = v.Table()[i].rgbRed == v.Table()[i].rgbGreen && v.Table()[i].rgbGreen == v.Table()[i].rgbBlue;
    const int w = v.Width(), h = v.Height(), channels = grey ? 1 : 3;
    std::vector<uint8_t> pixels((size_t)w * h * channels);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            uint8_t rgb[3];
            v.PixelRGB(x, y, rgb);
            std::memcpy(&pixels[((size_t)y * w + x) * channels], rgb, (size_t)channels);
        }
    std::vector<uint8_t> out;
    auto sink = [](void *context, void *data, int size) {
        auto *o = static_cast<std::vector<uint8_t> *>(context);
        o->insert(o->end(), static_cast<uint8_t *>(data), static_cast<uint8_t *>(data) + size);
    };
    const int ok = quality ? stbi_write_jpg_to_func(sink, &out, w, h, channels, pixels.data(), quality)
                           : stbi_write_png_to_func(sink, &out, w, h, channels, pixels.data(), w * channels);
    if (!ok) Fail(std::string(kind) + " encoding failed");
    return out;
}
} // namespace

std::vector<uint8_t> EncodePng(HGLOBAL dib) { return EncodeStb(dib, 0); }
void SetJpegQuality(int quality) { g_jpegQuality = quality; }

bool WritableExtension(const std::string &ext) {
    return ext == ".bmp" || ext == ".dib" || ext == ".png" || ext == ".jpg" || ext == ".jpeg";
}

std::string Extension(const std::string &path) {
    size_t slash = path.find_last_of("/\\");
    size_t dot = path.find_last_of('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return "";
    std::string e = path.substr(dot);
    std::transform(e.begin(), e.end(), e.begin(), [](unsigned char c) { return (char)std::tolower(c); });
    return e;
}

bool FileExists(const std::string &path) {
    std::FILE *f = std::fopen(path.c_str(), "rb");
    if (f) std::fclose(f);
    return f != nullptr;
}

void WriteImage(HGLOBAL dib, const std::string &path, const std::string &format) {
    const std::string ext = path == "-" ? "." + format : Extension(path);
    if (ext == ".bmp" || ext == ".dib") WriteFileAtomically(path, EncodeBmp(dib));
    else if (ext == ".png") WriteFileAtomically(path, EncodePng(dib));
    else if (ext == ".jpg" || ext == ".jpeg") WriteFileAtomically(path, EncodeStb(dib, g_jpegQuality));
    else UsageError("cannot tell the format of '" + path + "': name it .bmp, .png or .jpg");
}

void WriteFileAtomically(const std::string &path, const std::vector<uint8_t> &bytes) {
    if (path == "-") {
#ifdef _WIN32
        _setmode(_fileno(stdout), _O_BINARY);
#endif
        if ((!bytes.empty() && std::fwrite(bytes.data(), 1, bytes.size(), stdout) != bytes.size()) ||
            std::fflush(stdout) != 0)
            Fail("cannot write to the standard output");
        return;
    }
#ifdef _WIN32
    const int pid = _getpid();
#else
    const int pid = (int)getpid();
#endif
    const std::string temp = path + ".partial-" + std::to_string(pid);
    std::FILE *f = std::fopen(temp.c_str(), "wb");
    if (!f) Fail("cannot write '" + path + "': " + std::strerror(errno));
    bool ok = bytes.empty() || std::fwrite(bytes.data(), 1, bytes.size(), f) == bytes.size();
    int err = errno;
    ok = (std::fflush(f) == 0) && ok;
    if (std::fclose(f) != 0) ok = false;
    if (!ok) {
        std::remove(temp.c_str());
        Fail("cannot write '" + path + "': " + std::strerror(err ? err : EIO));
    }
#ifdef _WIN32
    if (!MoveFileExA(temp.c_str(), path.c_str(), MOVEFILE_REPLACE_EXISTING)) {
#else
    if (std::rename(temp.c_str(), path.c_str()) != 0) {
#endif
        std::remove(temp.c_str());
        Fail("cannot write '" + path + "': the finished file could not be moved into place");
    }
}

Dib ExpandTo24(HGLOBAL dib) {
    DibView v(dib);
    if (v.Tag() != 0) Fail("the image is not an RGB image");
    Dib out = NewDib(v.Width(), v.Height(), 24, 0);
    DibView o(out.get());
    o.Header().biXPelsPerMeter = v.Header().biXPelsPerMeter;
    o.Header().biYPelsPerMeter = v.Header().biYPelsPerMeter;
    for (int y = 0; y < v.Height(); ++y) {
        uint8_t *row = o.Row(y);
        for (int x = 0; x < v.Width(); ++x) {
            uint8_t rgb[3];
            v.PixelRGB(x, y, rgb);
            row[3 * x] = rgb[2];
            row[3 * x + 1] = rgb[1];
            row[3 * x + 2] = rgb[0];
        }
    }
    return out;
}

Dib ToGrey8(HGLOBAL dib) {
    DibView v(dib);
    if (v.Tag() != 0) Fail("the image is not an RGB image");
    Dib out = NewDib(v.Width(), v.Height(), 8, 256);
    DibView o(out.get());
    for (int i = 0; i < 256; ++i) o.Table()[i] = RGBQUAD{(BYTE)i, (BYTE)i, (BYTE)i, 0};
    for (int y = 0; y < v.Height(); ++y) {
        uint8_t *row = o.Row(y);
        for (int x = 0; x < v.Width(); ++x) {
            uint8_t rgb[3];
            v.PixelRGB(x, y, rgb);
            // Rec. 601 luma in integers, rounded.
            row[x] = (uint8_t)((299 * rgb[0] + 587 * rgb[1] + 114 * rgb[2] + 500) / 1000);
        }
    }
    return out;
}

} // namespace paximg
