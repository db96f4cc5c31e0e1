// Conversion of the host's doubles to integers. Values outside the target's range have defined results here: no
// conversion is made that the language leaves undefined.
#pragma once

#include <cstdint>

namespace netrove {

// Rounds towards zero. A value at or below the target's minimum less 1 raises boost::numeric::negative_overflow, one at
// or above its maximum plus 1 boost::numeric::positive_overflow. NaN is accepted and becomes the smallest 32-bit
// integer, or 0 for the port.
std::int32_t narrowToInt32(double value);
std::uint16_t narrowToUInt16(double value);

// Below 2^63: truncated to a signed 64-bit integer whose bits are read as unsigned, so -1 becomes the largest value.
// From 2^63 to below 2^64: truncated. NaN, infinities and everything else become 2^63.
std::uint64_t wrapToUInt64(double value) noexcept;

} // namespace netrove
