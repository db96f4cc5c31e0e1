// Narrowing against a model that takes each double apart into its exact whole number.
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

constexpr std::uint64_t kExponentMask = 0x7FF;

bool isFinite(double value) {
    return ((std::bit_cast<std::uint64_t>(value) >> 52U) & kExponentMask) != kExponentMask;
}

bool isNaN(double value) {
    return !isFinite(value) && (std::bit_cast<std::uint64_t>(value) << 12U) != 0;
}

bool isNegative(double value) {
    return (std::bit_cast<std::uint64_t>(value) >> 63U) != 0;
}

// What stands in front of the point of a finite value, read from its bits.
Whole wholePart(double value) {
    const auto bits = std::bit_cast<std::uint64_t>(value);
    const auto exponent = static_cast<int>((bits >> 52U) & kExponentMask) - 1075;
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
    return isNegative(value) ? Whole(-whole) : whole;
}

// The number in decimal, or the name of the overflow.
std::string model(double value, const Whole& least, const Whole& greatest, const Whole& whenNaN) {
    if (isNaN(value)) {
        return whenNaN.str();
    }
    const bool below = isFinite(value) ? wholePart(value) < least : isNegative(value);
    const bool above = isFinite(value) ? wholePart(value) > greatest : !isNegative(value);
    return below ? "negative_overflow" : above ? "positive_overflow" : wholePart(value).str();
}

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

const double kLimits[] = {0.0,
                          -0.0,
                          1.0,
                          -1.0,
                          65535.0,
                          65536.0,
                          2147483647.0,
                          2147483648.0,
                          -2147483648.0,
                          -2147483649.0,
                          9223372036854775808.0,
                          -9223372036854775808.0,
                          18446744073709551616.0,
                          std::numeric_limits<double>::max(),
                          std::numeric_limits<double>::denorm_min(),
                          std::numeric_limits<double>::infinity(),
                          -std::numeric_limits<double>::infinity(),
                          std::numeric_limits<double>::quiet_NaN()};

// Up to some steps of the smallest size away from a limit, to either side.
double near(double limit, int steps) {
    const double target =
        steps < 0 ? -std::numeric_limits<double>::infinity() : std::numeric_limits<double>::infinity();
    for (int step = std::abs(steps); step > 0; --step) {
        limit = std::nextafter(limit, target);
    }
    return limit;
}

rc::Gen<double> anyDouble() {
    const auto limit = rc::gen::elementOf(std::vector<double>(std::begin(kLimits), std::end(kLimits)));
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

const Whole kTwoTo63 = Whole(1) << 63;

std::string modelOfInt32(double value) {
    return model(value, -(Whole(1) << 31), (Whole(1) << 31) - 1, -(Whole(1) << 31));
}

std::string modelOfUInt16(double value) {
    return model(value, 0, 65535, 0);
}

std::string modelOfUInt64(double value) {
    if (!isFinite(value) || wholePart(value) < -kTwoTo63 || wholePart(value) >= 2 * kTwoTo63) {
        return kTwoTo63.str();
    }
    const Whole whole = wholePart(value);
    return Whole(whole < 0 ? whole + 2 * kTwoTo63 : whole).str();
}

RC_GTEST_PROP(NumericNarrowingProperty, Int32FollowsTheModel, ()) {
    const double value = *anyDouble();
    RC_ASSERT(outcome(narrowToInt32, value) == modelOfInt32(value));
}

RC_GTEST_PROP(NumericNarrowingProperty, PortFollowsTheModel, ()) {
    const double value = *anyDouble();
    RC_ASSERT(outcome(narrowToUInt16, value) == modelOfUInt16(value));
}

RC_GTEST_PROP(NumericNarrowingProperty, WrappingFollowsTheModel, ()) {
    const double value = *anyDouble();
    RC_ASSERT(outcome(wrapToUInt64, value) == modelOfUInt64(value));
}

TEST(NumericNarrowingProperty, HoldsAtEveryLimitAndItsNeighbours) {
    for (const double limit : kLimits) {
        for (int steps = -3; steps <= 3; ++steps) {
            for (const double offset : {0.0, 0.5, -0.5, 1.0, -1.0}) {
                const double value = near(limit, steps) + offset;
                EXPECT_EQ(outcome(narrowToInt32, value), modelOfInt32(value)) << value;
                EXPECT_EQ(outcome(narrowToUInt16, value), modelOfUInt16(value)) << value;
                EXPECT_EQ(outcome(wrapToUInt64, value), modelOfUInt64(value)) << value;
            }
        }
    }
}

} // namespace
