// Worked values of the single-value conversions (examples.txt), the byte rule,
// the conversion table, and the two powers of the LAB conversions against the
// platform's wider long double power.
//
// Whole-domain sweeps pinned by the digests of digests.txt, read by the Linux
// and the Windows builds alike, so both give the same bytes and bits:
//   - each of the 72 conversions over every source value (2^24 three-byte
//     values; for a CMYK source the 2^24 values RGBtoCMYK makes), called in
//     place with guard bytes behind, and its run over the same values in the
//     buffer layout: both give the pinned digest (the Windows build sweeps
//     the runs; scripts/compare-digests.sh holds its exports to the Linux
//     ones, printing the same lines from each build);
//   - the runs from CMYK equal the single-value conversions on values with
//     any ink and K as well;
//   - CMY is the complement, CMYK values made from RGB come back whole, and a
//     hue byte of 255 converts as 0 in every conversion from HSV and HSI;
//   - the cube root at every argument the conversions into LAB give it (X /
//     0.981, Y and Z / 0.182 of every RGB byte triple and of the limited RGB
//     doubles of every HSV, HSI, YIQ, YUV and XYZ value), and the cube at
//     every base of LABtoRGB: pinned bit for bit, and every 61st cube root and
//     every cube is the double nearest the long double power.
#include "color_math.h"
#include "conversion_runs.h"
#include "conversion_table.h"
#include "dib_builder.h"
#include "lab_terms.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>
#include <fstream>
#include <limits>
#include <map>
#include <set>
#include <sstream>
#include <thread>

