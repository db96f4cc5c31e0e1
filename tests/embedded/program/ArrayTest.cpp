// Arrays as a C++ program makes and reads them.
#include "vantik/Array.h"

#include "embedded/arrays/CallFrame.h"
#include "tests/embedded/arrays/ArrayFixture.h"
#include "tests/embedded/program/ProgramFixture.h"

#include <cmath>
#include <cstdint>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace {

using vantik::Array;
using Shape = std::vector<std::size_t>;

class ArrayValues : public ArrayFixture {};

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
        const char* ClassName;
        Shape Dimensions;
        std::vector<double> Numbers;
    };
    for (const Row& row : {Row{Array(true), "logical", {1, 1}, {1}},
                           {Array(2.5), "double", {1, 1}, {2.5}},
                           {Array(std::int32_t{-7}), "int32", {1, 1}, {-7}},
                           {Array(std::uint64_t{9}), "uint64", {1, 1}, {9}},
                           {Array::doubles({1, -2.5, INFINITY}), "double", {1, 3}, {1, -2.5, INFINITY}},
                           {Array::doubles(std::span<const double>()), "double", {1, 0}, {}},
                           {Array::logicals({true, false, true}), "logical", {1, 3}, {1, 0, 1}},
                           {Array::bytes("A\xFF"), "uint8", {2, 1}, {65, 255}},
                           {Array::bytes(std::span<const std::byte>()), "uint8", {0, 1}, {}}}) {
        EXPECT_EQ(row.Value.className(), row.ClassName);
        EXPECT_TRUE(row.Value.isA(row.ClassName));
        EXPECT_EQ(row.Value.dimensions(), row.Dimensions);
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
    for (const auto& [text, place] :
         {std::pair{"ab\xFF", 2}, {"\x80", 0}, {"\xC0\xAF", 0}, {"a\xED\xA0\x80", 1}, {"\xE2\x82", 0}}) {
        EXPECT_EQ(failureOf([given = text] { Array{given}; }), "VANTIK:vx:NotUtf8(" + std::to_string(place) + ")");
    }
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

TEST_F(ArrayValues, BytesComeBackAsBytesAndText) {
    const std::string content("\0\xFF\x7F"
                              "abc",
                              6);
    const Array value = Array::bytes(content);
    EXPECT_EQ(value.byteText(), content);
    EXPECT_EQ(value.bytes()[1], std::byte{0xFF});
    EXPECT_EQ(Array::bytes(value.bytes()).byteText(), content);
    EXPECT_EQ(Array::bytes(std::string_view()).byteText(), "");
}

TEST_F(ArrayValues, BytesOfAnArrayThatGoesAreCopied) {
    const auto make = [] { return Array::bytes("a\0b"); };
    static_assert(std::is_same_v<decltype(make().byteText()), std::string>);
    const auto text = make().byteText();
    EXPECT_EQ(text, "a");
    const Array kept = Array::bytes("kept");
    static_assert(std::is_same_v<decltype(kept.byteText()), std::string_view>);
    EXPECT_EQ(kept.byteText().data(), vantik::asText(kept.bytes()).data());
    EXPECT_EQ(vantik::asText(kept.bytes()), "kept");
    EXPECT_EQ(vantik::asText({}), "");
}

TEST_F(ArrayValues, EnumerationKeepsItsMembers) {
    const char* const className = "vantik.net.http.AuthenticationScheme";
    const std::vector<std::string> members{"Basic", "Digest"};
    for (const Array& value : {Array::enumeration(className, members), Array::enumeration(className, {"A", "B"})}) {
        EXPECT_EQ(value.className(), className);
        EXPECT_EQ(value.dimensions(), (Shape{1, 2}));
        EXPECT_EQ(omGetNumberOfElementsInUnderlyingArray(value.handle()), 2u);
    }
}

TEST_F(ArrayValues, StructureHoldsItsFields) {
    Array value = Array::structure({{"Host", "proxy.example"}, {"Port", 8080.0}, {"Missing", Array()}});
    EXPECT_EQ(value.className(), "struct");
    EXPECT_EQ(value.dimensions(), (Shape{1, 1}));
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
    const std::pair<std::function<void()>, const char*> rows[] = {
        {[] {
             Array::structures({"Name", "Value"}, {{"a", "b"}, {"c"}});
         },
         "VANTIK:vx:RowLength("},
        {[] {
             Array::structures({"Name", "Name"}, {});
         },
         "VANTIK:vx:DuplicateField("},
        {[] {
             Array::structure({{"", 1.0}});
         },
         "VANTIK:vx:EmptyFieldName("},
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
        {[] {
             Array::doubles({1, 2}).number();
         },
         "VANTIK:vx:ExpectedScalar("},
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
    const void* place = first.writableBytes().data();
    EXPECT_EQ(first.bytes().data(), place);
}

TEST_F(ArrayValues, MovesAndHandlesLeaveNothingBehind) {
    Array first("text");
    Array second = std::move(first);
    Array third;
    third = std::move(second);
    EXPECT_EQ(third.text(), "text");
    EXPECT_EQ(vantik::detail::liveArrays(), 1u);
    vxArray_tag* handle = third.release();
    EXPECT_EQ(third.handle(), nullptr);
    const Array back = Array::adopt(handle);
    EXPECT_EQ(back.handle(), handle);
    EXPECT_EQ(back.text(), "text");
}

TEST_F(ArrayValues, OutlivesTheHostCallThatItIsMadeIn) {
    const std::size_t before = vantik::detail::CallFrame::reclaimed();
    std::vector<Array> kept;
    {
        vantik::detail::CallFrame frame;
        kept.emplace_back("text");
        kept.push_back(Array::bytes("abc"));
        kept.push_back(kept[0]);
        kept.push_back(Array::structure({{"Name", kept[0]}}));
        kept.push_back(kept.back().field("Name"));
        kept.push_back(Array::adopt(vantik::detail::makeDouble(2)));
    }
    EXPECT_EQ(vantik::detail::CallFrame::reclaimed(), before);
    EXPECT_EQ(kept[0].text(), "text");
    EXPECT_EQ(kept[1].byteText(), "abc");
    EXPECT_EQ(kept[2].text(), "text");
    EXPECT_EQ(kept[4].text(), "text");
    EXPECT_EQ(kept[5].number(), 2.0);
}

} // namespace
