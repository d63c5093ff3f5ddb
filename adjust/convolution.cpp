// ColorConvolution: filters the intensity of a 24-bit image with an n x n
// kernel (n = 3, 5 or 7) and adds each pixel's change of intensity to its
// blue, green and red bytes. Kernels come from the caller's array, a filter
// file, or the built-in engines. The result goes to a new image or over the
// caller's pixels. Codes go through the caller's errorCode variable.
//
// Source rows pass once through an accumulator ring of n work rows (see
// convolution.h), so memory is O(n x width) whatever the height; output row
// r is written once source row r + h has been fed, which is after the last
// read of source row r, so filtering in place gives the same pixels as
// filtering into a new image.
//
// Choices beyond the plain rules:
// - Even sizes (4 and 6) are refused with IMS_BADPARAM: a kernel needs a
//   centre pixel.
// - A filter file shorter than 2 x n x n + 2 bytes is refused with
//   IMS_BADPARAM; nothing past its end is used.
// - Images narrower than n - 1 pixels are filtered by the same rule as any
//   other: columns outside the row are copies of its first or last pixel.
// - Top-down images (negative biHeight) are filtered as the picture they
//   show: the result is the same as for the bottom-up image of that picture,
//   so a kernel points the same way on the screen for both.
// - Widths above 21844 (the widest whose row stride fits 16 bits), negative
//   widths, and more than 32767 rows are refused with IMS_BADPARAM, as are
//   rows that run past the caller's block and, for a new image, a
//   biSizeImage smaller than the rows (the new image could not hold them).
//   A biSizeImage larger than the caller's block is no fault: the new image
//   is simply that large.
// - A null errorCode is refused before anything else: the call returns 0
//   and has no way to say why.
#include "convolution.h"
#include "dib.h"
#include "param_dialog.h"
#include "progress.h"
#include "thread_state.h"

#include <cstring>
#include <optional>

namespace {

constexpr int kRowsPerStep = 5;
constexpr int64_t kMaxWidth = 21844; // 24-bit stride 65532, the widest in 16 bits
constexpr int64_t kMaxRows = 32767;
constexpr int kCoefficientLimit = 127; // keeps every kernel sum within 127 x 255

struct Kernel {
    KernelGrid grid = {};
    int divisor = 1;
};

// Header checks in their fixed order, then the geometry checks. The rows
// follow the 40-byte header directly, whatever biClrUsed says; they must lie
// inside the caller's block. A new image is biSizeImage bytes (the rows' size
// when it is 0) after the header, and must hold every row; in place,
// biSizeImage is not looked at.
PaxImageStatus CheckImage(const BlockLock &image, bool newImage, DibLayout *layout) {
    LayoutRules rules;
    rules.depths = uint64_t{1} << 24;
    rules.topDown = true;
    rules.rowsStart = RowsStart::AfterHeader;
    rules.sizeImage = newImage ? SizeImageRule::SizesResult : SizeImageRule::Ignored;
    *layout = LocateImage(image.data(), image.size(), rules);
    const DibLayout &l = *layout;
    if (!l.header || !l.infoHeader) return IMS_BADPARAM;
    if (l.header->biCompression != BI_RGB) return IMS_COMPRESSED;
    if (!l.depthAccepted) return IMS_BADDEPTH;
    if ((l.width & 0xFFFF) == 0 || (l.heightField & 0xFFFF) == 0) return IMS_EMPTYIMAGE;
    if (l.width < 0 || l.width > kMaxWidth || l.heightField > kMaxRows || l.heightField < -kMaxRows)
        return IMS_BADPARAM;
    if (!l.ok()) return IMS_BADPARAM;
    return IMS_OK;
}

PaxImageStatus CheckArguments(int filterType, int n, const char *filterFile,
                              const short *coefficients) {
    if (filterType < CONV_KERNEL || filterType > CONV_SHARPEN_FULL) return IMS_BADPARAM;
    if (filterType == CONV_FILE && !filterFile) return IMS_BADPARAM;
    if (filterType == CONV_KERNEL && !coefficients) return IMS_BADPARAM;
    if (static_cast<uint16_t>(n - 3) > 4) return IMS_BADPARAM;
    if (n > 5 && filterType != CONV_KERNEL && filterType != CONV_MEAN) return IMS_BADPARAM;
    if (n % 2 == 0) return IMS_BADPARAM;
    return IMS_OK;
}

// The n x n + 1 values of the filter file, little-endian, from its start.
// A file that cannot be opened or is shorter than that is refused.
bool ReadFilterFile(const char *path, int n, int16_t *values) {
    OFSTRUCT info;
    HFILE file = OpenFile(path, &info, OF_READ);
    if (file == 0 || file == HFILE_ERROR) return false;
    BYTE bytes[2 * (kMaxKernel * kMaxKernel + 1)];
    UINT wanted = static_cast<UINT>(2 * (n * n + 1));
    UINT got = _lread(file, bytes, wanted);
    _lclose(file);
    if (got != wanted) return false;
    for (int i = 0; i < n * n + 1; ++i)
        values[i] = static_cast<int16_t>(bytes[2 * i] | (bytes[2 * i + 1] << 8));
    return true;
}

// Coefficient list k[0 .. n*n-1] and D into the grid (grid[j][i] = k[i*n + j]),
// the limits checked, and the divisor taken.
bool TakeCoefficients(const int16_t *values, int n, Kernel *kernel) {
    int positive = 0, negative = 0;
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j) {
            int v = values[i * n + j];
            kernel->grid[j][i] = static_cast<int16_t>(v);
            if (v > kCoefficientLimit || v < -kCoefficientLimit) return false;
            if (v > 0) positive += v;
            else negative -= v;
        }
    if (positive > kCoefficientLimit || negative > kCoefficientLimit) return false;
    int d = values[n * n];
    if (d == 0) d = positive - negative;
    if (d == 0) d = 1;
    if (d < 0) {
        // D = -32768 becomes 32768 here; as a 16-bit value it would stay
        // -32768, but every sum is smaller in magnitude, so both give Q = 0.
        d = -d;
        for (int a = 0; a < kMaxKernel; ++a)
            for (int b = 0; b < kMaxKernel; ++b)
                kernel->grid[a][b] = static_cast<int16_t>(-kernel->grid[a][b]);
    }
    kernel->divisor = d;
    return true;
}

