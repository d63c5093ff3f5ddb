// The table pixel of Desaturate against the straight one for every RGB value.
#include "desaturate.h"

#include <gtest/gtest.h>

#include <algorithm>

TEST(DesaturateExhaustive, TableEqualsStraightPixelForEveryColour) {
    hueadjust::GreyTable table;
    long checked = 0, distinctInputs = 0;
    int lastR = -1;
    for (int r = 0; r < 256; ++r)
        for (int g = 0; g < 256; ++g)
            for (int b = 0; b < 256; ++b) {
                BYTE rgb[3] = {BYTE(r), BYTE(g), BYTE(b)}, a[3], t[3];
                hueadjust::DesaturatePixel(rgb, a);
                hueadjust::DesaturatePixelFast(table, rgb, t);
                ASSERT_TRUE(a[0] == t[0] && a[1] == t[1] && a[2] == t[2])
                    << r << ", " << g << ", " << b;
                ASSERT_TRUE(a[0] == a[1] && a[1] == a[2]);
                ASSERT_EQ(a[0], (std::max({r, g, b}) + std::min({r, g, b})) / 2);
                ++checked;
                if (r != lastR) ++distinctInputs, lastR = r;
            }
    EXPECT_EQ(checked, 256L * 256 * 256);
    EXPECT_EQ(distinctInputs, 256); // the sweep really varied the first channel
}
