// The four fuzz targets; CMake compiles this file once per target with
// PAX_FUZZ_<TARGET> defined. Input layouts are described at each target.
#include "harness.h"

#include "conversion_table.h"
#include "thread_state.h"

#include <algorithm>
#include <cstring>
#include <vector>

using namespace paxfuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    Bytes in{data, size};
#if defined(PAX_FUZZ_IMAGE_OPS) || defined(PAX_FUZZ_FAULTS)
    // See RunImageExport.
#ifdef PAX_FUZZ_FAULTS
    RunImageExport(in, true);
#else
    RunImageExport(in, false);
#endif
#elif defined(PAX_FUZZ_BUFFER)
    // [source model] [destination model] [flags] [source bytes...]; flags: 1 in
    // place, 2 progress, 4 owner, 8 the count negated, 16 null source, 32 null
    // destination. Buffers are exactly as long as the count implies.
    Setup();
    const int from = static_cast<int8_t>(in.U8()), to = static_cast<int8_t>(in.U8());
    const uint8_t f = in.U8();
    const size_t n = in.n;
    const size_t dn = to == MODEL_CMYK && from != MODEL_CMYK ? n / 3 * 4
                    : from == MODEL_CMYK && to != MODEL_CMYK ? n / 4 * 3 : n;
    const bool inPlace = f & 1;
    const std::vector<BYTE> source(in.p, in.p + n);
    std::vector<BYTE> src(inPlace ? std::max(n, dn) : n), out(inPlace ? 0 : dn, BYTE{0x5A});
    std::copy(source.begin(), source.end(), src.begin());
    BYTE *dst = inPlace ? src.data() : out.data();
    const int count = f & 8 ? -static_cast<int>(n) : static_cast<int>(n);
    int r = ConvertColorSpace(f & 16 ? nullptr : src.data(), f & 32 ? nullptr : dst, count, from, to, f & 2,
                              f & 4 ? OwnerWindow() : nullptr);
    DWORD code = GetLastColorConvertError();
    const bool models = from >= 1 && from <= 9 && to >= 1 && to <= 9;
    const int ps = from == MODEL_CMYK ? 4 : 3, pd = to == MODEL_CMYK ? 4 : 3;
    if (!models) Require(r == -1 && code == CCE_BADMODEL, "bad model not refused");
    else if (count < 1 || (f & 48)) Require(r == -1 && code == CCE_BADARGUMENT, "bad argument not refused");
    else if (from != to && n % ps) Require(r == -1 || r == count, "partial pixel: neither refused nor done");
    else Require(r == count && code == CCE_NONE, "a valid conversion failed");
    if (r == count && count > 0 && !inPlace) {
        if (from == to) Require(std::equal(source.begin(), source.end(), dst), "same model: not a copy");
        pax::Conversion c = pax::FindConversion(from, to);
        for (size_t i = 0; from != to && i + ps <= n; i += ps) {
            BYTE want[4];
            if (c.toThree) c.toThree(want, &source[i]);
            else {
                CMYKQUAD q = c.toCmyk(&source[i]);
                std::memcpy(want, &q, 4);
            }
            Require(std::memcmp(want, dst + i / ps * pd, pd) == 0, "a pixel differs from its value conversion");
        }
    }
    if (!inPlace) Require(std::equal(source.begin(), source.end(), src.begin()), "the source buffer changed");
    Require(!GetThreadState()->progressDialog && IsWindowEnabled(OwnerWindow()), "a dialog was left open");
#elif defined(PAX_FUZZ_FILTER_FILE)
    // [kernel size] [flags: 1 new image, 2 weighted intensity, 4 progress]
    // [width - 1] [height - 1] [the filter file's bytes...]
    Setup();
    const short n = static_cast<int8_t>(in.U8());
    const uint8_t f = in.U8();
    const int w = 1 + in.U8() % 32, h = 1 + in.U8() % 32;
    Args g;
    g.a[0] = f & 2 ? 1 : 0;
    g.a[1] = CONV_FILE;
    g.a[2] = n;
    g.mode = f & 4 ? 1 : 0;
    g.filterFile = WriteScratchFile(in.p, in.n);
    HGLOBAL image = paxtest::MakeImageFor(paxtest::ImageExports()[paxtest::kConvolveNewExport], w, h);
    Outcome o = CheckedInvoke(f & 1 ? paxtest::kConvolveNewExport : paxtest::kConvolveInPlaceExport, image, g);
    Require(o.errorCode != 12345, "the convolution left its status variable alone");
    GlobalFree(image);
#endif
    return 0;
}
