#include "ArrayFixture.h"
#include "host/ArrayApi.h"
#include "host/Heap.h"
#include "host/Text.h"
#include "tests/support/process/BuiltFile.h"

#include <atomic>
#include <cmath>
#include <cstring>
#include <fstream>
#include <limits>
#include <memory>
#include <new>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using namespace matrix::detail::noninlined::vx_array_api;
using vantik::detail::ArrayOwner;
using vantik::detail::liveArrays;

ArrayOwner numeric(std::size_t rows, std::size_t columns, vxClassID classId) {
    return ArrayOwner(vxCreateNumericMatrix(rows, columns, classId, vxREAL));
}

ArrayOwner shared(const ArrayOwner& array) {
    return ArrayOwner(vxCreateSharedDataCopy(array.get()));
}

// The read-only form, whatever the constness of the handle.
template <class T>
const T* elements(const ArrayOwner& array) {
    return static_cast<const T*>(vxGetData(static_cast<const vxArray_tag*>(array.get())));
}

class Arrays : public ArrayFixture {};

TEST_F(Arrays, NewMatrixHasClassDimensionsAndZeros) {
    struct Row {
        vxClassID ClassId;
        const char* Name;
        std::size_t ElementSize;
    };
    for (const Row& row : {Row{vxUINT8_CLASS, "uint8", 1}, Row{vxINT32_CLASS, "int32", 4},
                           Row{vxUINT64_CLASS, "uint64", 8}, Row{vxDOUBLE_CLASS, "double", 8}}) {
        const ArrayOwner array = numeric(3, 5, row.ClassId);
        EXPECT_EQ(vxGetClassID(array.get()), row.ClassId);
        EXPECT_STREQ(vxGetClassName(array.get()), row.Name);
        ASSERT_EQ(vxGetNumberOfDimensions(array.get()), 2u);
        EXPECT_EQ(vxGetDimensions(array.get())[0], 3u);
        EXPECT_EQ(vxGetDimensions(array.get())[1], 5u);
        EXPECT_FALSE(vxIsEmpty(array.get()));
        EXPECT_TRUE(vxIsA(array.get(), row.Name));
        EXPECT_EQ(vantik::detail::elementSize(row.ClassId), row.ElementSize);
        const std::vector<char> zeros(15 * row.ElementSize);
        EXPECT_EQ(std::memcmp(elements<char>(array), zeros.data(), zeros.size()), 0);
    }
}

TEST_F(Arrays, OnlyNumericClassesMakeNumericMatrices) {
    for (const vxClassID classId : {vxUNKNOWN_CLASS, vxSTRUCT_CLASS, vxCHAR_CLASS, vxLOGICAL_CLASS, vxOBJECT_CLASS,
                                    vxENUMERATION_CLASS, static_cast<vxClassID>(77), static_cast<vxClassID>(-1)}) {
        EXPECT_EQ(raisedIdentifier([classId] { numeric(1, 1, classId); }), "VANTIK:vx:ExpectedNumericClass");
    }
    EXPECT_EQ(raisedIdentifier([] { vxCreateNumericMatrix(1, 1, vxDOUBLE_CLASS, static_cast<vxComplexity>(1)); }),
              "VANTIK:vx:ExpectedReal");
}

TEST_F(Arrays, EmptyMatrixKeepsItsShapeAndHasAnAddress) {
    for (const auto& [rows, columns] : {std::pair<std::size_t, std::size_t>{0, 1}, {0, 0}, {4, 0}, {SIZE_MAX, 0}}) {
        const ArrayOwner array = numeric(rows, columns, vxUINT8_CLASS);
        EXPECT_TRUE(vxIsEmpty(array.get()));
        EXPECT_EQ(vxGetDimensions(array.get())[0], rows);
        EXPECT_EQ(vxGetDimensions(array.get())[1], columns);
        EXPECT_NE(elements<void>(array), nullptr);
        EXPECT_NE(vxGetData(array.get()), nullptr);
        EXPECT_EQ(vxGetScalar(array.get()), 0.0);
    }
}

