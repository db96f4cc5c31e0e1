// Arrays as a C++ program makes and reads them.
#include "vantik/Array.h"

#include "embedded/arrays/CallFrame.h"
#include "tests/embedded/arrays/ArrayFixture.h"

#include <cmath>
#include <type_traits>

using vantik::Array;
using vantik::detail::CallFrame;
using ArrayValues = ArrayFixture;
using Shape = std::vector<std::size_t>;

TEST_F(ArrayValues, DefaultIsTheArrayOfNoClass) {
    const Array nothing;
    const Array copy = nothing;
    for (const Array& array : {nothing, copy, Array::adopt(nullptr)}) {
        EXPECT_TRUE(array.empty());
        EXPECT_EQ(array.className(), "");
        EXPECT_EQ(array.dimensions(), (Shape{0, 0}));
        EXPECT_FALSE(array.isA("double"));
        EXPECT_EQ(array.handle(), nullptr);
    }
}

TEST_F(ArrayValues, NumbersHaveTheirClassesAndShapes) {
    struct Row {
        Array Value;
        const char* Shape;
        std::vector<double> Numbers;
    };
    for (const Row& row : {Row{Array(true), "1-by-1 logical", {1}},
                           {Array(2.5), "1-by-1 double", {2.5}},
                           {Array(std::int32_t{-7}), "1-by-1 int32", {-7}},
                           {Array(std::uint64_t{9}), "1-by-1 uint64", {9}},
                           {Array::doubles({1, -2.5, INFINITY}), "1-by-3 double", {1, -2.5, INFINITY}},
                           {Array::doubles(std::span<const double>()), "1-by-0 double", {}},
                           {Array::logicals({true, false, true}), "1-by-3 logical", {1, 0, 1}},
                           {Array::bytes("A\xFF"), "2-by-1 uint8", {65, 255}},
                           {Array::bytes(std::span<const std::byte>()), "0-by-1 uint8", {}}}) {
        EXPECT_EQ(shapeOf(row.Value.handle()), row.Shape);
        EXPECT_TRUE(row.Value.isA(row.Value.className()));
        EXPECT_EQ(row.Value.size(), row.Numbers.size());
        EXPECT_EQ(row.Value.doubles(), row.Numbers);
        if (row.Numbers.size() == 1) {
            EXPECT_EQ(row.Value.number(), row.Numbers[0]);
            EXPECT_TRUE(row.Value.truth());
        }
    }
    EXPECT_FALSE(Array(false).truth());
    EXPECT_FALSE(Array(0.0).truth());
}

TEST_F(ArrayValues, IntegersOfAnyTypeAreTaken) {
    struct Row {
        Array Value;
        const char* Class;
        double Number;
    };
    constexpr long long kWide = 1LL << 40;
    for (const Row& row : {Row{Array(std::int8_t{-1}), "int32", -1},
                           {Array(std::uint8_t{200}), "int32", 200},
                           {Array(short{-300}), "int32", -300},
                           {Array(std::uint16_t{65535}), "int32", 65535},
                           {Array(7), "int32", 7},
                           {Array(7U), "uint64", 7},
                           {Array(7L), "int32", 7},
                           {Array(7LL), "int32", 7},
                           {Array(7UL), "uint64", 7},
                           {Array(7ULL), "uint64", 7},
                           {Array(std::size_t{7}), "uint64", 7},
                           {Array(long{INT32_MIN}), "int32", INT32_MIN},
                           {Array(long{INT32_MAX}), "int32", INT32_MAX},
                           {Array(long{INT32_MAX} + 1), "uint64", 2147483648.0},
                           {Array(kWide), "uint64", double(kWide)},
                           {Array(long{INT32_MIN} - 1), "double", -2147483649.0},
                           {Array(-kWide), "double", -double(kWide)},
                           {Array(INT64_MIN), "double", -9223372036854775808.0}}) {
        EXPECT_EQ(row.Value.className(), row.Class) << row.Number;
        EXPECT_EQ(row.Value.number(), row.Number);
    }
    EXPECT_EQ(Array(INT64_MAX).unsignedInteger(), 9223372036854775807u);
    EXPECT_EQ(failureOf([] { Array{-9007199254740993LL}; }), "VANTIK:vx:NumberNotHeld(-9007199254740993)");
    static_assert(!std::is_constructible_v<Array, char>);
    static_assert(!std::is_constructible_v<Array, char16_t>);
    static_assert(!std::is_constructible_v<Array, wchar_t>);
    static_assert(!std::is_constructible_v<Array, const void*>);
    EXPECT_EQ(Array(true).className(), "logical");
}

