// Run from a folder without the dialog library: each operation asked for its
// parameter dialog stores CCE_NODIALOGENTRY and goes on with its own values.
#include "census.h"
#include "dib_builder.h"
#include "thread_state.h"
#include "tone_support.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <string>

namespace {

using paxtest::BlockBytes;
using paxtest::CceName;

TEST(ToneMissingDialog, EveryOperationGoesOnWithItsOwnValues) {
    ASSERT_EQ(LoadLibraryA("PAXDlgs.dll"), nullptr) << "a dialog library is reachable";
    HGLOBAL image = paxtest::MakeRandomDib24(9, 7, 1);
    ThreadState *state = GetThreadState();
    int code = 0;
    // Each operation run plainly and asked for its dialog (flag or mode).
    struct Case {
        const char *what;
        std::function<HDIB(int)> run;
        std::vector<int> modes;
    } cases[] = {
        {"contrast", [&](int m) { return ColorBrightnessContrast(image, 30, -20, m); }, {1}},
        {"gamma", [&](int m) { return GammaCorrection(image, 20, 300, 100, m, nullptr); }, {2, 3}},
        {"convolution",
         [&](int m) { return ColorConvolution(image, 1, 1, CONV_SHARPEN, 5, nullptr, nullptr, &code, m, nullptr); },
         {2}},
    };
    for (const Case &c : cases) {
        std::vector<BYTE> plain = tonetest::Consume(c.run(0));
        ASSERT_FALSE(plain.empty()) << c.what;
        for (int mode : c.modes) {
            SCOPED_TRACE(testing::Message() << c.what << " " << mode);
#ifdef _WIN32
            if (mode == 3 && !std::getenv("DISPLAY")) continue;
#endif
            state->convertError = 0;
            state->imageStatus = 99;
            code = 9;
            EXPECT_TRUE(tonetest::Consume(c.run(mode)) == plain);
            EXPECT_EQ(CceName(state->convertError), CceName(CCE_NODIALOGENTRY));
            const std::string what = c.what;
            if (what == "contrast") {
                EXPECT_EQ(state->imageStatus, static_cast<DWORD>(IMS_OK));
            }
            if (what == "convolution") {
                EXPECT_EQ(code, IMS_OK);
            }
        }
    }
    GlobalFree(image);
}

} // namespace
