// Arrays of plain classes as a module makes and reads them. Structs: ArrayStructTest; objects and enumerations:
// objects/ArrayObjectsTest.
#include "ArrayFixture.h"
#include "host/Heap.h"
#include "host/Text.h"
#include "tests/support/process/BuiltFile.h"

#include <atomic>
#include <cmath>
#include <cstring>
#include <fstream>
#include <new>
#include <thread>
#include <unistd.h>

using namespace matrix::detail::noninlined::vx_array_api;
using namespace vantik::detail;

namespace {

ArrayOwner numeric(std::size_t rows, std::size_t columns, vxClassID classId) {
    return ArrayOwner(vxCreateNumericMatrix(rows, columns, classId, vxREAL));
}

ArrayOwner shared(const ArrayOwner& array) {
    return ArrayOwner(vxCreateSharedDataCopy(array.get()));
}

std::uint8_t* writableBytes(const ArrayOwner& array) {
    return static_cast<std::uint8_t*>(vxGetData(array.get()));
}

std::size_t residentBytes() {
    std::ifstream status("/proc/self/statm");
    std::size_t total = 0;
    std::size_t resident = 0;
    status >> total >> resident;
    return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

using Arrays = ArrayFixture;

} // namespace

TEST_F(Arrays, NewMatrixHasClassDimensionsAndZeros) {
    for (const auto& [classId, name, elementBytes] :
         {std::tuple<vxClassID, std::string, std::size_t>{vxUINT8_CLASS, "uint8", 1},
          {vxINT32_CLASS, "int32", 4},
          {vxUINT64_CLASS, "uint64", 8},
          {vxDOUBLE_CLASS, "double", 8}}) {
        const ArrayOwner array = numeric(3, 5, classId);
        EXPECT_EQ(shapeOf(array), "3-by-5 " + name);
        EXPECT_FALSE(vxIsEmpty(array.get()));
        EXPECT_EQ(elementSize(classId), elementBytes);
        const std::vector<char> zeros(15 * elementBytes);
        EXPECT_EQ(std::memcmp(elements<char>(array), zeros.data(), zeros.size()), 0);
    }
}

TEST_F(Arrays, OnlyNumericClassesMakeNumericMatrices) {
    for (const int classId : {int(vxUNKNOWN_CLASS), int(vxSTRUCT_CLASS), int(vxCHAR_CLASS), int(vxLOGICAL_CLASS),
                              int(vxOBJECT_CLASS), int(vxENUMERATION_CLASS), 77, -1}) {
        EXPECT_EQ(failureOf([=] { numeric(1, 1, static_cast<vxClassID>(classId)); }),
                  "VANTIK:vx:ExpectedNumericClass(" + std::to_string(classId) + ")");
    }
    EXPECT_EQ(failureOf([] { vxCreateNumericMatrix(1, 1, vxDOUBLE_CLASS, static_cast<vxComplexity>(1)); }),
              "VANTIK:vx:ExpectedReal(1)");
}

TEST_F(Arrays, EmptyMatrixKeepsItsShapeAndHasAnAddress) {
    for (const auto& [rows, columns] : {std::pair<std::size_t, std::size_t>{0, 1}, {0, 0}, {4, 0}, {SIZE_MAX, 0}}) {
        const ArrayOwner array = numeric(rows, columns, vxUINT8_CLASS);
        EXPECT_TRUE(vxIsEmpty(array.get()));
        EXPECT_EQ(shapeOf(array), std::to_string(rows) + "-by-" + std::to_string(columns) + " uint8");
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
}

TEST_F(Arrays, LargeMatrixTakesNoMemoryBeforeItIsWritten) {
    constexpr std::size_t gibibyte = std::size_t{1} << 30;
    const std::size_t before = residentBytes();
    const ArrayOwner array = numeric(gibibyte, 1, vxUINT8_CLASS);
    EXPECT_EQ(elements<std::uint8_t>(array)[gibibyte - 1], 0);
    const std::size_t allowed = testsupport::isSanitized() ? gibibyte / 4 : gibibyte / 64; // an eighth is its own
    EXPECT_LT(residentBytes(), before + allowed);
}

TEST_F(Arrays, CopySharesUntilWritten) {
    ArrayOwner array = numeric(4, 1, vxUINT8_CLASS);
    const void* place = elements<void>(array);
    EXPECT_EQ(vxGetData(array.get()), place) << "the only handle is written in place";
    const ArrayOwner copy = shared(array);
    EXPECT_NE(array.get(), copy.get());
    EXPECT_EQ(elements<void>(copy), place);

    writableBytes(copy)[2] = 7;
    EXPECT_EQ(elements<std::uint8_t>(array)[2], 0);
    EXPECT_EQ(elements<std::uint8_t>(copy)[2], 7);
    EXPECT_EQ(shapeOf(copy), "4-by-1 uint8");

    ArrayOwner second = shared(copy);
    const void* ofBoth = elements<void>(copy);
    second.reset();
    EXPECT_EQ(vxGetData(copy.get()), ofBoth) << "the other owner has gone";
    const ArrayOwner last = shared(array);
    array.reset();
    EXPECT_EQ(elements<void>(last), place) << "contents outlive the handle that made them";
}

TEST_F(Arrays, ThreadsShareContents) {
    const ArrayOwner array = numeric(64, 1, vxUINT8_CLASS);
    std::atomic<int> wrong{0};
    std::vector<std::jthread> threads;
    for (std::size_t i = 0; i < 4; ++i) {
        threads.emplace_back([&wrong, own = shared(array), i] {
            for (int round = 0; round < 2000; ++round) {
                const ArrayOwner copy = shared(own);
                writableBytes(copy)[i] = 1;
                wrong += elements<std::uint8_t>(own)[i] != 0 ? 1 : 0;
            }
        });
    }
    threads.clear(); // waits for them
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(elements<std::uint8_t>(array)[0], 0);
}

TEST_F(Arrays, ScalarReadsEachNumericClass) {
    const auto scalar = [](vxArray_tag* array) { return vxGetScalar(ArrayOwner(array).get()); };
    EXPECT_EQ(scalar(vxCreateDoubleScalar(-0.5)), -0.5);
    EXPECT_TRUE(std::isnan(scalar(vxCreateDoubleScalar(NAN))));
    EXPECT_EQ(scalar(makeInt32(INT32_MIN)), -2147483648.0);
    EXPECT_EQ(scalar(makeUInt64(UINT64_MAX)), 18446744073709551616.0);
    EXPECT_EQ(scalar(makeLogical(true)), 1.0);
    for (vxArray_tag* array : {vxCreateString(""), vxCreateString("7"), vxCreateStructMatrix(1, 1, 0, nullptr),
                               makeObjectArray("test.Thing", {}), makeEnumerationArray("test.Color", {"Red"}),
                               vxCreateEmptyUnknownArrayNotOnArrayList(), static_cast<vxArray_tag*>(nullptr)}) {
        const ArrayOwner other(array);
        EXPECT_EQ(failureOf([=] { vxGetScalar(array); }),
                  std::string("VANTIK:vx:ExpectedClass(number, ") + vxGetClassName(array) + ")");
    }
}

TEST_F(Arrays, ArrayOfNoClassIsEmptyAndNothingElse) {
    const ArrayOwner nothing(vxCreateEmptyUnknownArrayNotOnArrayList());
    EXPECT_EQ(vxGetData(nothing.get()), nullptr);
    const ArrayOwner copy = shared(nothing);
    for (const vxArray_tag* array : {nothing.get(), copy.get(), static_cast<vxArray_tag*>(nullptr)}) {
        EXPECT_EQ(shapeOf(array), "0-by-0 ");
        EXPECT_TRUE(vxIsEmpty(array));
        EXPECT_FALSE(vxIsA(array, ""));
        EXPECT_FALSE(vxIsA(array, "double"));
        EXPECT_EQ(vxGetData(array), nullptr);
        EXPECT_EQ(vxGetLogicals(array), nullptr);
        EXPECT_EQ(vxGetField(array, 0, "Name"), nullptr);
        EXPECT_EQ(omGetNumberOfElementsInUnderlyingArray(array), 0u);
        EXPECT_EQ(omGetEnumerationID(array, 0), nullptr);
        EXPECT_EQ(failureOf([=] { matrix::get_string(array); }), "VANTIK:vx:ExpectedText()");
    }
}

TEST_F(Arrays, NullIsReleasedQuietly) {
    matrix::destroyArray(nullptr);
    matrix::vxDestroy_deleter()(nullptr);
    vxSetArrayScope(nullptr, vxPERSISTENT_SCOPE);
    utFree(nullptr);
    utFree(std::calloc(3, 5));
}

TEST_F(Arrays, TextKeepsLengthAndNuls) {
    const std::string narrow("a\0b\xC3\xA9\xF0\x9F\x98\x80", 9);
    const ArrayOwner text = matrix::create(narrow.data(), narrow.size());
    EXPECT_EQ(shapeOf(text), "1-by-6 char") << "UTF-16 units";
    EXPECT_EQ(matrix::get_string(text.get()), narrow);
    EXPECT_EQ(matrix::get_ustring(text.get()), std::u16string(u"a\0b\u00E9\U0001F600", 6));
    EXPECT_EQ(matrix::get_string(ArrayOwner(vxCreateString("abc")).get()), "abc");
    EXPECT_EQ(matrix::get_ustring(ArrayOwner(vxCreateString("a\xFFz")).get()), u"a\uFFFDz");
    for (vxArray_tag* array : {vxCreateString(""), vxCreateString(nullptr), matrix::create("abc", 0).release(),
                               matrix::create(nullptr, 0).release()}) {
        const ArrayOwner empty(array);
        EXPECT_EQ(shapeOf(empty), "1-by-0 char");
        EXPECT_EQ(matrix::get_ustring(empty.get()), u"");
    }
    const ArrayOwner square(makePlainFrom(vxCHAR_CLASS, 2, 2, u"acbd"));
    EXPECT_EQ(matrix::get_ustring(square.get()), u"acbd") << "in column order, whatever the shape";
    const char16_t half[] = {u'a', 0xD800};
    const ArrayOwner unpaired(makePlainFrom(vxCHAR_CLASS, 1, 2, half));
    EXPECT_THROW(matrix::get_string(unpaired.get()), fl::i18n::CvtExceptionBase);
    EXPECT_EQ(matrix::get_ustring(unpaired.get()), std::u16string(half, 2));
    const ArrayOwner number(vxCreateDoubleScalar(1));
    EXPECT_EQ(failureOf([&] { matrix::get_ustring(number.get()); }), "VANTIK:vx:ExpectedText(double)");
}

TEST_F(Arrays, PlainClassesDeriveFromNothing) {
    const ArrayOwner number(vxCreateDoubleScalar(1));
    EXPECT_TRUE(vxIsA(number.get(), "double"));
    for (const char* other : {"Double", "numeric", "", static_cast<const char*>(nullptr)}) {
        EXPECT_FALSE(vxIsA(number.get(), other));
    }
    EXPECT_TRUE(vxIsA(ArrayOwner(vxCreateString("x")).get(), "char"));
    EXPECT_TRUE(vxIsA(ArrayOwner(vxCreateStructMatrix(1, 1, 0, nullptr)).get(), "struct"));
}