TEST_F(ArrayValues, TextSurvivesBothWays) {
    const std::string utf8 = "a\u00E9\U0001F600";
    for (const Array& value :
         {Array(utf8.c_str()), Array(utf8), Array(std::string_view(utf8)), Array(u"a\u00E9\U0001F600"),
          Array(std::u16string(u"a\u00E9\U0001F600")), Array(std::u16string_view(u"a\u00E9\U0001F600"))}) {
        EXPECT_EQ(value.className(), "char");
        EXPECT_EQ(value.dimensions(), (Shape{1, 4}));
        EXPECT_EQ(value.text(), utf8);
        EXPECT_EQ(value.wideText(), u"a\u00E9\U0001F600");
    }
    EXPECT_EQ(Array("").dimensions(), (Shape{1, 0}));
    EXPECT_EQ(Array(static_cast<const char*>(nullptr)).text(), "");
    EXPECT_EQ(Array(static_cast<const char16_t*>(nullptr)).text(), "");
    static_assert(!std::is_constructible_v<Array, int*>); // and not a logical
    EXPECT_EQ(Array(std::string("a\0b", 3)).text(), std::string("a\0b", 3));
}

TEST_F(ArrayValues, TextThatIsNotUtf8IsRefusedWithItsPlace) {
    EXPECT_EQ(failureOf([] { Array{"ab\xFF"}; }), "VANTIK:vx:NotUtf8(2)");
    EXPECT_EQ(failureOf([] { Array{std::string("a\xED\xA0\x80")}; }), "VANTIK:vx:NotUtf8(1)");
    EXPECT_EQ(failureOf([] { Array{std::string_view("\xE2\x82")}; }), "VANTIK:vx:NotUtf8(0)");
    const char16_t half[] = {u'a', 0xD800};
    const Array value(std::u16string_view(half, 2));
    EXPECT_THAT(failureOf([&] { value.text(); }), testing::StartsWith("VANTIK:vx:TextNotConvertible("));
    EXPECT_EQ(value.wideText(), std::u16string(half, 2));
}

TEST_F(ArrayValues, EmptyArraysOfAnyClassHaveAnotherText) {
    EXPECT_EQ(Array("text").textOr("none"), "text");
    EXPECT_EQ(Array("").textOr("none"), "none");
    EXPECT_EQ(Array().textOr("none"), "none");
    EXPECT_EQ(Array::bytes("").textOr(""), "");
    EXPECT_EQ(failureOf([] { Array(1.0).textOr("none"); }), "VANTIK:vx:ExpectedText(double)");
}

TEST_F(ArrayValues, BytesAreSeenInPlaceAndThoseOfAnArrayThatGoesAreCopied) {
    const std::string content("\0\xFF\x7F-abc", 7);
    const Array value = Array::bytes(content);
    static_assert(std::is_same_v<decltype(value.byteText()), std::string_view>);
    EXPECT_EQ(value.byteText(), content);
    EXPECT_EQ(value.byteText().data(), vantik::asText(value.bytes()).data());
    EXPECT_EQ(value.bytes()[1], std::byte{0xFF});
    static_assert(std::is_same_v<decltype(Array::bytes(content).byteText()), std::string>);
    EXPECT_EQ(Array::bytes(value.bytes()).byteText(), content);
    EXPECT_EQ(Array::bytes(std::string_view()).byteText(), "");
    EXPECT_EQ(vantik::asText({}), "");
}

TEST_F(ArrayValues, EnumerationKeepsItsMembers) {
    const std::vector<std::string> members{"Basic", "Digest"};
    EXPECT_EQ(shapeOf(Array::enumeration("a.Scheme", members).handle()), "1-by-2 a.Scheme");
    EXPECT_EQ(shapeOf(Array::enumeration("a.Scheme", {"A", "B"}).handle()), "1-by-2 a.Scheme");
}

TEST_F(ArrayValues, StructureHoldsItsFields) {
    Array value = Array::structure({{"Host", "proxy.example"}, {"Port", 8080.0}, {"Missing", Array()}});
    EXPECT_EQ(shapeOf(value.handle()), "1-by-1 struct");
    EXPECT_EQ(value.fieldNames(), (std::vector<std::string>{"Host", "Port", "Missing"}));
    EXPECT_EQ(value.field("Port").number(), 8080.0);
    EXPECT_EQ(value.field("Missing").className(), "");
    const Array field = value.field("Host");
    value = Array();
    EXPECT_EQ(field.text(), "proxy.example") << "a field outlives its struct";
}

TEST_F(ArrayValues, StructuresHaveOneElementARow) {
    const Array value = Array::structures({"Name", "Value"}, {{"Accept", "*/*"}, {"Host", "h"}});
    EXPECT_EQ(value.dimensions(), (Shape{1, 2}));
    EXPECT_EQ(value.field("Name", 1).text(), "Host");
    EXPECT_EQ(value.field("Value").text(), "*/*");
    EXPECT_EQ(Array::structures({"Name"}, {}).dimensions(), (Shape{1, 0}));
}

