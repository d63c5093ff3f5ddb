// ColorCMYKLevels: the cyan, magenta, yellow and black inks of every pixel,
// with full grey-component replacement, each scaled by its own factor.
#include "column_walk.h"
#include "hue_math.h"

using namespace hueadjust;

namespace {

constexpr int kMaxLevel = 100;

bool LevelInRange(int level) { return level >= -kMaxLevel && level <= kMaxLevel; }

} // namespace

extern "C" PAXAPI HDIB PAXCALL ColorCMYKLevels(HDIB hDib, int cyan, int magenta, int yellow,
                                               int black, int mode, HWND owner) {
    ThreadState *state = GetThreadState();
    state->convertError = CCE_NONE;
    state->cancelled = 0;
    if (!hDib || !LevelInRange(cyan) || !LevelInRange(magenta) || !LevelInRange(yellow) ||
        !LevelInRange(black))
        return Fail(state, CCE_BADARGUMENT);
    double factors[4] = {LevelFactor(cyan), LevelFactor(magenta), LevelFactor(yellow),
                         LevelFactor(black)};

    // The dialog sees and edits the factors, not the levels; whatever it
    // leaves is used unchecked (ScaleInk limits every product).
    auto dialog = [&] {
        return RunParamDialog("ColorCMYKLevelsUI", hDib, &factors[0], &factors[1], &factors[2],
                              &factors[3]);
    };
    auto makePixel = [&] {
        return [c = factors[0], m = factors[1], y = factors[2],
                k = factors[3]](const BYTE rgb[3], BYTE out[3]) {
            CMYKQUAD ink = RGBtoCMYK(rgb);
            BYTE scaled[4] = {ScaleInk(ink.c, c), ScaleInk(ink.m, m), ScaleInk(ink.y, y),
                              ScaleInk(ink.k, k)};
            CMYKtoRGB(out, scaled);
            return true;
        };
    };
    return RunColumnAdjustment(state, hDib, mode, owner, dialog, makePixel);
}
