// Every image export against hostile headers: dimensions at the edges of the
// 32-bit range, colour-table counts up to 2^32 - 1, biSizeImage below the
// rows or beyond the block, and blocks too small for a header. Each call must
// answer with its code or a result, leave the caller's block as it was and
// unlocked, and leave no block or lock behind (the sanitizer build also
// proves that nothing outside a block is touched). No call may walk the rows
// of an image without columns, so the whole table runs in well under a second.
#include "census.h"
#include "dib_builder.h"
#include "image_exports.h"
#include "layout.h"
#include "thread_state.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstring>

namespace {

using paxtest::ImageExport;

constexpr LONG kSides[] = {0, 1, 0x7FFF, 0x8000, 0x7FFFFFFF, INT_MIN, -1};
constexpr DWORD kTableCounts[] = {0, 1, 0x80000000u, 0xFFFFFFFFu};
enum class SizeImage { Zero, BelowRows, BeyondBlock };

// A block of `bytes` holding as much of the header as fits, then a pattern.
HGLOBAL HostileBlock(const ImageExport &e, SIZE_T bytes, LONG w, LONG h, DWORD clrUsed,
                     SizeImage sizeImage) {
    HGLOBAL block = GlobalAlloc(GHND, bytes);
    if (bytes == 0) return block;
    BITMAPINFOHEADER hd = {};
    hd.biSize = 40;
    hd.biWidth = w;
    hd.biHeight = h;
    hd.biPlanes = 1;
    hd.biBitCount = static_cast<WORD>(e.depth);
    hd.biCompression = e.compression;
    hd.biClrUsed = clrUsed;
    hd.biSizeImage = sizeImage == SizeImage::Zero ? 0 : sizeImage == SizeImage::BelowRows ? 1
                                                                                         : static_cast<DWORD>(bytes + 64);
    BYTE *p = static_cast<BYTE *>(GlobalLock(block));
    for (SIZE_T i = 0; i < bytes; ++i) p[i] = static_cast<BYTE>(i * 29 + 7);
    std::memcpy(p, &hd, std::min<SIZE_T>(bytes, sizeof hd));
    GlobalUnlock(block);
    return block;
}

void ExpectHostileAnswered(const ImageExport &e, HGLOBAL block, const char *what) {
    const std::vector<BYTE> before = paxtest::BlockBytes(block);
    const paxtest::Snapshot census = paxtest::TakeSnapshot();
    ThreadState *state = GetThreadState();
    state->imageStatus = IMS_OK;
    state->convertError = CCE_NONE;
    const paxtest::CallOutcome o = e.call(block, 0, nullptr);
    if (o.ok()) {
        EXPECT_EQ(o.code, 0u) << what;
    } else {
        EXPECT_NE(std::find(e.refusals.begin(), e.refusals.end(), o.code), e.refusals.end())
            << what << ": code " << o.code;
    }
    EXPECT_EQ(paxtest::LockCount(block), 0) << what;
    if (!(o.ok() && e.writesCaller)) {
        EXPECT_TRUE(paxtest::BlockBytes(block) == before) << what;
    }
    paxtest::FreeResults(o, block);
    paxtest::ExpectCensus(census, 0, what);
}

TEST(HostileHeaders, EveryImageExportAnswersWithACodeOrAResult) {
    for (const ImageExport &e : paxtest::ImageExports()) {
        SCOPED_TRACE(e.name);
        // Blocks shorter than a header: every field past the end is missing.
        for (SIZE_T bytes : {SIZE_T{0}, SIZE_T{39}}) {
            HGLOBAL block = HostileBlock(e, bytes, 1, 1, 0, SizeImage::Zero);
            ExpectHostileAnswered(e, block, (std::to_string(bytes) + " bytes").c_str());
            GlobalFree(block);
        }
        for (SIZE_T bytes : {SIZE_T{40}, SIZE_T{100}})
            for (LONG w : kSides)
                for (LONG h : kSides)
                    for (DWORD clrUsed : kTableCounts)
                        for (SizeImage s : {SizeImage::Zero, SizeImage::BelowRows, SizeImage::BeyondBlock}) {
                            HGLOBAL block = HostileBlock(e, bytes, w, h, clrUsed, s);
                            const std::string what = std::to_string(bytes) + " bytes, " + std::to_string(w) +
                                                     " x " + std::to_string(h) + ", table " +
                                                     std::to_string(clrUsed) + ", size image " +
                                                     std::to_string(static_cast<int>(s));
                            ExpectHostileAnswered(e, block, what.c_str());
                            GlobalFree(block);
                        }
    }
}

} // namespace
