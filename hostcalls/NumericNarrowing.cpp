#include "hostcalls/NumericNarrowing.h"

#include <boost/numeric/conversion/cast.hpp>

#include <cmath>
#include <limits>

namespace netrove {

namespace {

// `belowMinimum` and `aboveMaximum` are the nearest values that fail. NaN compares false with both.
template <class Target>
Target narrow(double value, double belowMinimum, double aboveMaximum, Target whenNaN) {
    if (value <= belowMinimum) {
        throw boost::numeric::negative_overflow();
    }
    if (value >= aboveMaximum) {
        throw boost::numeric::positive_overflow();
    }
    return std::isnan(value) ? whenNaN : static_cast<Target>(std::trunc(value));
}

} // namespace

std::int32_t narrowToInt32(double value) {
    return narrow(value, -2147483649.0, 2147483648.0, std::numeric_limits<std::int32_t>::min());
}

std::uint16_t narrowToUInt16(double value) {
    return narrow<std::uint16_t>(value, -1.0, 65536.0, 0);
}

std::uint64_t wrapToUInt64(double value) noexcept {
    constexpr double twoTo63 = 9223372036854775808.0;
    constexpr std::uint64_t topBit = std::uint64_t{1} << 63U;
    if (value >= -twoTo63 && value < twoTo63) {
        return static_cast<std::uint64_t>(static_cast<std::int64_t>(value));
    }
    if (value >= twoTo63 && value < 2.0 * twoTo63) {
        return static_cast<std::uint64_t>(static_cast<std::int64_t>(value - twoTo63)) + topBit;
    }
    return topBit;
}

} // namespace netrove