namespace {

// The conversion of one value (3 or 4 bytes) into a buffer of guard bytes,
// in place (the value copied into it) or not; a guard byte written past the
// result, a three-byte result's K byte of a CMYK source overwritten or a
// wrong returned pointer each show as a result of 9 bytes. A CMYKQUAD is
// returned as the four bytes it holds in memory.
std::vector<BYTE> Convert(const pax::ConversionEntry &e, const BYTE *src, bool inPlace) {
    const int n = pax::SourceBytes(e.fromModel);
    if (e.fn.toCmyk) {
        static_assert(sizeof(CMYKQUAD) == 4, "four bytes by value");
        const CMYKQUAD q = e.fn.toCmyk(src);
        return std::vector<BYTE>(reinterpret_cast<const BYTE *>(&q), reinterpret_cast<const BYTE *>(&q) + 4);
    }
    BYTE buf[8] = {0xA5, 0xA5, 0xA5, 0xA5, 0xA5, 0xA5, 0xA5, 0xA5};
    if (inPlace) std::memcpy(buf, src, n);
    const BYTE *returned = e.fn.toThree(buf, inPlace ? buf : src);
    bool intact = returned == buf;
    for (int k = 3; k < 8; ++k) intact = intact && buf[k] == (inPlace && k < n ? src[k] : 0xA5);
    if (!intact) return std::vector<BYTE>(9);
    return {buf[0], buf[1], buf[2]};
}

// The exponent of the LAB cube root, the double nearest 1/3, as a long double.
constexpr long double kWideThird = 0.3333333333333333;

bool SameBits(double a, double b) { return std::memcmp(&a, &b, sizeof a) == 0; }

// Whether d is the double nearest to the value that w approximates with a
// relative error of a few units of long double: no neighbour of d is nearer
// to w by more than that error. The Windows C runtime's long double power
// loses that accuracy away from 1 (the LAB arguments lie near it); only the
// Linux build checks there.
bool NearestToWide(double d, long double w) {
    if (!std::isfinite(d)) return false;
#ifdef _WIN32
    if (std::fabs(std::logb(d)) > 4) return true;
#endif
    const double toward = std::nextafter(d, static_cast<double>(w) > d ? HUGE_VAL : -HUGE_VAL);
    const long double tolerance = fabsl(w) * 0x1p-60L;
    return fabsl(w - d) <= fabsl(w - toward) + tolerance;
}

// 64-bit FNV-1a over bytes and values as they lie in memory (little-endian in
// both builds), the digest of digests.txt.
struct Digest {
    uint64_t h = 0xcbf29ce484222325ull;
    void Bytes(const BYTE *p, size_t n) {
        for (size_t k = 0; k < n; ++k) h = (h ^ p[k]) * 0x100000001b3ull;
    }
    void Double(double v) { Bytes(reinterpret_cast<const BYTE *>(&v), sizeof v); }
};

TEST(Examples, EveryConversionGivesItsWorkedValuesInPlaceOrNot) {
    std::ifstream in(PAX_COLORMODELS_DATA "/examples.txt");
    std::set<std::string> covered;
    for (std::string line; std::getline(in, line);) {
        if (line.empty() || line[0] == '#') continue;
        std::istringstream fields(line);
        std::string name, word;
        std::vector<BYTE> source, want;
        fields >> name;
        while (fields >> word && word != ":") source.push_back(static_cast<BYTE>(std::stoi(word)));
        for (int v; fields >> v;) want.push_back(static_cast<BYTE>(v));
        const pax::ConversionEntry *e = std::find_if(pax::kConversions, pax::kConversions + pax::kConversionCount,
                                                     [&](const pax::ConversionEntry &c) { return name == c.name; });
        ASSERT_NE(e, pax::kConversions + pax::kConversionCount) << line;
        ASSERT_EQ(source.size(), size_t(pax::SourceBytes(e->fromModel))) << line;
        EXPECT_EQ(Convert(*e, source.data(), false), want) << line;
        EXPECT_EQ(Convert(*e, source.data(), true), want) << line << " (in place)";
        covered.insert(name);
    }
    EXPECT_EQ(covered.size(), 72u);
}

TEST(ByteRule, ClampsAndTruncatesTowardZero) {
    const double values[] = {254.0, 254.5, 254.99999999999997, 255.0, 255.0000001, 1e300, 0.999, -0.5, -1e300};
    const int bytes[] = {254, 254, 254, 255, 255, 255, 0, 0, 0};
    for (int k = 0; k < 9; ++k) EXPECT_EQ(pax::ClampToByte(values[k]), bytes[k]) << values[k];
}

TEST(ConversionTable, FindsEveryPairByItsNameAndNothingElse) {
    const char *names[10] = {"", "RGB", "YUV", "CMY", "CMYK", "YIQ", "HSV", "HSI", "XYZ", "LAB"};
    for (const pax::ConversionEntry &e : pax::kConversions) {
        const pax::Conversion c = pax::FindConversion(e.fromModel, e.toModel);
        EXPECT_EQ(std::string(names[e.fromModel]) + "to" + names[e.toModel], e.name);
        EXPECT_TRUE(c.toThree == e.fn.toThree && c.toCmyk == e.fn.toCmyk && !c.toThree != !c.toCmyk &&
                    (c.toCmyk != nullptr) == (e.toModel == MODEL_CMYK)) << e.name;
        EXPECT_EQ(e.path == pax::Path::Base, e.fromModel == MODEL_RGB || e.toModel == MODEL_RGB) << e.name;
    }
    int found = 0;
    for (int from = -1; from <= 11; ++from)
        for (int to = -1; to <= 11; ++to) found += pax::FindConversion(from, to).toThree || pax::FindConversion(from, to).toCmyk;
    EXPECT_EQ(found, 72); // the table's 72 pairs and nothing else
}

// The cube root on random arguments of every scale, edges and cubes of short
// doubles: the quick form equals the long one bit for bit, both are the
// double nearest the long double power (from 2^-1000 up: below, far from any
// LAB argument, the long form scales by 2^-333, a cube root's factor, not the
// power's), and their bits are pinned by a digest.
TEST(PowOneThird, QuickEqualsLongAndIsCorrectlyRounded) {
    std::vector<double> xs = {0.0, 0x1p-60, std::nextafter(0x1p-60, 0.0), 0x1p60, std::nextafter(0x1p60, 1e300),
                              0.008856, 0.01, 1.0, 0.5, 2.0, 4.0, 8.0, 0.125, 1e-300, 1e300,
                              std::numeric_limits<double>::denorm_min(), 1 - 0x1p-53, 1 + 0x1p-52};
    for (int n = 1; n < 4096; ++n) xs.push_back(double(n) * n * n * 0x1p-36);
    paxtest::Rng rng(20261123);
    for (int i = 0; i < 200000; ++i) {
        const int exponent = int(rng.Below(281)) - 140; // drawn first: a call's arguments have no fixed order
        xs.push_back(std::ldexp(1 + rng.Next() * 0x1p-32, exponent));
    }
    Digest bits;
    for (double x : xs) {
        const double quick = pax::PowOneThird(x);
        bits.Double(quick);
        ASSERT_TRUE(SameBits(quick, pax::PowOneThirdExact(x))) << x;
        ASSERT_TRUE(x < 0x1p-1000 || NearestToWide(quick, powl(x, kWideThird))) << x;
    }
    EXPECT_EQ(bits.h, 0xd664294b6317afd8ull) << std::hex << bits.h;
    EXPECT_TRUE(std::isnan(pax::PowOneThird(-1.0)));
    EXPECT_TRUE(std::isnan(pax::PowOneThird(std::nan(""))));
    EXPECT_TRUE(SameBits(pax::PowOneThird(HUGE_VAL), pax::PowOneThirdExact(HUGE_VAL)));
}

// ---- Whole-domain sweeps (the tests Exhaustive.*) ---------------------------

constexpr uint32_t kCount = 1u << 24;

std::map<std::string, uint64_t> Pinned() {
    std::map<std::string, uint64_t> pinned;
    std::ifstream in(PAX_COLORMODELS_DATA "/digests.txt");
    std::string name, hex;
    for (std::string line; std::getline(in, line);)
        if (line[0] != '#' && std::istringstream(line) >> name >> hex) pinned[name] = std::stoull(hex, nullptr, 16);
    return pinned;
}

// Calls job(k) for k = 0..n-1 on up to four threads, each taking the next k.
template <typename Job>
void RunEach(int n, Job job) {
    std::atomic<int> next{0};
    std::vector<std::thread> threads(std::max(2u, std::min(4u, std::thread::hardware_concurrency())));
    for (std::thread &th : threads)
        th = std::thread([&] {
            for (int k; (k = next++) < n;) job(k);
        });
    for (std::thread &th : threads) th.join();
}

struct Sweep {
    uint64_t single = 0, run = 0, broken = 0; // broken: guard bytes, laws, runs on any ink
};

// Windows sweeps the runs only: scripts/compare-digests.sh holds its exports
// to the Linux ones, which this test pins.
#ifdef _WIN32
constexpr bool kSingleValues = false;
#else
constexpr bool kSingleValues = true;
#endif

Sweep SweepConversion(const pax::ConversionEntry &e) {
    const int n = pax::SourceBytes(e.fromModel), m = e.toModel == MODEL_CMYK ? 4 : 3;
    const pax::RunFn run = pax::FindRun(e.fromModel, e.toModel, pax::RunLayout::Buffer);
    const bool hue = e.fromModel == MODEL_HSV || e.fromModel == MODEL_HSI;
    // The ink models to and from RGB have runs of their own in the image
    // layout (each pixel stored reversed): swept too, a few pixels apart.
    const int other = e.fromModel == MODEL_RGB ? e.toModel : e.toModel == MODEL_RGB ? e.fromModel : 0;
    const pax::RunFn imageRun = other == MODEL_CMY || other == MODEL_CMYK ? pax::FindRun(e.fromModel, e.toModel, pax::RunLayout::Image) : nullptr;
    constexpr uint32_t kChunk = 4096, kApart = 7;
    std::vector<BYTE> src(kChunk * 4), dst(kChunk * 4), image(kChunk * 4), imageOut(kChunk * 4);
    Digest single, runs;
    uint64_t broken = 0;
    BYTE atHueZero[4] = {};
    for (int pass = 0; pass < (e.fromModel == MODEL_CMYK ? 2 : 1); ++pass)
        for (uint32_t chunk = 0; chunk < kCount; chunk += kChunk) {
            for (uint32_t j = 0; j < kChunk; ++j) { // values as conversion_digests takes them
                BYTE *v = &src[j * n];
                for (int k = 0; k < 3; ++k) v[k] = BYTE((chunk + j) >> (8 * k));
                if (n == 4) { // a CMYKQUAD holds C, M, Y, K in memory, as the worked values show
                    const CMYKQUAD q = RGBtoCMYK(v);
                    std::memcpy(v, &q, 4);
                }
                if (pass == 1) v[3] = BYTE((chunk + j) * 2654435761u >> 24); // any K
            }
            run(src.data(), dst.data(), kChunk);
            for (uint32_t j = 0; imageRun && j < kChunk * n; ++j) image[j] = src[j + n - 1 - 2 * (j % n)];
            if (imageRun) imageRun(image.data(), imageOut.data(), kChunk - kApart);
            if (imageRun) imageRun(&image[(kChunk - kApart) * n], &imageOut[(kChunk - kApart) * m], kApart);
            for (uint32_t j = 0; imageRun && j < kChunk * m; ++j) broken += imageOut[j + m - 1 - 2 * (j % m)] != dst[j];
            if (pass == 0) runs.Bytes(dst.data(), size_t{kChunk} * m);
            for (uint32_t j = 0; (kSingleValues || pass == 1) && j < kChunk; ++j) {
                const uint32_t i = chunk + j;
                BYTE out[8] = {0, 0, 0, 0, 0xA5, 0xA5, 0xA5, 0xA5};
                std::memcpy(out, &src[j * n], n);
                if (e.fn.toCmyk) {
                    const CMYKQUAD q = e.fn.toCmyk(out);
                    std::memcpy(out, &q, 4);
                } else {
                    broken += e.fn.toThree(out, out) != out || out[3] != (n == 4 ? src[j * n + 3] : 0);
                }
                broken += std::memcmp(out + 4, "\xA5\xA5\xA5\xA5", 4) != 0;
                if (pass == 1) { // not digested: values no conversion makes
                    broken += std::memcmp(out, &dst[j * m], m) != 0;
                    continue;
                }
                single.Bytes(out, m);
                const uint32_t packed = out[0] | uint32_t(out[1]) << 8 | uint32_t(out[2]) << 16;
                if (e.fromModel == MODEL_CMY && e.toModel == MODEL_RGB) broken += packed != (~i & 0xFFFFFF);
                if (e.fromModel == MODEL_CMYK && e.toModel == MODEL_RGB) broken += packed != i;
                if (hue && (i & 255) == 0) std::memcpy(atHueZero, out, 4);
                if (hue && (i & 255) == 255) broken += std::memcmp(atHueZero, out, m) != 0;
            }
        }
    return {single.h, runs.h, broken};
}

TEST(Exhaustive, EveryConversionAndItsRunGiveThePinnedDigest) {
    const std::map<std::string, uint64_t> pinned = Pinned();
    std::vector<Sweep> sweeps(pax::kConversionCount);
    RunEach(pax::kConversionCount, [&](int k) { sweeps[k] = SweepConversion(pax::kConversions[k]); });
    for (int k = 0; k < pax::kConversionCount; ++k) {
        const char *name = pax::kConversions[k].name;
        ASSERT_EQ(pinned.count(name), 1u) << name << " has no digest in digests.txt";
        EXPECT_EQ(kSingleValues ? sweeps[k].single : pinned.at(name), pinned.at(name)) << name << std::hex << sweeps[k].single;
        EXPECT_EQ(sweeps[k].run, pinned.at(name)) << name << " run " << std::hex << sweeps[k].run;
        EXPECT_EQ(sweeps[k].broken, 0u) << name;
    }
}

// Digest of the cube roots the LAB conversions take at the tristimulus values
// of every value of a source (RGB bytes, or the limited doubles of a model);
// every 61st root is checked against the long double power.
struct PowSweep {
    const char *name;
    pax::UnitRGB (*toUnit)(const BYTE *);
    uint64_t digest = 0, notNearest = 0;
};

TEST(Exhaustive, LabPowersGiveThePinnedBitsAndAreCorrectlyRounded) {
    std::map<std::string, uint64_t> pinned = Pinned();
    PowSweep sweeps[] = {{"PowOneThird.RGB", pax::UnitFromBytes},     {"PowOneThird.HSV", pax::HSVtoUnitRGB},
                         {"PowOneThird.HSI", pax::HSItoUnitRGB}, {"PowOneThird.YIQ", pax::YIQtoUnitRGB},
                         {"PowOneThird.YUV", pax::YUVtoUnitRGB}, {"PowOneThird.XYZ", pax::XYZtoUnitRGB}};
    RunEach(6, [&](int k) {
        PowSweep &s = sweeps[k];
        Digest d;
        for (uint32_t i = 0; i < kCount; ++i) {
            const BYTE v[3] = {BYTE(i), BYTE(i >> 8), BYTE(i >> 16)};
            const pax::Tristimulus t = pax::TristimulusOf(k ? pax::ClampUnit(s.toUnit(v)) : s.toUnit(v));
            for (double x : {t.y, t.x / pax::kLabWhiteX, t.z / pax::kLabWhiteZ}) {
                if (!(x > pax::kLabThreshold)) continue;
                const double root = pax::PowOneThird(x);
                d.Double(root);
                if (i % 61 == 0) s.notNearest += !NearestToWide(root, powl(x, kWideThird));
            }
        }
        s.digest = d.h;
    });
    for (const PowSweep &s : sweeps) {
        EXPECT_EQ(s.digest, pinned[s.name]) << s.name << " " << std::hex << s.digest;
        EXPECT_EQ(s.notNearest, 0u) << s.name;
    }
    Digest cubes;
    uint64_t notNearest = 0;
    for (int l = 0; l < 256; ++l)
        for (int ab = 0; ab < 256; ++ab) {
            const double fy = pax::LabFy(BYTE(l));
            for (double base : {pax::LabXBase(BYTE(ab), fy), pax::LabZBase(BYTE(ab), fy)}) {
                cubes.Double(pax::PowCube(base));
                notNearest += !NearestToWide(pax::PowCube(base), powl(base, 3.0L));
            }
        }
    EXPECT_EQ(cubes.h, pinned["PowCube.LAB"]) << std::hex << cubes.h;
    EXPECT_EQ(notNearest, 0u);
}

} // namespace
