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

TEST(ValueSlot, HoldsTheBitsOfAValue) {
    EXPECT_EQ(written(true).Bits, 1u);
    EXPECT_EQ(written(false).Bits, 0u);
    EXPECT_EQ(written(-1).Bits, kAllOnes); // sign-extended
    EXPECT_EQ(written(std::numeric_limits<int>::min()).Bits, 0xFFFFFFFF80000000u);
    EXPECT_EQ(written(7).Bits, 7u);
    EXPECT_EQ(written(1.0).Bits, 0x3FF0000000000000u);
    EXPECT_EQ(written(-0.0).Bits, 0x8000000000000000u);
    EXPECT_EQ(written(18446744073709551615ull).Bits, kAllOnes);
}

TEST(ValueSlot, ReadsBackWhatItHolds) {
    EXPECT_FALSE(ValueSlot<bool>::read({0}));
    for (const std::uint64_t truth : {std::uint64_t{1}, std::uint64_t{0x100}, std::uint64_t{1} << 63}) {
        EXPECT_TRUE(ValueSlot<bool>::read({truth})) << truth;
    }
    EXPECT_EQ(ValueSlot<int>::read({kAllOnes}), -1);
    EXPECT_EQ(ValueSlot<int>::read(written(std::numeric_limits<int>::max())), std::numeric_limits<int>::max());
    EXPECT_TRUE(std::isnan(ValueSlot<double>::read(written(std::nan("")))));
    EXPECT_EQ(ValueSlot<unsigned long long>::read({kAllOnes}), 18446744073709551615ull);
    const std::u16string text = u"text";
    EXPECT_EQ(ValueSlot<Text>::read(written<Text>(&text)), &text);
    EXPECT_EQ(ValueSlot<Text>::read(written<Text>(nullptr)), nullptr);
}
