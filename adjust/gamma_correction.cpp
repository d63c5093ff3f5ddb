// GammaCorrection: a copy of a 24-bit image with each colour component v
// raised to ln g / ln 100 for its channel's gamma g (100 leaves it alone).
// Codes go to convertError; progress counts columns, five to a step.
//
// Choices beyond the plain rules:
// - Gamma values that the parameter dialog leaves outside 10..500 are refused
//   with CCE_BADARGUMENT, as the same values given as arguments are: the
//   power is not meaningful for gamma 0 or below, and the range is what the
//   dialog offers.
// - The header must be 40 bytes and the colour table and rows must lie inside
//   the block (width not negative); otherwise CCE_BADARGUMENT. biCompression
//   is not looked at: an image whose three components hold another model is
//   corrected component by component like RGB.
// - Top-down images (negative biHeight) are corrected like bottom-up ones;
//   every pixel is handled alone, so the row order does not matter.
#include "dib.h"
#include "param_dialog.h"
#include "progress.h"
#include "thread_state.h"

#include <cmath>
#include <cstring>

namespace {

constexpr int kColumnsPerStep = 5;

bool GammaInRange(int g) { return g >= 10 && g <= 500; }

// The per-component expression: trunc(v ^ (ln g / ln 100)) in double
// precision, clamped to 0..255. A table of it per channel gives exactly what
// evaluating it per pixel gives, since it depends on v and g only.
BYTE GammaOf(int v, int g) {
    double p = std::pow(static_cast<double>(v), std::log(static_cast<double>(g)) / std::log(100.0));
    p = std::trunc(p);
    if (p < 0.0) return 0;
    if (p > 255.0) return 255;
    return static_cast<BYTE>(p);
}

struct GammaTables {
    BYTE blue[256], green[256], red[256];
};

void BuildTables(int gammaRed, int gammaGreen, int gammaBlue, GammaTables *t) {
    for (int v = 0; v < 256; ++v) {
        t->red[v] = GammaOf(v, gammaRed);
        t->green[v] = GammaOf(v, gammaGreen);
        t->blue[v] = GammaOf(v, gammaBlue);
    }
}

// Columns [x0, x1) of every row; the stored bytes of a pixel are blue, green,
// red. Walked row by row within the strip: each pixel is independent, so the
// order inside one progress step is free.
void CorrectColumns(const DibLayout &img, BYTE *dstPixels, int64_t x0, int64_t x1,
                    const GammaTables &t) {
    if (x0 >= x1) return; // no columns: no row is walked, however many there are
    for (int64_t r = 0; r < img.height; ++r) {
        BYTE *p = dstPixels + r * img.stride + 3 * x0;
        for (int64_t x = x0; x < x1; ++x, p += 3) {
            p[0] = t.blue[p[0]];
            p[1] = t.green[p[1]];
            p[2] = t.red[p[2]];
        }
    }
}

HDIB Gamma(HDIB hDib, int gammaRed, int gammaGreen, int gammaBlue, int mode, HWND owner,
           ThreadState *state) {
    if (!hDib || !GammaInRange(gammaRed) || !GammaInRange(gammaGreen) || !GammaInRange(gammaBlue))
        return Fail(state, CCE_BADARGUMENT);
    BlockLock image(hDib);
    if (!image) return nullptr;
    LayoutRules rules;
    rules.depths = uint64_t{1} << 24;
    rules.topDown = true;
    const DibLayout src = LocateImage(image.data(), image.size(), rules);
    if (!src.header || !src.infoHeader) return Fail(state, CCE_BADARGUMENT);
    if (!src.depthAccepted) return nullptr;
    if (!src.ok()) return Fail(state, CCE_BADARGUMENT);

    // The result starts as a byte copy of the whole block. It is made here
    // from the lock already held rather than by DuplicateDIB, which hands
    // back a zero-filled block when its own locks fail.
    SIZE_T blockSize = image.size();
    OwnedBlock result(GlobalAlloc(GHND, blockSize));
    if (!result) return Fail(state, CCE_NOMEMORY);
    BlockLock copy(result.get());
    if (!copy) return nullptr;
    std::memcpy(copy.data(), image.data(), blockSize);

    const ModeRequest request = ReadMode(mode);
    if (request.paramDialog) {
        DialogOutcome outcome =
            RunParamDialog("GammaCorrectionUI", hDib, &gammaRed, &gammaGreen, &gammaBlue);
        if (outcome == DialogOutcome::Cancelled) return nullptr;
        if (!GammaInRange(gammaRed) || !GammaInRange(gammaGreen) || !GammaInRange(gammaBlue))
            return Fail(state, CCE_BADARGUMENT);
    }
    GammaTables tables;
    BuildTables(gammaRed, gammaGreen, gammaBlue, &tables);

    const bool progress = request.progress;
    ProgressGuard dialog;
    if (!dialog.Open(progress, owner, ProgressTotalWholeSteps(src.width, kColumnsPerStep), kColumnsPerStep))
        return nullptr;

    BYTE *dstPixels = copy.data() + (src.pixels - image.data());
    if (!progress) {
        CorrectColumns(src, dstPixels, 0, src.width, tables);
    } else {
        // One step per five columns, with the cancel test before each.
        for (int64_t x = 0; x < src.width; x += kColumnsPerStep) {
            if (state->cancelled) break;
            if (ProgressDue(state, true, x)) StepProgress();
            if (state->cancelled) break;
            int64_t end = x + kColumnsPerStep < src.width ? x + kColumnsPerStep : src.width;
            CorrectColumns(src, dstPixels, x, end, tables);
        }
    }

    copy.Unlock();
    image.Unlock();
    dialog.Close();
    if (state->cancelled) return nullptr;
    return result.Release();
}

} // namespace

extern "C" HDIB PAXCALL GammaCorrection(HDIB hDib, int gammaRed, int gammaGreen, int gammaBlue,
                                        int mode, HWND owner) {
    ThreadState *state = GetThreadState();
    state->convertError = CCE_NONE;
    state->cancelled = 0;
    return Gamma(hDib, gammaRed, gammaGreen, gammaBlue, mode, owner, state);
}
