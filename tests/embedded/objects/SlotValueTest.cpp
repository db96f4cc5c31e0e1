// Conversions on the way into a value slot.
#include "embedded/objects/SlotValue.h"

#include "tests/embedded/classes/ClassFixture.h"

#include <bit>
#include <cmath>
#include <limits>

using namespace vantik::detail;

namespace {

class SlotValues : public ClassFixture {
protected:
    static ArrayOwner owned(vxArray_tag* array) { return ArrayOwner(array); }
    static ArrayOwner number(double value) { return owned(makeDouble(value)); }
    static ArrayOwner i32(std::int32_t value) { return owned(makeInt32(value)); }
    static ArrayOwner u64(std::uint64_t value) { return owned(makeUInt64(value)); }
    static ArrayOwner u8(std::uint8_t value) { return owned(makePlainFrom(vxUINT8_CLASS, 1, 1, &value)); }
    static ArrayOwner logical(bool value) { return owned(makeLogical(value)); }
    static ArrayOwner plain(vxClassID classId, std::size_t rows, std::size_t columns) {
        return owned(makePlain(classId, rows, columns));
    }
    static ArrayOwner structs(std::size_t rows, std::size_t columns) {
        return owned(vx::vxCreateStructMatrix(rows, columns, 0, nullptr));
    }
    static ArrayOwner noClass() { return owned(vx::vxCreateEmptyUnknownArrayNotOnArrayList()); }

    static inline const SlotPlace kInput{"test.Thing", "run", SlotPlace::Role::Input, 2};

    // The slot's bits, or the description of the refused value.
    static std::string bits(const char* typeWord, const ArrayOwner& given) {
        std::string result;
        const std::string failure = failureOf([&] {
            const SlotValue value(*TypeWord::parse(typeWord), given.get(), kInput);
            result = std::to_string(value.slot().Bits);
        });
        if (failure.empty()) {
            return result;
        }
        const std::string head = std::string("VANTIK:vcos:WrongInputType(test.Thing, run, 2, ") + typeWord + ", ";
        EXPECT_EQ(failure.substr(0, head.size()), head);
        return failure.substr(head.size(), failure.size() - head.size() - 1);
    }

    // "as it is" where the very array goes through, the shape of a converted one, or "refused".
    static std::string taken(const char* typeWord, const ArrayOwner& given) {
        std::string result;
        const std::string failure = failureOf([&] {
            const SlotValue value(*TypeWord::parse(typeWord), given.get(), kInput);
            const vxArray_tag* array = arrayIn(value.slot());
            result = array == given.get() ? "as it is" : shapeOf(array);
        });
        return failure.empty() ? result : "refused";
    }
};

} // namespace

TEST_F(SlotValues, NumberGoesWhereItFitsExactly) {
    const auto real = [](double value) { return std::to_string(std::bit_cast<std::uint64_t>(value)); };
    constexpr std::uint64_t kMost = std::numeric_limits<std::uint64_t>::max();

    EXPECT_EQ(bits("logical scalar", logical(true)), "1");
    EXPECT_EQ(bits("logical scalar", number(1)), "1");
    EXPECT_EQ(bits("logical scalar", i32(0)), "0");
    EXPECT_EQ(bits("logical scalar", u8(1)), "1");
    EXPECT_EQ(bits("logical scalar", number(2)), "double scalar 2");
    EXPECT_EQ(bits("logical scalar", i32(-1)), "int32 scalar -1");
    EXPECT_EQ(bits("logical scalar", number(std::nan(""))), "double scalar nan");

    EXPECT_EQ(bits("int32 scalar", i32(-1)), std::to_string(kMost));
    EXPECT_EQ(bits("int32 scalar", number(-2147483648.0)), "18446744071562067968");
    EXPECT_EQ(bits("int32 scalar", number(2147483647.0)), "2147483647");
    EXPECT_EQ(bits("int32 scalar", number(2147483648.0)), "double scalar 2147483648");
    EXPECT_EQ(bits("int32 scalar", number(-2147483649.0)), "double scalar -2147483649");
    EXPECT_EQ(bits("int32 scalar", number(2.5)), "double scalar 2.5");
    EXPECT_EQ(bits("int32 scalar", number(std::numeric_limits<double>::infinity())), "double scalar inf");
    EXPECT_EQ(bits("int32 scalar", u64(2147483648u)), "uint64 scalar 2147483648");
    EXPECT_EQ(bits("int32 scalar", u64(7)), "7");
    EXPECT_EQ(bits("int32 scalar", logical(true)), "1");
    EXPECT_EQ(bits("int32 scalar", u8(255)), "255");

    EXPECT_EQ(bits("uint64 scalar", u64(kMost)), std::to_string(kMost));
    EXPECT_EQ(bits("uint64 scalar", i32(7)), "7");
    EXPECT_EQ(bits("uint64 scalar", i32(-7)), "int32 scalar -7");
    EXPECT_EQ(bits("uint64 scalar", number(18446744073709549568.0)), "18446744073709549568");
    EXPECT_EQ(bits("uint64 scalar", number(18446744073709551616.0)), "double scalar 18446744073709551616");
    EXPECT_EQ(bits("uint64 scalar", number(-1)), "double scalar -1");
    EXPECT_EQ(bits("uint64 scalar", number(0.5)), "double scalar 0.5");

    EXPECT_EQ(bits("double scalar", number(0.1)), real(0.1));
    EXPECT_EQ(bits("double scalar", i32(-7)), real(-7));
    EXPECT_EQ(bits("double scalar", logical(true)), real(1));
    EXPECT_EQ(bits("double scalar", u64(9007199254740992u)), real(9007199254740992.0));
    EXPECT_EQ(bits("double scalar", u64(9007199254740993u)), "uint64 scalar 9007199254740993");
    EXPECT_EQ(bits("double scalar", u64(kMost)), "uint64 scalar " + std::to_string(kMost));
}

