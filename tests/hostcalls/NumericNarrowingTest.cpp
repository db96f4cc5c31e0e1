#include "hostcalls/NumericNarrowing.h"

#include <boost/numeric/conversion/cast.hpp>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using namespace netrove;

namespace {

using boost::numeric::negative_overflow;
using boost::numeric::positive_overflow;

constexpr double kInfinite = std::numeric_limits<double>::infinity();
constexpr double kNotANumber = std::numeric_limits<double>::quiet_NaN();
constexpr double kTwoTo63 = 9223372036854775808.0;
constexpr std::uint64_t kTopBit = std::uint64_t{1} << 63U;

TEST(NumericNarrowing, Int32RoundsTowardsZero) {
    EXPECT_EQ(narrowToInt32(0.0), 0);
    EXPECT_EQ(narrowToInt32(-0.0), 0);
    EXPECT_EQ(narrowToInt32(1.9), 1);
    EXPECT_EQ(narrowToInt32(-1.9), -1);
    EXPECT_EQ(narrowToInt32(2147483647.0), 2147483647);
    EXPECT_EQ(narrowToInt32(2147483647.9), 2147483647);
    EXPECT_EQ(narrowToInt32(-2147483648.0), std::numeric_limits<std::int32_t>::min());
    EXPECT_EQ(narrowToInt32(-2147483648.9), std::numeric_limits<std::int32_t>::min());
}

TEST(NumericNarrowing, Int32RefusesWhatLiesOutside) {
    EXPECT_THROW(narrowToInt32(2147483648.0), positive_overflow);
    EXPECT_THROW(narrowToInt32(1e300), positive_overflow);
    EXPECT_THROW(narrowToInt32(kInfinite), positive_overflow);
    EXPECT_THROW(narrowToInt32(-2147483649.0), negative_overflow);
    EXPECT_THROW(narrowToInt32(-kInfinite), negative_overflow);
}

TEST(NumericNarrowing, NotANumberHasADefinedResult) {
    EXPECT_EQ(narrowToInt32(kNotANumber), std::numeric_limits<std::int32_t>::min());
    EXPECT_EQ(narrowToUInt16(kNotANumber), 0);
    EXPECT_EQ(wrapToUInt64(kNotANumber), kTopBit);
}

TEST(NumericNarrowing, PortRoundsTowardsZero) {
    EXPECT_EQ(narrowToUInt16(0.0), 0);
    EXPECT_EQ(narrowToUInt16(80.0), 80);
    EXPECT_EQ(narrowToUInt16(65535.9), 65535);
    EXPECT_EQ(narrowToUInt16(-0.5), 0);
    EXPECT_EQ(narrowToUInt16(std::nextafter(-1.0, 0.0)), 0);
}

TEST(NumericNarrowing, PortRefusesWhatLiesOutside) {
    EXPECT_THROW(narrowToUInt16(65536.0), positive_overflow);
    EXPECT_THROW(narrowToUInt16(kInfinite), positive_overflow);
    EXPECT_THROW(narrowToUInt16(-1.0), negative_overflow);
    EXPECT_THROW(narrowToUInt16(-kInfinite), negative_overflow);
}

TEST(NumericNarrowing, WrappingTakesNegativeNumbersAsHugeOnes) {
    EXPECT_EQ(wrapToUInt64(0.0), 0u);
    EXPECT_EQ(wrapToUInt64(-0.5), 0u);
    EXPECT_EQ(wrapToUInt64(16384.9), 16384u);
    EXPECT_EQ(wrapToUInt64(-1.0), std::numeric_limits<std::uint64_t>::max());
    EXPECT_EQ(wrapToUInt64(-2.9), std::numeric_limits<std::uint64_t>::max() - 1);
    EXPECT_EQ(wrapToUInt64(-kTwoTo63), kTopBit);
}

TEST(NumericNarrowing, WrappingUsesTheWholeRange) {
    EXPECT_EQ(wrapToUInt64(std::nextafter(kTwoTo63, 0.0)), kTopBit - 1024);
    EXPECT_EQ(wrapToUInt64(kTwoTo63), kTopBit);
    EXPECT_EQ(wrapToUInt64(kTwoTo63 + 2048.0), kTopBit + 2048);
    EXPECT_EQ(wrapToUInt64(std::nextafter(2.0 * kTwoTo63, 0.0)), std::numeric_limits<std::uint64_t>::max() - 2047);
}

TEST(NumericNarrowing, WrappingGivesTheTopBitForTheRest) {
    for (const double value :
         {2.0 * kTwoTo63, 1e300, kInfinite, -kInfinite, -1e300, std::nextafter(-kTwoTo63, -1e30)}) {
        EXPECT_EQ(wrapToUInt64(value), kTopBit) << value;
    }
}

} // namespace