int BuiltInDivisor(int filterType, int n) {
    switch (filterType) {
    case CONV_MEAN: return n * n;
    case CONV_SMOOTH: return n == 3 ? 16 : 44;
    default: return 1;
    }
}

HGLOBAL AllocateTwice(int64_t bytes) {
    HGLOBAL block = GlobalAlloc(GHND, static_cast<SIZE_T>(bytes));
    if (!block) block = GlobalAlloc(GHND, static_cast<SIZE_T>(bytes));
    return block;
}

// Two independent selects, which compile to conditional moves: the clamps of
// a filtered image are too irregular for branches.
inline BYTE ClampByte(int v) {
    v = v < 0 ? 0 : v;
    v = v > 255 ? 255 : v;
    return static_cast<BYTE>(v);
}

// Output row from the ring's first row: Q = S / d by the divisor rule, and
// Q minus the unfiltered intensity added to each byte of the source pixel.
template <typename Quotient>
void EmitRowWith(const int16_t *ringRow, int width, Quotient quotient, const BYTE *src, BYTE *dst) {
    const int16_t *sums = ringRow;
    const int16_t *intensity = ringRow + width;
    for (int c = 0; c < width; ++c) {
        int delta = quotient(sums[c]) - intensity[c];
        dst[3 * c] = ClampByte(src[3 * c] + delta);
        dst[3 * c + 1] = ClampByte(src[3 * c + 1] + delta);
        dst[3 * c + 2] = ClampByte(src[3 * c + 2] + delta);
    }
}

// The divisor's rule is chosen once per row, not per pixel: the same rule
// that SumQuotient applies to a single sum.
void EmitRow(const int16_t *ringRow, int width, const SumQuotient &quotient, const BYTE *src,
             BYTE *dst) {
    quotient.WithRule([&](auto rule) { EmitRowWith(ringRow, width, rule, src, dst); });
}

void Feed(int filterType, const BYTE *row, int intensityMode, int16_t width, int16_t **ring,
          int16_t n, const Kernel &kernel) {
    switch (filterType) {
    case CONV_KERNEL:
    case CONV_FILE:
        ConvolveRowKernel(row, intensityMode, width, ring, n, kernel.grid,
                          static_cast<int16_t>(kernel.divisor));
        break;
    case CONV_MEAN: ConvolveRowMean(row, intensityMode, width, ring, n); break;
    case CONV_SMOOTH: ConvolveRowSmooth(row, intensityMode, width, ring, n); break;
    case CONV_SHARPEN: ConvolveRowSharpen(row, intensityMode, width, ring, n); break;
    case CONV_SHARPEN_FULL: ConvolveRowSharpenFull(row, intensityMode, width, ring, n); break;
    default: break;
    }
}

