// Worked values of the single-value conversions (examples.txt), the byte rule,
// the conversion table, and the two powers of the LAB conversions against the
// platform's wider long double power.
#include "color_math.h"
#include "colormodels_support.h"

#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <limits>
#include <set>
#include <sstream>

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

} // namespace
