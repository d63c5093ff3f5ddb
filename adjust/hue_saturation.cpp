// ColorHueSaturation: pixels whose HSI hue lies in a hue range are turned
// round the colour circle and have their saturation and lightness moved.
#include "column_walk.h"
#include "hue_math.h"

using namespace hueadjust;

namespace {

constexpr int kMaxHueDegrees = 180;
constexpr int kMaxAmount = 255;        // saturation and lightness, either way
constexpr UINT kMaxRangeDegrees = 360; // hueFrom and hueTo

bool AmountsInRange(int hue, int saturation, int lightness) {
    return hue >= -kMaxHueDegrees && hue <= kMaxHueDegrees && saturation >= -kMaxAmount &&
           saturation <= kMaxAmount && lightness >= -kMaxAmount && lightness <= kMaxAmount;
}

// The hue range in hue-byte units; both 0 selects every hue. False for a
// bound above 360 degrees or two equal nonzero bounds.
bool HueRange(UINT hueFrom, UINT hueTo, int *lo, int *hi) {
    if (hueFrom == 0 && hueTo == 0) {
        *lo = 0;
        *hi = kHueSteps;
        return true;
    }
    if (hueFrom > kMaxRangeDegrees || hueTo > kMaxRangeDegrees || hueFrom == hueTo) return false;
    *lo = DegreesToHueUnits(hueFrom);
    *hi = DegreesToHueUnits(hueTo);
    return true;
}

} // namespace

extern "C" PAXAPI HDIB PAXCALL ColorHueSaturation(HDIB hDib, int hue, int saturation,
                                                  int lightness, UINT hueFrom, UINT hueTo,
                                                  int mode, HWND owner) {
    int hueShift = DegreesToHueUnits(hue);
    ThreadState *state = GetThreadState();
    state->convertError = CCE_NONE;
    state->cancelled = 0;
    int lo = 0, hi = 0;
    if (!hDib || !AmountsInRange(hue, saturation, lightness) || !HueRange(hueFrom, hueTo, &lo, &hi))
        return Fail(state, CCE_BADARGUMENT);

    // The dialog's values are used as it leaves them, without a second
    // range check (see WrapHue and HueInRange for values beyond the ranges).
    auto dialog = [&] {
        return RunParamDialog("ColorHueSaturationUI", hDib, &hueShift, &saturation, &lightness,
                              &lo, &hi);
    };
    auto makePixel = [&] {
        return [shift = hueShift, saturation, lightness, lo, hi](const BYTE rgb[3], BYTE out[3]) {
            BYTE hsi[3];
            RGBtoHSI(hsi, rgb);
            if (!HueInRange(hsi[0], lo, hi)) return false;
            MoveHsi(hsi, shift, saturation, lightness, out);
            return true;
        };
    };
    return RunColumnAdjustment(state, hDib, mode, owner, dialog, makePixel);
}
