#include "hue_test_util.h"

#include "dialog_double_control.h"

namespace huetest {

std::vector<Operation> Operations() {
    static const BYTE target[3] = {40, 90, 200};    // blue, green, red
    static const BYTE tolerance[3] = {60, 80, 100}; // red, green, blue
    return {
        {"ColorHueSaturation", DD_HUE_SATURATION,
         [](HDIB im, int mode, HWND owner) {
             return ColorHueSaturation(im, 100, 40, -30, 300, 120, mode, owner);
         },
         [](Rgb p) { return RefHueSaturation(p, 100, 40, -30, 300, 120); }},
        {"Desaturate", DD_DESATURATE,
         [](HDIB im, int mode, HWND owner) { return Desaturate(im, mode, owner); },
         [](Rgb p) { return RefDesaturate(p); }},
        {"ReplaceColor", DD_REPLACE_COLOR,
         [](HDIB im, int mode, HWND owner) {
             return ReplaceColor(im, target, tolerance, -150, 60, 20, mode, owner);
         },
         [](Rgb p) { return RefReplaceUnits(p, target, tolerance, Units(-150), 60, 20); }},
        {"ColorCMYKLevels", DD_CMYK_LEVELS,
         [](HDIB im, int mode, HWND owner) {
             return ColorCMYKLevels(im, 30, -60, 100, -25, mode, owner);
         },
         [](Rgb p) { return RefCmyk(p, 30, -60, 100, -25); }},
    };
}

} // namespace huetest