TEST_F(Arrays, SizesThatDoNotFitAreOutOfMemory) {
    constexpr std::size_t half = std::size_t{1} << 63;
    EXPECT_THROW(numeric(half, 2, vxUINT8_CLASS), std::bad_alloc);
    EXPECT_THROW(numeric(SIZE_MAX, SIZE_MAX, vxDOUBLE_CLASS), std::bad_alloc);
    EXPECT_THROW(numeric(std::size_t{1} << 61, 1, vxDOUBLE_CLASS), std::bad_alloc); // times 8 is 2^64
    EXPECT_THROW(numeric(std::size_t{1} << 60, 1, vxDOUBLE_CLASS), std::bad_alloc); // more than a block can be
    EXPECT_THROW(numeric(half, 1, vxUINT8_CLASS), std::bad_alloc);
    const char* const names[] = {"Name", "Value"};
    EXPECT_THROW(vxCreateStructMatrix(half, 1, 2, names), std::bad_alloc);
    EXPECT_THROW(vxCreateStructMatrix(half, 2, 0, nullptr), std::bad_alloc);
    EXPECT_THROW(vxCreateStructMatrix(std::size_t{1} << 60, 1, 2, names), std::bad_alloc);
    EXPECT_EQ(liveArrays(), 0u);
}