TEST_F(SlotValues, NumberIsOneNumberAndNothingElse) {
    for (const char* typeWord : {"logical scalar", "int32 scalar", "uint64 scalar", "double scalar"}) {
        EXPECT_EQ(bits(typeWord, plain(vxDOUBLE_CLASS, 0, 0)), "0-by-0 double");
        EXPECT_EQ(bits(typeWord, plain(vxDOUBLE_CLASS, 1, 2)), "1-by-2 double");
        EXPECT_EQ(bits(typeWord, owned(makeText(u"1"))), "char scalar");
        EXPECT_EQ(bits(typeWord, structs(1, 1)), "struct scalar");
        EXPECT_EQ(bits(typeWord, ArrayOwner()), "nothing");
        EXPECT_EQ(bits(typeWord, noClass()), "nothing");
    }
}

TEST_F(SlotValues, VectorTakesRowColumnScalarAndEmpty) {
    for (const char* typeWord : {"uint8 vector", "double vector", "char vector"}) {
        const vxClassID classId = TypeWord::parse(typeWord)->Plain;
        for (const auto& [rows, columns] : {std::pair{1, 3}, {3, 1}, {1, 1}, {0, 1}, {0, 3}}) {
            EXPECT_EQ(taken(typeWord, plain(classId, std::size_t(rows), std::size_t(columns))), "as it is");
        }
        EXPECT_EQ(taken(typeWord, plain(classId, 2, 2)), "refused");
    }
    EXPECT_EQ(taken("uint8", plain(vxUINT8_CLASS, 2, 2)), "as it is") << "a class alone takes any shape";
    EXPECT_EQ(taken("uint8 scalar", u8(1)), "as it is");
    EXPECT_EQ(taken("uint8 scalar", plain(vxUINT8_CLASS, 1, 2)), "refused");
    EXPECT_EQ(taken("uint8 scalar", plain(vxUINT8_CLASS, 0, 0)), "refused");
}

TEST_F(SlotValues, EmptyArrayBecomesTheEmptyOneOfTheDeclaredClass) {
    for (const std::string className :
         {"uint8", "char", "struct", "vantik.net.http.AuthenticationScheme", "vantik.net.http.io.ContentProvider"}) {
        const std::string typeWord = className + " vector";
        EXPECT_EQ(taken(typeWord.c_str(), noClass()), "0-by-0 " + className);
        EXPECT_EQ(taken(typeWord.c_str(), ArrayOwner()), "0-by-0 " + className);
    }
    for (const std::string className : {"uint8", "char", "struct"}) {
        EXPECT_EQ(taken((className + " vector").c_str(), plain(vxDOUBLE_CLASS, 0, 0)), "0-by-0 " + className);
    }
    EXPECT_EQ(taken("struct scalar", noClass()), "refused");
    EXPECT_EQ(taken("vantik.net.http.io.ContentProvider scalar", noClass()), "refused");
}

