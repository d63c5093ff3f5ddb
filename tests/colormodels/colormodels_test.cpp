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
#include "colormodels_support.h"
#include "conversion_runs.h"
#include "lab_terms.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <fstream>
#include <limits>
#include <map>
#include <set>
#include <sstream>
#include <thread>

namespace {

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
        const pax::ConversionEntry *e = cmtest::EntryNamed(name);
        ASSERT_NE(e, nullptr) << line;
        ASSERT_EQ(source.size(), size_t(pax::SourceBytes(e->fromModel))) << line;
        EXPECT_EQ(cmtest::Convert(*e, source.data(), false), want) << line;
        EXPECT_EQ(cmtest::Convert(*e, source.data(), true), want) << line << " (in place)";
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
    for (int i = 0; i < 200000; ++i) xs.push_back(std::ldexp(1 + rng.Next() * 0x1p-32, int(rng.Below(281)) - 140));
    cmtest::Digest bits;
    for (double x : xs) {
        const double quick = pax::PowOneThird(x);
        bits.Double(quick);
        ASSERT_TRUE(cmtest::SameBits(quick, pax::PowOneThirdExact(x))) << x;
        ASSERT_TRUE(x < 0x1p-1000 || cmtest::NearestToWide(quick, powl(x, cmtest::kWideThird))) << x;
    }
    EXPECT_EQ(bits.h, 0xd664294b6317afd8ull) << std::hex << bits.h;
    EXPECT_TRUE(std::isnan(pax::PowOneThird(-1.0)));
    EXPECT_TRUE(std::isnan(pax::PowOneThird(std::nan(""))));
    EXPECT_TRUE(cmtest::SameBits(pax::PowOneThird(HUGE_VAL), pax::PowOneThirdExact(HUGE_VAL)));
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

// The i-th source value of a sweep, as conversion_digests takes it (a
// CMYKQUAD holds C, M, Y, K in memory, as the worked values show).
void SourceValue(int model, uint32_t i, BYTE *out) {
    for (int k = 0; k < 3; ++k) out[k] = BYTE(i >> (8 * k));
    if (model == MODEL_CMYK) {
        const CMYKQUAD q = RGBtoCMYK(out);
        std::memcpy(out, &q, 4);
    }
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
    constexpr uint32_t kChunk = 4096;
    std::vector<BYTE> src(kChunk * 4), dst(kChunk * 4);
    cmtest::Digest single, runs;
    uint64_t broken = 0;
    BYTE atHueZero[4] = {};
    for (int pass = 0; pass < (e.fromModel == MODEL_CMYK ? 2 : 1); ++pass)
        for (uint32_t chunk = 0; chunk < kCount; chunk += kChunk) {
            for (uint32_t j = 0; j < kChunk; ++j) {
                SourceValue(e.fromModel, chunk + j, &src[j * n]);
                if (pass == 1) src[j * n + 3] = BYTE((chunk + j) * 2654435761u >> 24); // any K
            }
            run(src.data(), dst.data(), kChunk);
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
        cmtest::Digest d;
        for (uint32_t i = 0; i < kCount; ++i) {
            const BYTE v[3] = {BYTE(i), BYTE(i >> 8), BYTE(i >> 16)};
            const pax::Tristimulus t = pax::TristimulusOf(k ? pax::ClampUnit(s.toUnit(v)) : s.toUnit(v));
            for (double x : {t.y, t.x / pax::kLabWhiteX, t.z / pax::kLabWhiteZ}) {
                if (!(x > pax::kLabThreshold)) continue;
                const double root = pax::PowOneThird(x);
                d.Double(root);
                if (i % 61 == 0) s.notNearest += !cmtest::NearestToWide(root, powl(x, cmtest::kWideThird));
            }
        }
        s.digest = d.h;
    });
    for (const PowSweep &s : sweeps) {
        EXPECT_EQ(s.digest, pinned[s.name]) << s.name << " " << std::hex << s.digest;
        EXPECT_EQ(s.notNearest, 0u) << s.name;
    }
    cmtest::Digest cubes;
    uint64_t notNearest = 0;
    for (int l = 0; l < 256; ++l)
        for (int ab = 0; ab < 256; ++ab) {
            const double fy = pax::LabFy(BYTE(l));
            for (double base : {pax::LabXBase(BYTE(ab), fy), pax::LabZBase(BYTE(ab), fy)}) {
                cubes.Double(pax::PowCube(base));
                notNearest += !cmtest::NearestToWide(pax::PowCube(base), powl(base, 3.0L));
            }
        }
    EXPECT_EQ(cubes.h, pinned["PowCube.LAB"]) << std::hex << cubes.h;
    EXPECT_EQ(notNearest, 0u);
}

} // namespace