std::size_t residentBytes() {
    std::ifstream status("/proc/self/statm");
    std::size_t total = 0;
    std::size_t resident = 0;
    status >> total >> resident;
    return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

TEST_F(Arrays, LargeMatrixTakesNoMemoryBeforeItIsWritten) {
    if (testsupport::isSanitized()) {
        GTEST_SKIP() << "a sanitizer writes to its own memory for each byte";
    }
    constexpr std::size_t gibibyte = std::size_t{1} << 30;
    const std::size_t before = residentBytes();
    const ArrayOwner array = numeric(gibibyte, 1, vxUINT8_CLASS);
    EXPECT_EQ(elements<std::uint8_t>(array)[gibibyte - 1], 0);
    EXPECT_LT(residentBytes(), before + (gibibyte >> 6));
}

TEST_F(Arrays, CopySharesUntilWritten) {
    const ArrayOwner array = numeric(4, 1, vxUINT8_CLASS);
    const ArrayOwner copy = shared(array);
    EXPECT_NE(array.get(), copy.get());
    EXPECT_EQ(elements<std::uint8_t>(array), elements<std::uint8_t>(copy));

    static_cast<std::uint8_t*>(vxGetData(copy.get()))[2] = 7;
    EXPECT_NE(elements<std::uint8_t>(array), elements<std::uint8_t>(copy));
    EXPECT_EQ(elements<std::uint8_t>(array)[2], 0);
    EXPECT_EQ(elements<std::uint8_t>(copy)[2], 7);
    EXPECT_EQ(vxGetDimensions(copy.get())[0], 4u);
}

TEST_F(Arrays, WritingToTheOnlyHandleStaysInPlace) {
    const ArrayOwner array = numeric(4, 1, vxDOUBLE_CLASS);
    const void* place = elements<double>(array);
    EXPECT_EQ(vxGetData(array.get()), place);
    { const ArrayOwner copy = shared(array); }
    EXPECT_EQ(vxGetData(array.get()), place); // the other owner has gone
}

TEST_F(Arrays, ContentsOutliveTheHandleThatMadeThem) {
    ArrayOwner array = numeric(1, 1, vxDOUBLE_CLASS);
    *static_cast<double*>(vxGetData(array.get())) = 2.5;
    const ArrayOwner copy = shared(array);
    array.reset();
    EXPECT_EQ(vxGetScalar(copy.get()), 2.5);
}

TEST_F(Arrays, ThreadsShareContents) {
    constexpr int rounds = 2000;
    const ArrayOwner array = numeric(64, 1, vxUINT8_CLASS);
    std::vector<ArrayOwner> given;
    for (int i = 0; i < 4; ++i) {
        given.push_back(shared(array));
    }
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < given.size(); ++i) {
        threads.emplace_back([&wrong, own = std::move(given[i]), i]() mutable {
            for (int round = 0; round < rounds; ++round) {
                ArrayOwner copy(vxCreateSharedDataCopy(own.get()));
                static_cast<std::uint8_t*>(vxGetData(copy.get()))[i] = 1;
                if (elements<std::uint8_t>(own)[i] != 0) {
                    ++wrong;
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(elements<std::uint8_t>(array)[0], 0);
}

TEST_F(Arrays, ScalarReadsEachNumericClass) {
    EXPECT_EQ(vxGetScalar(ArrayOwner(vxCreateDoubleScalar(-0.5)).get()), -0.5);
    EXPECT_TRUE(std::isnan(vxGetScalar(ArrayOwner(vxCreateDoubleScalar(NAN)).get())));
    EXPECT_EQ(vxGetScalar(ArrayOwner(vantik::detail::makeInt32(INT32_MIN)).get()), -2147483648.0);
    EXPECT_EQ(vxGetScalar(ArrayOwner(vantik::detail::makeUInt64(UINT64_MAX)).get()), 18446744073709551616.0);
    EXPECT_EQ(vxGetScalar(ArrayOwner(vantik::detail::makeLogical(true)).get()), 1.0);
}

TEST_F(Arrays, ScalarOfAClassWithoutNumbersRaises) {
    const ArrayOwner emptyText(vxCreateString(""));
    const ArrayOwner text(vxCreateString("7"));
    const ArrayOwner structure(vxCreateStructMatrix(1, 1, 0, nullptr));
    const ArrayOwner object(vantik::detail::makeObjectArray("test.Thing", {}));
    const ArrayOwner member(vantik::detail::makeEnumerationArray("test.Color", {"Red"}));
    const ArrayOwner unknown(vxCreateEmptyUnknownArrayNotOnArrayList());
    for (const vxArray_tag* array : {emptyText.get(), text.get(), structure.get(), object.get(), member.get(),
                                     unknown.get(), static_cast<vxArray_tag*>(nullptr)}) {
        EXPECT_EQ(raisedIdentifier([array] { vxGetScalar(array); }), "VANTIK:vx:ExpectedClass")
            << vxGetClassName(array);
    }
}

TEST_F(Arrays, LogicalsAreReadInPlace) {
    const ArrayOwner yes(vantik::detail::makeLogical(true));
    EXPECT_TRUE(*vxGetLogicals(yes.get()));
    EXPECT_STREQ(vxGetClassName(yes.get()), "logical");
    EXPECT_FALSE(*vxGetLogicals(ArrayOwner(vantik::detail::makeLogical(false)).get()));
    EXPECT_EQ(vxGetLogicals(ArrayOwner(vxCreateEmptyUnknownArrayNotOnArrayList()).get()), nullptr);
    EXPECT_EQ(vxGetLogicals(nullptr), nullptr);
}

TEST_F(Arrays, ArrayOfNoClassIsEmptyAndNothingElse) {
    const ArrayOwner nothing(vxCreateEmptyUnknownArrayNotOnArrayList());
    const ArrayOwner copy = shared(nothing);
    for (const vxArray_tag* array :
         {static_cast<const vxArray_tag*>(nothing.get()), static_cast<const vxArray_tag*>(copy.get()),
          static_cast<const vxArray_tag*>(nullptr)}) {
        EXPECT_TRUE(vxIsEmpty(array));
        EXPECT_STREQ(vxGetClassName(array), "");
        EXPECT_EQ(vxGetClassID(array), vxUNKNOWN_CLASS);
        EXPECT_FALSE(vxIsA(array, ""));
        EXPECT_FALSE(vxIsA(array, "double"));
        EXPECT_EQ(vxGetData(array), nullptr);
        EXPECT_EQ(vxGetDimensions(array)[0], 0u);
        EXPECT_EQ(vxGetDimensions(array)[1], 0u);
        EXPECT_EQ(vxGetField(array, 0, "Name"), nullptr);
        EXPECT_EQ(omGetNumberOfElementsInUnderlyingArray(array), 0u);
        EXPECT_EQ(omGetEnumerationID(array, 0), nullptr);
        EXPECT_EQ(raisedIdentifier([array] { matrix::get_string(array); }), "VANTIK:vx:ExpectedText");
    }
    EXPECT_EQ(vxGetData(nothing.get()), nullptr);
}

TEST_F(Arrays, NullIsReleasedQuietly) {
    matrix::destroyArray(nullptr);
    matrix::vxDestroy_deleter()(nullptr);
    vxSetArrayScope(nullptr, vxPERSISTENT_SCOPE);
    utFree(nullptr);
    utFree(std::calloc(3, 5));
    EXPECT_EQ(liveArrays(), 0u);
}

TEST_F(Arrays, TextKeepsLengthAndNuls) {
    const std::string narrow("a\0b\xC3\xA9\xF0\x9F\x98\x80", 9);
    const ArrayOwner text = matrix::create(narrow.data(), narrow.size());
    EXPECT_STREQ(vxGetClassName(text.get()), "char");
    EXPECT_EQ(vxGetDimensions(text.get())[0], 1u);
    EXPECT_EQ(vxGetDimensions(text.get())[1], 6u); // UTF-16 units
    EXPECT_EQ(matrix::get_string(text.get()), narrow);
    EXPECT_EQ(matrix::get_ustring(text.get()), std::u16string(u"a\0b\u00E9\U0001F600", 6));
    EXPECT_EQ(matrix::get_string(ArrayOwner(vxCreateString("abc")).get()), "abc");
}

TEST_F(Arrays, EmptyTextIsOneByZeroChar) {
    for (vxArray_tag* array : {vxCreateString(""), vxCreateString(nullptr), matrix::create("abc", 0).release(),
                               matrix::create(nullptr, 0).release()}) {
        const ArrayOwner text(array);
        EXPECT_STREQ(vxGetClassName(text.get()), "char");
        EXPECT_EQ(vxGetDimensions(text.get())[0], 1u);
        EXPECT_EQ(vxGetDimensions(text.get())[1], 0u);
        EXPECT_EQ(matrix::get_ustring(text.get()), u"");
    }
}

TEST_F(Arrays, BytesThatAreNoTextBecomeReplacementCharacters) {
    EXPECT_EQ(matrix::get_ustring(ArrayOwner(vxCreateString("a\xFF"
                                                            "b"))
                                      .get()),
              u"a\uFFFDb");
}

TEST_F(Arrays, TextIsReadInColumnOrderWhateverTheShape) {
    const ArrayOwner text(vantik::detail::makePlainFrom(vxCHAR_CLASS, 2, 2, u"acbd"));
    EXPECT_EQ(matrix::get_ustring(text.get()), u"acbd");
}

TEST_F(Arrays, TextOfAnotherClassIsRefusedWithTheClassFound) {
    const ArrayOwner number(vxCreateDoubleScalar(1));
    try {
        matrix::get_ustring(number.get());
        FAIL() << "a number was read as text";
    } catch (const vantik::detail::HostException& error) {
        EXPECT_EQ(error.get_error_id(), "VANTIK:vx:ExpectedText");
        ASSERT_EQ(error.msg_id().arguments().size(), 1u);
        EXPECT_EQ(std::get<std::string>(error.msg_id().arguments()[0]), "double");
    }
    EXPECT_EQ(raisedIdentifier([&] { matrix::get_string(number.get()); }), "VANTIK:vx:ExpectedText");
}

TEST_F(Arrays, UnpairedSurrogateHasNoNarrowForm) {
    const char16_t half[] = {u'a', 0xD800};
    const ArrayOwner text(vantik::detail::makePlainFrom(vxCHAR_CLASS, 1, 2, half));
    EXPECT_THROW(matrix::get_string(text.get()), fl::i18n::CvtExceptionBase);
    EXPECT_EQ(matrix::get_ustring(text.get()), std::u16string(half, 2));
}

TEST_F(Arrays, VeryLongTextSurvives) {
    const std::string narrow(3'000'000, 'x');
    EXPECT_EQ(matrix::get_string(matrix::create(narrow.data(), narrow.size()).get()), narrow);
}

TEST_F(Arrays, PlainClassesDeriveFromNothing) {
    const ArrayOwner number(vxCreateDoubleScalar(1));
    EXPECT_TRUE(vxIsA(number.get(), "double"));
    EXPECT_FALSE(vxIsA(number.get(), "Double"));
    EXPECT_FALSE(vxIsA(number.get(), "numeric"));
    EXPECT_FALSE(vxIsA(number.get(), ""));
    EXPECT_FALSE(vxIsA(number.get(), nullptr));
    EXPECT_TRUE(vxIsA(ArrayOwner(vxCreateString("x")).get(), "char"));
    EXPECT_TRUE(vxIsA(ArrayOwner(vxCreateStructMatrix(1, 1, 0, nullptr)).get(), "struct"));
}

TEST_F(Arrays, EnumerationKnowsClassAndMembers) {
    const ArrayOwner schemes(
        vantik::detail::makeEnumerationArray("vantik.net.http.AuthenticationScheme", {"Basic", "Digest"}));
    EXPECT_EQ(vxGetClassID(schemes.get()), vxENUMERATION_CLASS);
    EXPECT_STREQ(vxGetClassName(schemes.get()), "vantik.net.http.AuthenticationScheme");
    EXPECT_EQ(omGetNumberOfElementsInUnderlyingArray(schemes.get()), 2u);
    EXPECT_EQ(vxGetDimensions(schemes.get())[0], 1u);
    EXPECT_EQ(vxGetDimensions(schemes.get())[1], 2u);
    EXPECT_TRUE(vxIsA(schemes.get(), "vantik.net.http.AuthenticationScheme"));
    EXPECT_EQ(vxGetData(static_cast<const vxArray_tag*>(schemes.get())), nullptr);
    EXPECT_EQ(omGetEnumerationID(schemes.get(), 2), nullptr);

    const ArrayOwner none(vantik::detail::makeEnumerationArray("vantik.net.http.AuthenticationScheme", {}));
    EXPECT_EQ(vxGetDimensions(none.get())[0], 0u);
    EXPECT_TRUE(vxIsEmpty(none.get()));
}

TEST_F(Arrays, ObjectArrayWithoutObjectsIsZeroByZero) {
    const ArrayOwner none(vantik::detail::makeObjectArray("example.Thing", {}));
    EXPECT_EQ(vxGetClassID(none.get()), vxOBJECT_CLASS);
    EXPECT_STREQ(vxGetClassName(none.get()), "example.Thing");
    EXPECT_EQ(vxGetDimensions(none.get())[0], 0u);
    EXPECT_EQ(vxGetDimensions(none.get())[1], 0u);
    EXPECT_TRUE(vxIsA(none.get(), "example.Thing"));
    EXPECT_FALSE(vxIsA(none.get(), "example.Other"));
    EXPECT_TRUE(vantik::detail::objectElements(none.get()).empty());
    EXPECT_TRUE(vantik::detail::objectElements(nullptr).empty());
}

// An object that counts what refers to it.
class CountedObject final : public vcos::COSInterface {
public:
    int References = 0;
    void* getInstanceData(vcos::InternedName) override { return nullptr; }

private:
    void addReference() noexcept override { ++References; }
    void release() noexcept override { --References; }
};

TEST_F(Arrays, CopiesOfAnObjectArrayNameTheSameObject) {
    CountedObject object;
    {
        std::vector<vcos::COSInterfacePtr> elements;
        elements.emplace_back(&object);
        const ArrayOwner array(vantik::detail::makeObjectArray("example.Thing", std::move(elements)));
        EXPECT_EQ(object.References, 1);
        const ArrayOwner copy = shared(array);
        EXPECT_EQ(object.References, 1); // the contents are shared
        ASSERT_EQ(vantik::detail::objectElements(copy.get()).size(), 1u);
        EXPECT_EQ(vantik::detail::objectElements(copy.get())[0].get(), &object);
        EXPECT_EQ(vxGetData(copy.get()), nullptr);
    }
    EXPECT_EQ(object.References, 0);
}

} // namespace
