// The run functions against the single-value conversions over every source
// value (2^24 three-byte values; for CMYK the 2^24 values RGBtoCMYK makes, and
// as many values with random inks and K that no conversion makes): each pair's
// run in the buffer layout gives every byte of the export, so each fast kernel
// equals the straightforward code over its whole domain. Swept: the 16 pairs
// with RGB (each kernel to or from RGB bytes) and the 8 that carry RGB as
// doubles; the other 48 runs chain a kernel to RGB bytes and one from them,
// both swept here, and are checked on random pixels with the image walks.
#include "conversion_runs.h"
#include "sweep.h"

#include <atomic>

namespace {

std::vector<const pax::ConversionEntry *> SweptPairs() {
    std::vector<const pax::ConversionEntry *> v;
    for (const pax::ConversionEntry &e : pax::kConversions)
        if (e.path == pax::Path::Base || e.path == pax::Path::Doubles) v.push_back(&e);
    return v;
}

class RunsExhaustive : public testing::TestWithParam<const pax::ConversionEntry *> {};

TEST(RunsExhaustiveCount, SixteenWithRgbAndEightThroughDoubles) { EXPECT_EQ(SweptPairs().size(), 24u); }

TEST_P(RunsExhaustive, EqualsTheSingleValueConversion) {
    {
        const pax::ConversionEntry &e = *GetParam();
        const pax::RunFn run = pax::FindRun(e.fromModel, e.toModel, pax::RunLayout::Buffer);
        ASSERT_NE(run, nullptr);
        const int n = pax::SourceBytes(e.fromModel), m = e.toModel == MODEL_CMYK ? 4 : 3;
        const bool anyInk = e.fromModel == MODEL_CMYK; // CMYKtoRGB limits at 0
        std::atomic<uint64_t> differs{0};
        sweep::ParallelFor(sweep::kCount >> 12, [&](uint32_t begin, uint32_t end) {
            constexpr uint32_t kChunk = 4096;
            std::vector<BYTE> src(kChunk * 4), dst(kChunk * 4);
            for (int pass = 0; pass < (anyInk ? 2 : 1); ++pass)
                for (uint32_t chunk = begin; chunk < end; ++chunk) {
                    for (uint32_t j = 0; j < kChunk; ++j) {
                        const uint32_t i = chunk * kChunk + j;
                        sweep::SourceValue(e.fromModel, i, &src[j * n]);
                        if (pass == 1) src[j * n + 3] = BYTE(i * 2654435761u >> 24); // any K
                    }
                    run(src.data(), dst.data(), kChunk);
                    for (uint32_t j = 0; j < kChunk; ++j) {
                        BYTE want[4];
                        if (e.fn.toCmyk) {
                            const CMYKQUAD q = e.fn.toCmyk(&src[j * n]);
                            want[0] = q.c, want[1] = q.m, want[2] = q.y, want[3] = q.k;
                        } else {
                            e.fn.toThree(want, &src[j * n]);
                        }
                        if (std::memcmp(want, &dst[j * m], m) != 0) ++differs;
                    }
                }
        });
        EXPECT_EQ(differs.load(), 0u);
    }
}

INSTANTIATE_TEST_SUITE_P(Pairs, RunsExhaustive, testing::ValuesIn(SweptPairs()),
                         [](const testing::TestParamInfo<const pax::ConversionEntry *> &info) {
                             return std::string(info.param->name);
                         });

} // namespace
