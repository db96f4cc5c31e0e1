// What bindings of other languages use of arrays and objects.
#include "vantik/Binding.h"

#include "tests/embedded/program/ProgramFixture.h"
#include "vantik/Http.h"

#include <algorithm>
#include <cstring>

using vantik::ElementClass;

using Binding = ProgramFixture;

TEST_F(Binding, ElementsOfEachClassAreWrittenInPlaceInColumnOrder) {
    const std::tuple<ElementClass, const char*, std::size_t> rows[] = {
        {ElementClass::Logical, "logical", 1}, {ElementClass::Uint8, "uint8", 1},   {ElementClass::Int32, "int32", 4},
        {ElementClass::Uint64, "uint64", 8},   {ElementClass::Double, "double", 8},
    };
    for (const auto& [kind, name, size] : rows) {
        Array array = vantik::makeElements(kind, 2, 3);
        EXPECT_EQ(array.className(), name);
        EXPECT_EQ(array.dimensions(), (std::vector<std::size_t>{2, 3}));
        EXPECT_EQ(vantik::elementClass(array), kind);
        const auto zeros = vantik::elements(array);
        ASSERT_EQ(zeros.size(), 6 * size) << name;
        EXPECT_TRUE(std::ranges::all_of(zeros, [](std::byte byte) { return byte == std::byte(0); })) << name;

        const Array copy = array;
        vantik::writableElements(array)[0] = std::byte(1);
        EXPECT_EQ(vantik::elements(array)[0], std::byte(1)) << name;
        EXPECT_EQ(vantik::elements(copy)[0], std::byte(0)) << name << ": a copy changed with the original";
    }
    Array matrix = vantik::makeElements(ElementClass::Double, 2, 2);
    const double second = 7;
    std::memcpy(vantik::writableElements(matrix).data() + sizeof second, &second, sizeof second);
    EXPECT_EQ(matrix.doubles(), (std::vector<double>{0, 7, 0, 0}));
}

TEST_F(Binding, OtherArraysHaveNoElements) {
    Array others[] = {Array(), Array("text"), Array::structure({{"A", 1.0}}),
                      Array::enumeration(vantik::kAuthenticationSchemeClass, {"Basic"})};
    for (Array& other : others) {
        EXPECT_EQ(vantik::elementClass(other), std::nullopt);
        EXPECT_TRUE(vantik::elements(other).empty());
        EXPECT_TRUE(vantik::writableElements(other).empty());
    }
    EXPECT_EQ(vantik::members(others[3]), std::vector<std::string>{"Basic"});
    EXPECT_EQ(vantik::members(others[1]), std::nullopt);
}

TEST_F(Binding, AnObjectCarriesAValueUntilItGoes) {
    HostClass("test.Base").defineIn(*Home);
    HostClass("test.Carrier").derivesFrom("test.Base").defineIn(*Home);
    const auto value = std::make_shared<int>(7);
    {
        const Object one = Home->create("test.Carrier");
        const Object other = Home->create("test.Carrier");
        EXPECT_EQ(vantik::attached(one), nullptr);
        EXPECT_TRUE(vantik::attach(one, value));
        const Object same = one;
        EXPECT_EQ(vantik::attached(same), value);
        EXPECT_EQ(vantik::attached(other), nullptr);
        EXPECT_EQ(value.use_count(), 2);
    }
    EXPECT_EQ(value.use_count(), 1);
}

TEST_F(Binding, AnObjectOfAnotherClassCarriesNone) {
    const Object reporter = makeProgressReporter(*Home, [](std::uint64_t) { return true; });
    EXPECT_FALSE(vantik::attach(reporter, std::make_shared<int>(7)));
    EXPECT_EQ(vantik::attached(reporter), nullptr);
    EXPECT_EQ(failureOf([] { vantik::attached(Object()); }), "VANTIK:vcos:NoObject()");
}
