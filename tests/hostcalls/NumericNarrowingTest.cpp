// Narrowing: readable examples, and a model that computes with whole numbers of any size.
#include "hostcalls/NumericNarrowing.h"

#include <boost/multiprecision/cpp_int.hpp>
#include <boost/numeric/conversion/cast.hpp>
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <string>

using namespace netrove;

namespace {

using Whole = boost::multiprecision::cpp_int;

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kTwoTo63 = 0x1p63;

// The number in decimal, or the name of the overflow.
template <class Function>
std::string outcome(Function narrow, double value) {
    try {
        return std::to_string(narrow(value));
    } catch (const boost::numeric::negative_overflow&) {
        return "negative_overflow";
    } catch (const boost::numeric::positive_overflow&) {
        return "positive_overflow";
    }
}

struct Row {
    double Value;
    const char* Int32;
    const char* Port;
    const char* Wrapped;
};

const Row kRows[] = {
    {0.0, "0", "0", "0"},
    {1.9, "1", "1", "1"},
    {-0.5, "0", "0", "0"},
    {-1.0, "-1", "negative_overflow", "18446744073709551615"},
    {-2.9, "-2", "negative_overflow", "18446744073709551614"},
    {65535.9, "65535", "65535", "65535"},
    {65536.0, "65536", "positive_overflow", "65536"},
    {2147483647.9, "2147483647", "positive_overflow", "2147483647"},
    {2147483648.0, "positive_overflow", "positive_overflow", "2147483648"},
    {-2147483648.9, "-2147483648", "negative_overflow", "18446744071562067968"},
    {-2147483649.0, "negative_overflow", "negative_overflow", "18446744071562067967"},
    {-kTwoTo63, "negative_overflow", "negative_overflow", "9223372036854775808"},
    {kTwoTo63 + 2048.0, "positive_overflow", "positive_overflow", "9223372036854777856"},
    {2.0 * kTwoTo63, "positive_overflow", "positive_overflow", "9223372036854775808"},
    {kInfinity, "positive_overflow", "positive_overflow", "9223372036854775808"},
    {-kInfinity, "negative_overflow", "negative_overflow", "9223372036854775808"},
    {kNaN, "-2147483648", "0", "9223372036854775808"},
};

TEST(NumericNarrowing, RoundsTowardsZeroAndRefusesOrWrapsWhatLiesOutside) {
    for (const Row& row : kRows) {
        EXPECT_EQ(outcome(narrowToInt32, row.Value), row.Int32) << row.Value;
        EXPECT_EQ(outcome(narrowToUInt16, row.Value), row.Port) << row.Value;
        EXPECT_EQ(outcome(wrapToUInt64, row.Value), row.Wrapped) << row.Value;
    }
}

// The model.

std::string model(double value, const Whole& least, const Whole& greatest, const Whole& whenNaN) {
    if (std::isnan(value)) {
        return whenNaN.str();
    }
    const bool below = std::isinf(value) ? value < 0 : Whole(value) < least;
    const bool above = std::isinf(value) ? value > 0 : Whole(value) > greatest;
    return below ? "negative_overflow" : above ? "positive_overflow" : Whole(value).str();
}

std::string modelOfWrapping(double value) {
    const Whole half = Whole(1) << 63;
    if (!std::isfinite(value) || Whole(value) < -half || Whole(value) >= 2 * half) {
        return half.str();
    }
    return Whole(value <= -1 ? Whole(value) + 2 * half : Whole(value)).str();
}

bool followsTheModel(double value) {
    const Whole half = Whole(1) << 31;
    return outcome(narrowToInt32, value) == model(value, -half, half - 1, -half) &&
           outcome(narrowToUInt16, value) == model(value, 0, 65535, 0) &&
           outcome(wrapToUInt64, value) == modelOfWrapping(value);
}

RC_GTEST_PROP(NumericNarrowing, AnyDoubleFollowsTheModel, ()) {
    const auto halves = rc::gen::map(rc::gen::inRange(-200'000, 200'000), [](int value) { return value / 2.0; });
    const auto whole = rc::gen::map(rc::gen::resize(rc::kNominalSize, rc::gen::arbitrary<std::int64_t>()),
                                    [](std::int64_t value) { return static_cast<double>(value); });
    const auto bits = rc::gen::map(rc::gen::resize(rc::kNominalSize, rc::gen::arbitrary<std::uint64_t>()),
                                   [](std::uint64_t value) { return std::bit_cast<double>(value); });
    RC_ASSERT(followsTheModel(*rc::gen::oneOf(halves, whole, bits)));
}

// Up to some steps of the smallest size away from a limit, to either side.
double near(double limit, int steps) {
    for (int step = std::abs(steps); step > 0; --step) {
        limit = std::nextafter(limit, steps < 0 ? -kInfinity : kInfinity);
    }
    return limit;
}

TEST(NumericNarrowing, EveryLimitAndItsNeighboursFollowTheModel) {
    using Limits = std::numeric_limits<double>;
    for (const double limit : {0.0, 1.0, 65535.0, 65536.0, 0x1p31 - 1, 0x1p31, 0x1p31 + 1, kTwoTo63, 2 * kTwoTo63,
                               Limits::max(), Limits::denorm_min(), kInfinity, kNaN}) {
        for (int steps = -3; steps <= 3; ++steps) {
            for (int quarters = -12; quarters <= 12; ++quarters) {
                const double value = near(limit, steps) + quarters / 4.0;
                EXPECT_TRUE(followsTheModel(value) && followsTheModel(-value)) << limit << ' ' << steps << ' ' << value;
            }
        }
    }
}

} // namespace