TEST_F(ArrayValues, WhatDoesNotFitIsRefused) {
    const Array value = Array::structure({{"Name", "x"}});
    const std::vector<std::string> two = {"Name", "Value"};
    const std::vector<std::string> same = {"Name", "Name"};
    const Array numbers = Array::doubles({1, 2});
    const std::pair<std::function<void()>, const char*> rows[] = {
        {[&] {
             Array::structures(two, {{"a", "b"}, {"c"}});
         },
         "VANTIK:vx:RowLength("},
        {[&] { Array::structures(same, {}); }, "VANTIK:vx:DuplicateField("},
        {[&] { Array::structure({Array::Field("", 1.0)}); }, "VANTIK:vx:EmptyFieldName("},
        {[&] { value.field("name"); }, "VANTIK:vx:NoSuchField(name"},
        {[&] { value.field("Name", 1); }, "VANTIK:vx:IndexOutOfRange("},
        {[] { Array(1.0).field("Name"); }, "VANTIK:vx:ExpectedClass(struct, double)"},
        {[] { Array(1.0).fieldNames(); }, "VANTIK:vx:ExpectedClass(struct, double)"},
        {[] { Array("text").bytes(); }, "VANTIK:vx:ExpectedClass(uint8, char)"},
        {[] { Array(1.0).byteText(); }, "VANTIK:vx:ExpectedClass(uint8, double)"},
        {[] { Array(1.0).writableBytes(); }, "VANTIK:vx:ExpectedClass(uint8, double)"},
        {[] { Array().bytes(); }, "VANTIK:vx:ExpectedClass(uint8, )"},
        {[] { Array(1.0).text(); }, "VANTIK:vx:ExpectedText(double)"},
        {[] { Array().text(); }, "VANTIK:vx:ExpectedText()"},
        {[] { Array(1.0).wideText(); }, "VANTIK:vx:ExpectedText(double)"},
        {[] { Array("1").number(); }, "VANTIK:vx:ExpectedClass("},
        {[] { Array().number(); }, "VANTIK:vx:ExpectedClass("},
        {[] { Array("1").doubles(); }, "VANTIK:vx:ExpectedClass("},
        {[&] { numbers.number(); }, "VANTIK:vx:ExpectedScalar("},
        {[] { Array::doubles({}).truth(); }, "VANTIK:vx:ExpectedScalar("},
        {[] { Array(std::int32_t{-1}).unsignedInteger(); }, "VANTIK:vx:ExpectedUnsignedInteger("},
    };
    for (const auto& [operation, failure] : rows) {
        EXPECT_THAT(failureOf(operation), testing::StartsWith(failure));
    }
}

TEST_F(ArrayValues, UnsignedIntegersAreWholeAndInRange) {
    EXPECT_EQ(Array(std::uint64_t{UINT64_MAX}).unsignedInteger(), UINT64_MAX);
    EXPECT_EQ(Array(9007199254740993.0).unsignedInteger(), 9007199254740992u);
    EXPECT_EQ(Array(18446744073709549568.0).unsignedInteger(), 18446744073709549568u);
    EXPECT_EQ(Array(0.0).unsignedInteger(), 0u);
    EXPECT_EQ(Array(-0.0).unsignedInteger(), 0u);
    EXPECT_EQ(Array(std::int32_t{5}).unsignedInteger(), 5u);
    EXPECT_EQ(Array::bytes("A").unsignedInteger(), 65u);
    for (const double value : {-1.0, 0.5, 18446744073709551616.0, double(INFINITY), double(-INFINITY), double(NAN)}) {
        EXPECT_THAT(failureOf([value] { Array(value).unsignedInteger(); }),
                    testing::StartsWith("VANTIK:vx:ExpectedUnsignedInteger("));
    }
}

TEST_F(ArrayValues, CopiesShareUntilOneIsWritten) {
    Array first = Array::bytes("abc");
    const Array second = first;
    EXPECT_EQ(first.bytes().data(), second.bytes().data());
    first.writableBytes()[0] = std::byte{'x'};
    EXPECT_EQ(first.byteText(), "xbc");
    EXPECT_EQ(second.byteText(), "abc");
}

TEST_F(ArrayValues, MovesAndHandlesLeaveNothing) {
    Array first("text");
    Array second = std::move(first);
    Array third;
    third = std::move(second);
    EXPECT_EQ(third.text(), "text");
    EXPECT_EQ(liveArrays(), 1u);
    vxArray_tag* handle = third.release();
    EXPECT_EQ(third.handle(), nullptr);
    const Array back = Array::adopt(handle);
    EXPECT_EQ(back.handle(), handle);
    EXPECT_EQ(back.text(), "text");
}

TEST_F(ArrayValues, OutlivesTheHostCallThatItIsMadeIn) {
    const std::size_t before = CallFrame::reclaimed();
    std::vector<Array> kept;
    {
        CallFrame frame;
        kept = {"text", Array::bytes("text"), Array::adopt(vantik::detail::makeText(u"text"))};
        kept.push_back(kept[0]);
        kept.push_back(Array::structure({{"Name", kept[0]}}).field("Name"));
    }
    EXPECT_EQ(CallFrame::reclaimed(), before);
    EXPECT_EQ(kept[1].byteText(), "text");
    for (const std::size_t index : {0, 2, 3, 4}) {
        EXPECT_EQ(kept[index].text(), "text") << index;
    }
}
