// ReplaceColor: pixels inside an RGB box round a target colour are turned
// round the colour circle and have their saturation and lightness moved.
#include "column_walk.h"
#include "hue_math.h"

#include <cstring>

using namespace hueadjust;

namespace {

constexpr int kMaxHueDegrees = 180;
constexpr int kMaxAmount = 255;

bool AmountsInRange(int hue, int saturation, int lightness) {
    return hue >= -kMaxHueDegrees && hue <= kMaxHueDegrees && saturation >= -kMaxAmount &&
           saturation <= kMaxAmount && lightness >= -kMaxAmount && lightness <= kMaxAmount;
}

// Per channel, both ends included; the bounds may lie outside 0..255.
struct ColorBox {
    int blueLo, blueHi, greenLo, greenHi, redLo, redHi;
    bool Contains(const BYTE rgb[3]) const {
        return rgb[2] >= blueLo && rgb[2] <= blueHi && rgb[1] >= greenLo && rgb[1] <= greenHi &&
               rgb[0] >= redLo && rgb[0] <= redHi;
    }
};

// target is blue, green, red (a stored pixel); tolerance is red, green, blue.
ColorBox BoxAround(const BYTE target[3], const BYTE tolerance[3]) {
    return {target[0] - tolerance[2], target[0] + tolerance[2],
            target[1] - tolerance[1], target[1] + tolerance[1],
            target[2] - tolerance[0], target[2] + tolerance[0]};
}

} // namespace

extern "C" PAXAPI HDIB PAXCALL ReplaceColor(HDIB hDib, const BYTE *target, const BYTE *tolerance,
                                            int hue, int saturation, int lightness, int mode,
                                            HWND owner) {
    // The operation's own copies of the two colours, which the dialog may edit.
    BYTE targetCopy[3] = {0, 0, 0}, toleranceCopy[3] = {0, 0, 0};
    if (target) std::memcpy(targetCopy, target, 3);
    if (tolerance) std::memcpy(toleranceCopy, tolerance, 3);
    int hueShift = DegreesToHueUnits(hue);
    ThreadState *state = GetThreadState();
    state->convertError = CCE_NONE;
    state->cancelled = 0;
    // A null colour pointer is refused like a null image.
    if (!hDib || !target || !tolerance || !AmountsInRange(hue, saturation, lightness))
        return Fail(state, CCE_BADARGUMENT);

    // The dialog's values are used as it leaves them, without a second
    // range check (see WrapHue for shifts beyond the range).
    auto dialog = [&] {
        return RunParamDialog("ReplaceColorUI", hDib, &hueShift, &saturation, &lightness,
                              targetCopy, toleranceCopy);
    };
    auto makePixel = [&] {
        return [box = BoxAround(targetCopy, toleranceCopy), shift = hueShift, saturation,
                lightness](const BYTE rgb[3], BYTE out[3]) {
            if (!box.Contains(rgb)) return false;
            BYTE hsi[3];
            RGBtoHSI(hsi, rgb);
            MoveHsi(hsi, shift, saturation, lightness, out);
            return true;
        };
    };
    return RunColumnAdjustment(state, hDib, mode, owner, dialog, makePixel);
}
