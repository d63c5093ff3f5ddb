// Desaturate: every pixel becomes the grey of its HSI lightness.
#include "column_walk.h"
#include "desaturate.h"

#include <algorithm>

using namespace hueadjust;

namespace hueadjust {

void DesaturatePixel(const BYTE rgb[3], BYTE out[3]) {
    BYTE hsi[3];
    RGBtoHSI(hsi, rgb);
    hsi[1] = 0;
    HSItoRGB(out, hsi);
}

GreyTable::GreyTable() {
    for (int i = 0; i < 256; ++i) {
        BYTE hsi[3] = {0, 0, static_cast<BYTE>(i)};
        HSItoRGB(grey[i].data(), hsi);
    }
}

void DesaturatePixelFast(const GreyTable &table, const BYTE rgb[3], BYTE out[3]) {
    int sum = std::max({rgb[0], rgb[1], rgb[2]}) + std::min({rgb[0], rgb[1], rgb[2]});
    const auto &g = table.grey[sum >> 1];
    out[0] = g[0];
    out[1] = g[1];
    out[2] = g[2];
}

} // namespace hueadjust

extern "C" PAXAPI HDIB PAXCALL Desaturate(HDIB hDib, int mode, HWND owner) {
    ThreadState *state = GetThreadState();
    state->convertError = CCE_NONE;
    state->cancelled = 0;
    if (!hDib) return Fail(state, CCE_BADARGUMENT);
    auto dialog = [&] { return RunParamDialog("DesaturateUI", hDib); };
    auto makePixel = [] {
        return [table = GreyTable()](const BYTE rgb[3], BYTE out[3]) {
            DesaturatePixelFast(table, rgb, out);
            return true;
        };
    };
    return RunColumnAdjustment(state, hDib, mode, owner, dialog, makePixel);
}
