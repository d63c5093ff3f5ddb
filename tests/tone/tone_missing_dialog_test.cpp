// Run from a folder without the dialog library: each operation asked for its
// parameter dialog stores CCE_NODIALOGENTRY and goes on with its own values.
#include "census.h"
#include "dib_builder.h"
#include "thread_state.h"

#include <gtest/gtest.h>

namespace {

using paxtest::BlockBytes;
using paxtest::CceName;

TEST(ToneMissingDialog, EveryOperationGoesOnWithItsOwnValues) {
    ASSERT_EQ(LoadLibraryA("PAXDlgs.dll"), nullptr) << "a dialog library is reachable";
    HGLOBAL image = paxtest::MakeRandomDib24(9, 7, 1);
    ThreadState *state = GetThreadState();

    HDIB plain = ColorBrightnessContrast(image, 30, -20, 0);
    state->convertError = 0;
    HDIB asked = ColorBrightnessContrast(image, 30, -20, 1);
    ASSERT_NE(asked, nullptr);
    EXPECT_EQ(CceName(state->convertError), CceName(CCE_NODIALOGENTRY));
    EXPECT_EQ(state->imageStatus, static_cast<DWORD>(IMS_OK));
    EXPECT_TRUE(BlockBytes(asked) == BlockBytes(plain));
    GlobalFree(plain);
    GlobalFree(asked);

    plain = GammaCorrection(image, 20, 300, 100, 0, nullptr);
    for (int mode : {2, 3}) {
        if (mode == 3 && !std::getenv("DISPLAY")) {
#ifdef _WIN32
            continue;
#endif
        }
        asked = GammaCorrection(image, 20, 300, 100, mode, nullptr);
        ASSERT_NE(asked, nullptr);
        EXPECT_EQ(CceName(GetLastColorConvertError()), CceName(CCE_NODIALOGENTRY));
        EXPECT_TRUE(BlockBytes(asked) == BlockBytes(plain));
        GlobalFree(asked);
    }
    GlobalFree(plain);

    int code = 0;
    plain = ColorConvolution(image, 1, 1, CONV_SHARPEN, 5, nullptr, nullptr, &code, 0, nullptr);
    state->convertError = 0;
    code = 9;
    asked = ColorConvolution(image, 1, 1, CONV_SHARPEN, 5, nullptr, nullptr, &code, 2, nullptr);
    ASSERT_NE(asked, nullptr);
    EXPECT_EQ(code, IMS_OK);
    EXPECT_EQ(CceName(state->convertError), CceName(CCE_NODIALOGENTRY));
    EXPECT_TRUE(BlockBytes(asked) == BlockBytes(plain));
    GlobalFree(plain);
    GlobalFree(asked);
    GlobalFree(image);
}

} // namespace
