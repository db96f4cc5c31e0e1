// Narrowing: readable examples, and a model that takes each double apart into its exact whole number.
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

// Examples.

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

// What stands in front of the point of a finite value, read from its bits.
Whole wholePart(double value) {
    const auto bits = std::bit_cast<std::uint64_t>(value);
    const auto exponent = static_cast<int>((bits >> 52U) & 0x7FF) - 1075;
    Whole whole = bits & ((std::uint64_t{1} << 52U) - 1);
    if (exponent != -1075) {
        whole += std::uint64_t{1} << 52U;
    }
    if (exponent >= 0) {
        whole <<= exponent;
    } else if (exponent > -64) {
        whole >>= -exponent;
    } else {
        whole = 0;
    }
    return std::signbit(value) ? Whole(-whole) : whole;
}

std::string model(double value, const Whole& least, const Whole& greatest, const Whole& whenNaN) {
    if (std::isnan(value)) {
        return whenNaN.str();
    }
    const bool below = std::isinf(value) ? value < 0 : wholePart(value) < least;
    const bool above = std::isinf(value) ? value > 0 : wholePart(value) > greatest;
    return below ? "negative_overflow" : above ? "positive_overflow" : wholePart(value).str();
}

std::string modelOfWrapping(double value) {
    const Whole half = Whole(1) << 63;
    if (!std::isfinite(value) || wholePart(value) < -half || wholePart(value) >= 2 * half) {
        return half.str();
    }
    const Whole whole = wholePart(value);
    return Whole(whole < 0 ? whole + 2 * half : whole).str();
}

bool followsTheModel(double value) {
    const Whole half = Whole(1) << 31;
    return outcome(narrowToInt32, value) == model(value, -half, half - 1, -half) &&
           outcome(narrowToUInt16, value) == model(value, 0, 65535, 0) &&
           outcome(wrapToUInt64, value) == modelOfWrapping(value);
}

const std::vector<double> kLimits = {0.0,
                                     -0.0,
                                     1.0,
                                     -1.0,
                                     65535.0,
                                     65536.0,
                                     0x1p31 - 1,
                                     0x1p31,
                                     -0x1p31,
                                     -0x1p31 - 1,
                                     kTwoTo63,
                                     -kTwoTo63,
                                     2 * kTwoTo63,
                                     std::numeric_limits<double>::max(),
                                     std::numeric_limits<double>::denorm_min(),
                                     kInfinity,
                                     -kInfinity,
                                     kNaN};

// Up to some steps of the smallest size away from a limit, to either side.
double near(double limit, int steps) {
    for (int step = std::abs(steps); step > 0; --step) {
        limit = std::nextafter(limit, steps < 0 ? -kInfinity : kInfinity);
    }
    return limit;
}

rc::Gen<double> anyDouble() {
    const auto limit = rc::gen::elementOf(kLimits);
    return rc::gen::oneOf(limit, rc::gen::apply(near, limit, rc::gen::inRange(-3, 4)),
                          rc::gen::apply([](double value, int quarters) { return value + quarters / 4.0; }, limit,
                                         rc::gen::inRange(-12, 13)),
                          rc::gen::map(rc::gen::inRange<std::int64_t>(-200'000, 200'000),
                                       [](std::int64_t value) { return static_cast<double>(value) / 2.0; }),
                          rc::gen::map(rc::gen::resize(rc::kNominalSize, rc::gen::arbitrary<std::int64_t>()),
                                       [](std::int64_t value) { return static_cast<double>(value); }),
                          rc::gen::map(rc::gen::resize(rc::kNominalSize, rc::gen::arbitrary<std::uint64_t>()),
                                       [](std::uint64_t bits) { return std::bit_cast<double>(bits); }));
}

RC_GTEST_PROP(NumericNarrowing, AnyDoubleFollowsTheModel, ()) {
    RC_ASSERT(followsTheModel(*anyDouble()));
}

TEST(NumericNarrowing, EveryLimitAndItsNeighboursFollowTheModel) {
    for (const double limit : kLimits) {
        for (int steps = -3; steps <= 3; ++steps) {
            for (const double offset : {0.0, 0.5, -0.5, 1.0, -1.0}) {
                EXPECT_TRUE(followsTheModel(near(limit, steps) + offset)) << limit << ' ' << steps << ' ' << offset;
            }
        }
    }
}

} // namespace