HDIB Convolve(HDIB hDib, int newImage, int intensityMode, short filterType, short kernelSize,
              const char *filterFile, const short *coefficients, int *errorCode, int mode,
              HWND owner) {
    if (!hDib) return Fail(errorCode, IMS_BADPARAM);
    BlockLock image(hDib);
    if (!image) return Fail(errorCode, IMS_LOCKFAILED);
    DibLayout src;
    if (PaxImageStatus code = CheckImage(image, newImage != 0, &src)) return Fail(errorCode, code);
    if (PaxImageStatus code = CheckArguments(filterType, kernelSize, filterFile, coefficients))
        return Fail(errorCode, code);
    const int n = kernelSize;
    const int h = n / 2;
    const int width = static_cast<int>(src.width);
    const int rows = static_cast<int>(src.height);

    Kernel kernel;
    if (filterType == CONV_KERNEL || filterType == CONV_FILE) {
        int16_t values[kMaxKernel * kMaxKernel + 1];
        if (filterType == CONV_FILE) {
            if (!ReadFilterFile(filterFile, n, values)) return Fail(errorCode, IMS_BADPARAM);
        } else {
            std::memcpy(values, coefficients, sizeof(int16_t) * static_cast<size_t>(n * n + 1));
        }
        if (!TakeCoefficients(values, n, &kernel)) return Fail(errorCode, IMS_BADPARAM);
    } else {
        kernel.divisor = BuiltInDivisor(filterType, n);
    }

    // The ring's work rows: n rows of 2 x width 16-bit values.
    OwnedBlock work(AllocateTwice(static_cast<int64_t>(n) * width * 4));
    if (!work) return Fail(errorCode, IMS_NOMEMORY);
    BlockLock workLock(work.get());
    if (!workLock) return Fail(errorCode, IMS_LOCKFAILED);

    // A new image: the 40 header bytes unchanged, then biSizeImage bytes (the
    // rows' size when it is 0), zero until rows are written.
    OwnedBlock result;
    std::optional<BlockLock> resultLock;
    BYTE *dstPixels = src.pixels;
    if (newImage) {
        result.Reset(AllocateTwice(kDibHeaderSize + src.sizeImage));
        if (!result) return Fail(errorCode, IMS_NOMEMORY);
        resultLock.emplace(result.get());
        if (!*resultLock) return Fail(errorCode, IMS_LOCKFAILED);
        std::memcpy(resultLock->data(), image.data(), kDibHeaderSize);
        dstPixels = resultLock->data() + kDibHeaderSize;
    }

    const ModeRequest request = ReadMode(mode);
    if (request.paramDialog) {
        if (RunParamDialog("ColorConvUI", hDib, newImage, intensityMode, filterType, kernelSize,
                           filterFile, coefficients, errorCode) == DialogOutcome::Cancelled)
            return nullptr;
    }

    ThreadState *state = GetThreadState();
    const bool progress = request.progress;
    ProgressGuard dialog;
    if (!dialog.Open(progress, owner, ProgressTotalWholeSteps(rows - n, kRowsPerStep), kRowsPerStep))
        return nullptr;

    int16_t *workRows[kMaxKernel];
    auto *workBase = reinterpret_cast<int16_t *>(workLock.data());
    for (int k = 0; k < n; ++k) {
        workRows[k] = workBase + static_cast<int64_t>(k) * 2 * width;
        std::memset(workRows[k], 0, sizeof(int16_t) * 2 * static_cast<size_t>(width));
    }
    int16_t *ring[kMaxKernel] = {};
    const SumQuotient quotient(kernel.divisor);

    for (int y = -h; y <= rows + h - 1; ++y) {
        if (progress) {
            if (ProgressDue(state, true, y)) StepProgress();
            if (state->cancelled) return nullptr; // the guards close and release
        }
        TurnRing(ring, workRows, n, y);
        int sourceRow = y < 0 ? 0 : y > rows - 1 ? rows - 1 : y;
        Feed(filterType, src.RowFromBottom(sourceRow), intensityMode, static_cast<int16_t>(width),
             ring, static_cast<int16_t>(n), kernel);
        if (y >= h) {
            const BYTE *from = src.RowFromBottom(y - h);
            BYTE *to = dstPixels + (from - src.pixels);
            EmitRow(ring[0], width, quotient, from, to);
        }
    }

    workLock.Unlock();
    work.Reset();
    image.Unlock();
    dialog.Close();
    if (!newImage) return hDib;
    resultLock->Unlock();
    return result.Release();
}

} // namespace

extern "C" HDIB PAXCALL ColorConvolution(HDIB hDib, int newImage, int intensityMode,
                                         short filterType, short kernelSize, const char *filterFile,
                                         const short *coefficients, int *errorCode, int mode,
                                         HWND owner) {
    if (!errorCode) return nullptr;
    *errorCode = IMS_OK;
    return Convolve(hDib, newImage, intensityMode, filterType, kernelSize, filterFile, coefficients,
                    errorCode, mode, owner);
}
