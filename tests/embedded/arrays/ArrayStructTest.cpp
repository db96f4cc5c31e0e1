#include "ArrayFixture.h"
#include "embedded/arrays/CallFrame.h"
#include "host/ArrayApi.h"

#include <stdexcept>
#include <string>

namespace {

using namespace matrix::detail::noninlined::vx_array_api;
using vantik::detail::ArrayOwner;
using vantik::detail::liveArrays;

constexpr const char* kFields[] = {"Name", "Value"};

ArrayOwner fields(std::size_t columns) {
    return ArrayOwner(vxCreateStructMatrix(1, columns, 2, kFields));
}

std::string text(const vxArray_tag* array) {
    return matrix::get_string(array);
}

class StructArrays : public ArrayFixture {};

TEST_F(StructArrays, NewOneHasFieldsWithoutValues) {
    const ArrayOwner array = fields(3);
    EXPECT_STREQ(vxGetClassName(array.get()), "struct");
    EXPECT_EQ(vxGetDimensions(array.get())[0], 1u);
    EXPECT_EQ(vxGetDimensions(array.get())[1], 3u);
    EXPECT_EQ(vxGetField(array.get(), 0, "Name"), nullptr);
    EXPECT_EQ(vxGetField(array.get(), 2, "Value"), nullptr);
    EXPECT_EQ(vxGetData(static_cast<const vxArray_tag*>(array.get())), nullptr);
    EXPECT_EQ(vxGetData(array.get()), nullptr);
}

TEST_F(StructArrays, WithoutElementsKeepsTheFields) {
    const ArrayOwner array = fields(0);
    EXPECT_TRUE(vxIsEmpty(array.get()));
    EXPECT_EQ(vxGetDimensions(array.get())[0], 1u);
    EXPECT_EQ(vantik::detail::structContents(array.get())->FieldNames, (std::vector<std::string>{"Name", "Value"}));
    EXPECT_EQ(vxGetField(array.get(), 0, "Name"), nullptr);
}

TEST_F(StructArrays, StoredValueIsReadBackAndGoesWithTheStruct) {
    const ArrayOwner array = fields(2);
    vxArray_tag* name = vxCreateString("Accept");
    vxSetField(array.get(), 1, "Name", name);
    EXPECT_EQ(vxGetField(array.get(), 1, "Name"), name); // the value itself, no copy
    EXPECT_EQ(text(vxGetField(array.get(), 1, "Name")), "Accept");
    EXPECT_EQ(vxGetField(array.get(), 0, "Name"), nullptr);
    EXPECT_EQ(vxGetField(array.get(), 1, "Value"), nullptr);
    EXPECT_EQ(liveArrays(), 2u);
}

TEST_F(StructArrays, NewValueReplacesTheOldOneAndNullRemovesIt) {
    const ArrayOwner array = fields(1);
    vxSetField(array.get(), 0, "Name", vxCreateString("old"));
    vxSetField(array.get(), 0, "Name", vxCreateString("new"));
    EXPECT_EQ(text(vxGetField(array.get(), 0, "Name")), "new");
    EXPECT_EQ(liveArrays(), 2u);
    vxSetField(array.get(), 0, "Name", nullptr);
    EXPECT_EQ(vxGetField(array.get(), 0, "Name"), nullptr);
    EXPECT_EQ(liveArrays(), 1u);
}

TEST_F(StructArrays, MissingFieldsAndElementsReadAsNull) {
    const ArrayOwner array = fields(1);
    vxSetField(array.get(), 0, "Name", vxCreateString("x"));
    EXPECT_EQ(vxGetField(array.get(), 0, "name"), nullptr);
    EXPECT_EQ(vxGetField(array.get(), 0, ""), nullptr);
    EXPECT_EQ(vxGetField(array.get(), 0, nullptr), nullptr);
    EXPECT_EQ(vxGetField(array.get(), 1, "Name"), nullptr);
    EXPECT_EQ(vxGetField(array.get(), SIZE_MAX, "Name"), nullptr);
    EXPECT_EQ(vxGetField(ArrayOwner(vxCreateDoubleScalar(1)).get(), 0, "Name"), nullptr);
}

TEST_F(StructArrays, RefusedValueIsReleased) {
    const ArrayOwner array = fields(1);
    const ArrayOwner number(vxCreateDoubleScalar(1));
    EXPECT_EQ(raisedIdentifier([&] { vxSetField(array.get(), 0, "Other", vxCreateString("x")); }),
              "VANTIK:vx:NoSuchField");
    EXPECT_EQ(raisedIdentifier([&] { vxSetField(array.get(), 0, nullptr, vxCreateString("x")); }),
              "VANTIK:vx:NoSuchField");
    EXPECT_EQ(raisedIdentifier([&] { vxSetField(array.get(), 1, "Name", vxCreateString("x")); }),
              "VANTIK:vx:IndexOutOfRange");
    EXPECT_EQ(raisedIdentifier([&] { vxSetField(number.get(), 0, "Name", vxCreateString("x")); }),
              "VANTIK:vx:ExpectedClass");
    EXPECT_EQ(raisedIdentifier([&] { vxSetField(nullptr, 0, "Name", vxCreateString("x")); }),
              "VANTIK:vx:ExpectedClass");
    EXPECT_EQ(liveArrays(), 2u);
}

TEST_F(StructArrays, FieldNamesAreChecked) {
    const char* const twice[] = {"Name", "Value", "Name"};
    const char* const unnamed[] = {"Name", ""};
    const char* const missing[] = {"Name", nullptr};
    EXPECT_EQ(raisedIdentifier([&] { vxCreateStructMatrix(1, 1, 3, twice); }), "VANTIK:vx:DuplicateField");
    EXPECT_EQ(raisedIdentifier([&] { vxCreateStructMatrix(1, 1, 2, unnamed); }), "VANTIK:vx:EmptyFieldName");
    EXPECT_EQ(raisedIdentifier([&] { vxCreateStructMatrix(1, 1, 2, missing); }), "VANTIK:vx:EmptyFieldName");
    EXPECT_THROW(vxCreateStructMatrix(1, 1, -1, kFields), std::invalid_argument);
    EXPECT_THROW(vxCreateStructMatrix(1, 1, 2, nullptr), std::invalid_argument);
}

TEST_F(StructArrays, CopySharesFieldsUntilOneIsStored) {
    const ArrayOwner array = fields(1);
    vxSetField(array.get(), 0, "Name", vxCreateString("a"));
    vxSetField(array.get(), 0, "Value", vxCreateString("b"));
    const ArrayOwner copy(vxCreateSharedDataCopy(array.get()));
    EXPECT_EQ(vxGetField(copy.get(), 0, "Name"), vxGetField(array.get(), 0, "Name"));
    EXPECT_EQ(liveArrays(), 4u);

    vxSetField(copy.get(), 0, "Name", vxCreateString("c"));
    EXPECT_EQ(text(vxGetField(array.get(), 0, "Name")), "a");
    EXPECT_EQ(text(vxGetField(copy.get(), 0, "Name")), "c");
    EXPECT_EQ(text(vxGetField(copy.get(), 0, "Value")), "b");
    // The values that were not stored still share their contents.
    const vxArray_tag* before = vxGetField(array.get(), 0, "Value");
    const vxArray_tag* after = vxGetField(copy.get(), 0, "Value");
    EXPECT_NE(before, after);
    EXPECT_EQ(vxGetData(before), vxGetData(after));
}

TEST_F(StructArrays, BorrowedValueCannotBeReleasedByItsReader) {
    const ArrayOwner array = fields(1);
    vxSetField(array.get(), 0, "Name", vxCreateString("kept"));
    matrix::destroyArray(vxGetField(array.get(), 0, "Name"));
    EXPECT_EQ(text(vxGetField(array.get(), 0, "Name")), "kept");
}

TEST_F(StructArrays, BorrowedValueIsCopiedIntoAnotherStruct) {
    const ArrayOwner from = fields(1);
    const ArrayOwner to = fields(1);
    vxSetField(from.get(), 0, "Name", vxCreateString("both"));
    vxSetField(to.get(), 0, "Value", vxGetField(from.get(), 0, "Name"));
    EXPECT_NE(vxGetField(from.get(), 0, "Name"), vxGetField(to.get(), 0, "Value"));
    EXPECT_EQ(text(vxGetField(from.get(), 0, "Name")), "both");
    EXPECT_EQ(text(vxGetField(to.get(), 0, "Value")), "both");
}

TEST_F(StructArrays, StructIsNoValueOfItself) {
    const ArrayOwner array = fields(1);
    EXPECT_EQ(raisedIdentifier([&] { vxSetField(array.get(), 0, "Name", array.get()); }), "VANTIK:vx:ArrayInItself");
    // A copy is another array: what it shares is taken apart first.
    vxSetField(array.get(), 0, "Name", vxCreateSharedDataCopy(array.get()));
    EXPECT_EQ(vxGetField(vxGetField(array.get(), 0, "Name"), 0, "Name"), nullptr);
}

TEST_F(StructArrays, StoredValueLeavesItsFrame) {
    const ArrayOwner array = fields(1);
    {
        vantik::detail::CallFrame frame;
        vxSetField(array.get(), 0, "Name", vxCreateString("stays"));
    }
    EXPECT_EQ(text(vxGetField(array.get(), 0, "Name")), "stays");
}

TEST_F(StructArrays, ValueNeverJoinsAFrame) {
    const ArrayOwner array = fields(1);
    vxSetField(array.get(), 0, "Name", vxCreateString("stays"));
    {
        vantik::detail::CallFrame frame;
        vxSetArrayScope(vxGetField(array.get(), 0, "Name"), vxTEMPORARY_SCOPE);
        frame.handOut(vxGetField(array.get(), 0, "Name"));
    }
    EXPECT_EQ(text(vxGetField(array.get(), 0, "Name")), "stays");
}

TEST_F(StructArrays, DeepNestingIsReleasedWithoutDeepRecursion) {
    ArrayOwner outer = fields(1);
    for (int depth = 0; depth < 300'000; ++depth) {
        ArrayOwner next = fields(1);
        vxSetField(next.get(), 0, "Value", outer.release());
        outer = std::move(next);
    }
    EXPECT_EQ(liveArrays(), 300'001u);
}

} // namespace
