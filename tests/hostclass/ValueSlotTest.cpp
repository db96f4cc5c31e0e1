#include "hostclass/ValueSlot.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>

using namespace netrove;

namespace {

constexpr std::uint64_t kAllOnes = std::numeric_limits<std::uint64_t>::max();

template <class T>
vcos::COSValue written(T value) {
    vcos::COSValue slot{0x5555555555555555};
    ValueSlot<T>::write(slot, value);
    return slot;
}

} // namespace

TEST(ValueSlot, LogicalIsWrittenAsZeroOrOne) {
    EXPECT_EQ(written(true).Bits, 1u);
    EXPECT_EQ(written(false).Bits, 0u);
}

TEST(ValueSlot, AnyNonZeroSlotReadsAsTrue) {
    EXPECT_FALSE(ValueSlot<bool>::read({0}));
    EXPECT_TRUE(ValueSlot<bool>::read({1}));
    EXPECT_TRUE(ValueSlot<bool>::read({0x100}));
    EXPECT_TRUE(ValueSlot<bool>::read({std::uint64_t{1} << 63}));
}

TEST(ValueSlot, Int32IsSignExtended) {
    EXPECT_EQ(written(-1).Bits, kAllOnes);
    EXPECT_EQ(written(std::numeric_limits<int>::min()).Bits, 0xFFFFFFFF80000000u);
    EXPECT_EQ(written(7).Bits, 7u);
    EXPECT_EQ(ValueSlot<int>::read({kAllOnes}), -1);
    EXPECT_EQ(ValueSlot<int>::read(written(std::numeric_limits<int>::max())), std::numeric_limits<int>::max());
}

TEST(ValueSlot, DoubleKeepsItsBits) {
    EXPECT_EQ(written(1.0).Bits, 0x3FF0000000000000u);
    EXPECT_EQ(written(-0.0).Bits, 0x8000000000000000u);
    EXPECT_TRUE(std::isnan(ValueSlot<double>::read(written(std::nan("")))));
}

TEST(ValueSlot, UInt64CoversTheWholeSlot) {
    EXPECT_EQ(written(18446744073709551615ull).Bits, kAllOnes);
    EXPECT_EQ(ValueSlot<unsigned long long>::read({kAllOnes}), 18446744073709551615ull);
}

TEST(ValueSlot, PointersComeBackAsTheyWere) {
    const std::u16string text = u"text";
    EXPECT_EQ(ValueSlot<Text>::read(written<Text>(&text)), &text);
    EXPECT_EQ(ValueSlot<Text>::read(written<Text>(nullptr)), nullptr);
}
