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

// The layout rule itself, at the edges where sizes would overflow or just fit.
TEST(LocateImage, FaultsAndSizesAtTheEdges) {
    using F = LayoutFault;
    struct Row {
        const char *what;
        LONG w, h;
        DWORD clrUsed, sizeImage;
        SIZE_T block;
        bool topDown;
        RowsStart start;
        SizeImageRule rule;
        F fault;
        int64_t offset, rows, imageSize;
    } rows[] = {
        {"fits exactly", 5, 4, 0, 0, 104, false, RowsStart::AfterTable, SizeImageRule::Ignored, F::None, 40, 4, 64},
        {"one byte short", 5, 4, 0, 0, 103, false, RowsStart::AfterTable, SizeImageRule::Ignored, F::Rows, 40, 4, 0},
        {"table then rows", 1, 1, 2, 0, 52, false, RowsStart::AfterTable, SizeImageRule::Ignored, F::None, 48, 1, 4},
        {"table ignored", 1, 1, 0xFFFFFFFFu, 0, 44, false, RowsStart::AfterHeader, SizeImageRule::Ignored, F::None, 40, 1, 4},
        {"2^32 - 1 entries", 1, 1, 0xFFFFFFFFu, 0, 100, false, RowsStart::AfterTable, SizeImageRule::Ignored, F::Table, 0, 1, 0},
        {"past signed 64 bits", 0x7FFFFFFF, 0x7FFFFFFF, 0, 0, 100, true, RowsStart::AfterTable, SizeImageRule::Ignored, F::Rows, 40, 0x7FFFFFFF, 0},
        {"INT_MIN rows", 0x7FFFFFFF, INT_MIN, 0, 0, 100, true, RowsStart::AfterTable, SizeImageRule::Ignored, F::Rows, 40, int64_t{1} << 31, 0},
        {"no columns, 2^31 rows", 0, INT_MIN, 0, 0, 40, true, RowsStart::AfterTable, SizeImageRule::Ignored, F::None, 40, int64_t{1} << 31, 0},
        {"bottom-up only", 1, -1, 0, 0, 100, false, RowsStart::AfterTable, SizeImageRule::Ignored, F::NegativeHeight, 0, -1, 0},
        {"negative width", -1, 1, 0, 0, 100, true, RowsStart::AfterTable, SizeImageRule::Ignored, F::NegativeWidth, 0, 1, 0},
        {"size inside", 1, 2, 0, 12, 52, false, RowsStart::AfterTable, SizeImageRule::InsideBlock, F::None, 40, 2, 8},
        {"size past the block", 1, 2, 0, 13, 52, false, RowsStart::AfterTable, SizeImageRule::InsideBlock, F::SizeImage, 40, 2, 8},
        {"size sizes a result", 1, 2, 0, 0xFFFFFFFFu, 48, false, RowsStart::AfterHeader, SizeImageRule::SizesResult, F::None, 40, 2, 8},
        {"size below the rows", 1, 2, 0, 7, 48, false, RowsStart::AfterHeader, SizeImageRule::SizesResult, F::SizeImage, 40, 2, 8},
    };
    for (const Row &r : rows) {
        SCOPED_TRACE(r.what);
        std::vector<BYTE> block(r.block, 0);
        auto *h = reinterpret_cast<BITMAPINFOHEADER *>(block.data());
        *h = BITMAPINFOHEADER{40, r.w, r.h, 1, 24, 0, r.sizeImage, 0, 0, r.clrUsed, 0};
        LayoutRules rules;
        rules.depths = uint64_t{1} << 24;
        rules.topDown = r.topDown;
        rules.rowsStart = r.start;
        rules.sizeImage = r.rule;
        const DibLayout l = LocateImage(block.data(), block.size(), rules);
        EXPECT_EQ(static_cast<int>(l.fault), static_cast<int>(r.fault));
        EXPECT_EQ(l.height, r.rows);
        EXPECT_TRUE(l.depthAccepted);
        if (r.fault == F::None) {
            EXPECT_EQ(l.pixels - block.data(), r.offset);
            EXPECT_EQ(l.imageSize, r.imageSize);
        } else {
            EXPECT_EQ(l.pixels, nullptr);
        }
    }
    // 65535 bits per pixel: stride x rows would wrap unsigned 64 bits too.
    BITMAPINFOHEADER wide = {40, 0x7FFFFFFF, INT_MIN, 1, 0xFFFF, 0, 0, 0, 0, 0, 0};
    LayoutRules any;
    any.topDown = true;
    EXPECT_EQ(static_cast<int>(LocateImage(&wide, sizeof wide, any).fault), static_cast<int>(F::Rows));
    EXPECT_EQ(static_cast<int>(LocateImage(nullptr, 0, LayoutRules{}).fault), static_cast<int>(F::ShortBlock));
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