TEST_F(SlotValues, NumbersOfAVectorAreConvertedTogether) {
    const double small[] = {0, 127, 255};
    const double large[] = {0, 127, 256};
    const ArrayOwner fits = owned(makePlainFrom(vxDOUBLE_CLASS, 1, 3, small));
    EXPECT_EQ(taken("uint8 vector", fits), "1-by-3 uint8");
    EXPECT_EQ(taken("uint8 vector", owned(makePlainFrom(vxDOUBLE_CLASS, 3, 1, large))), "refused");
    EXPECT_EQ(taken("double vector", plain(vxINT32_CLASS, 2, 1)), "2-by-1 double");
    EXPECT_EQ(taken("double vector", plain(vxLOGICAL_CLASS, 1, 2)), "1-by-2 double");
    EXPECT_EQ(taken("char vector", plain(vxDOUBLE_CLASS, 1, 2)), "refused");
    EXPECT_EQ(taken("double vector", owned(makeText(u"12"))), "refused");
    const SlotValue value(*TypeWord::parse("uint8 vector"), fits.get(), kInput);
    const vxArray_tag* converted = arrayIn(value.slot());
    EXPECT_THAT(std::span(static_cast<const std::uint8_t*>(vx::vxGetData(converted)), 3),
                testing::ElementsAre(0, 127, 255));
}

TEST_F(SlotValues, TextIsOneRowOrColumnOfCharacters) {
    const auto text = [](const ArrayOwner& given) {
        const SlotValue value(*TypeWord::parse("unicodeString"), given.get(), kInput);
        return *reinterpret_cast<const std::u16string*>(value.slot().Bits);
    };
    EXPECT_EQ(text(owned(makeText(u"text"))), u"text");
    EXPECT_EQ(text(owned(makePlainFrom(vxCHAR_CLASS, 2, 1, u"ab"))), u"ab");
    EXPECT_EQ(text(plain(vxCHAR_CLASS, 0, 0)), u"");
    EXPECT_EQ(text(noClass()), u"");
    EXPECT_EQ(taken("unicodeString", plain(vxCHAR_CLASS, 2, 2)), "refused");
    EXPECT_EQ(taken("unicodeString", number(1)), "refused");
    EXPECT_EQ(taken("unicodeString", plain(vxDOUBLE_CLASS, 0, 0)), "refused");
}

TEST_F(SlotValues, StructsAndObjectsGoByClassAndShape) {
    EXPECT_EQ(taken("struct scalar", structs(1, 1)), "as it is");
    EXPECT_EQ(taken("struct scalar", structs(1, 2)), "refused");
    EXPECT_EQ(taken("struct vector", structs(1, 2)), "as it is");
    EXPECT_EQ(taken("struct vector", structs(2, 2)), "refused");
    EXPECT_EQ(taken("struct vector", number(1)), "refused");

    addClass("Root");
    addDerivedClass("Leaf", {"test.Root"});
    const ArrayOwner root = make("test.Root");
    const ArrayOwner leaf = make("test.Leaf");
    EXPECT_EQ(taken("test.Root scalar", root), "as it is");
    EXPECT_EQ(taken("test.Root scalar", leaf), "as it is");
    EXPECT_EQ(bits("test.Leaf scalar", root), "test.Root scalar") << "refused";
    EXPECT_EQ(taken("scalar", leaf), "as it is") << "any class";
    EXPECT_EQ(taken("scalar", number(1)), "refused");

    const std::string scheme = "vantik.net.http.AuthenticationScheme";
    const std::string vector = scheme + " vector";
    const ArrayOwner two = owned(makeEnumerationArray(scheme, {"Basic", "SomethingNewer"}));
    EXPECT_EQ(taken(vector.c_str(), two), "as it is");
    EXPECT_EQ(taken((scheme + " scalar").c_str(), two), "refused");
    EXPECT_EQ(taken(vector.c_str(), owned(makeText(u"Basic"))), "refused");
}

TEST_F(SlotValues, AnyTakesEverythingAsItIs) {
    EXPECT_EQ(taken("any", number(1)), "as it is");
    EXPECT_EQ(taken("any", plain(vxCHAR_CLASS, 2, 2)), "as it is");
    EXPECT_EQ(taken("any", ArrayOwner()), "as it is") << "null stays null";
}

TEST_F(SlotValues, FailureNamesWhatTheValueIsFor) {
    const ArrayOwner given = number(2.5);
    const auto failure = [&](SlotPlace place) {
        return failureOf([&] { SlotValue(*TypeWord::parse("int32 scalar"), given.get(), place); });
    };
    EXPECT_EQ(failure({"a.B", "Debug", SlotPlace::Role::Property, 0}),
              "VANTIK:vcos:WrongPropertyType(a.B, Debug, int32 scalar, double scalar 2.5)");
    EXPECT_EQ(failure({"a.B", "run", SlotPlace::Role::Output, 1}),
              "VANTIK:vcos:WrongOutputType(a.B, run, 1, int32 scalar, double scalar 2.5)");
}
