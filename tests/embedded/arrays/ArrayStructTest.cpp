#include "ArrayFixture.h"
#include "embedded/arrays/CallFrame.h"

#include <stdexcept>

using namespace matrix::detail::noninlined::vx_array_api;
using Names = std::vector<std::string>;

namespace {

constexpr const char* kFields[] = {"Name", "Value"};

ArrayOwner fields(std::size_t columns = 1) {
    return ArrayOwner(vxCreateStructMatrix(1, columns, 2, kFields));
}

void set(const ArrayOwner& array, const char* field, const char* text) {
    vxSetField(array.get(), 0, field, vxCreateString(text));
}

std::string text(const ArrayOwner& array, const char* field = "Name") {
    return matrix::get_string(vxGetField(array.get(), 0, field));
}

using StructArrays = ArrayFixture;

} // namespace

TEST_F(StructArrays, NewOneHasFieldsWithoutValues) {
    for (const std::size_t columns : {3, 0}) {
        const ArrayOwner array = fields(columns);
        EXPECT_EQ(shapeOf(array), "1-by-" + std::to_string(columns) + " struct");
        EXPECT_EQ(vxIsEmpty(array.get()), columns == 0);
        EXPECT_EQ(vantik::detail::structContents(array.get())->FieldNames, (Names{"Name", "Value"}));
        EXPECT_EQ(vxGetField(array.get(), 0, "Name"), nullptr);
        EXPECT_EQ(vxGetField(array.get(), 2, "Value"), nullptr);
        EXPECT_EQ(elements<void>(array), nullptr);
        EXPECT_EQ(vxGetData(array.get()), nullptr);
    }
}

TEST_F(StructArrays, StoredValueIsReadBackReplacedAndRemoved) {
    const ArrayOwner array = fields(2);
    vxArray_tag* name = vxCreateString("Accept");
    vxSetField(array.get(), 1, "Name", name);
    EXPECT_EQ(vxGetField(array.get(), 1, "Name"), name) << "the value itself, not a copy";
    EXPECT_EQ(vxGetField(array.get(), 0, "Name"), nullptr);
    EXPECT_EQ(vxGetField(array.get(), 1, "Value"), nullptr);
    EXPECT_EQ(liveArrays(), 2u);
    vxSetField(array.get(), 1, "Name", vxCreateString("new"));
    EXPECT_EQ(matrix::get_string(vxGetField(array.get(), 1, "Name")), "new");
    EXPECT_EQ(liveArrays(), 2u);
    vxSetField(array.get(), 1, "Name", nullptr);
    EXPECT_EQ(vxGetField(array.get(), 1, "Name"), nullptr);
    EXPECT_EQ(liveArrays(), 1u);
}

TEST_F(StructArrays, MissingFieldsAndElementsReadAsNull) {
    const ArrayOwner array = fields();
    set(array, "Name", "x");
    for (const char* other : {"name", "", static_cast<const char*>(nullptr)}) {
        EXPECT_EQ(vxGetField(array.get(), 0, other), nullptr);
    }
    EXPECT_EQ(vxGetField(array.get(), 1, "Name"), nullptr);
    EXPECT_EQ(vxGetField(array.get(), SIZE_MAX, "Name"), nullptr);
    EXPECT_EQ(vxGetField(ArrayOwner(vxCreateDoubleScalar(1)).get(), 0, "Name"), nullptr);
}

TEST_F(StructArrays, RefusedValueIsReleased) {
    const ArrayOwner array = fields();
    const ArrayOwner number(vxCreateDoubleScalar(1));
    const auto refusal = [](vxArray_tag* into, std::size_t index, const char* field) {
        return failureOf([&] { vxSetField(into, index, field, vxCreateString("x")); });
    };
    EXPECT_EQ(refusal(array.get(), 0, "Other"), "VANTIK:vx:NoSuchField(Other)");
    EXPECT_EQ(refusal(array.get(), 0, nullptr), "VANTIK:vx:NoSuchField()");
    EXPECT_EQ(refusal(array.get(), 1, "Name"), "VANTIK:vx:IndexOutOfRange(1, 1)");
    EXPECT_EQ(refusal(number.get(), 0, "Name"), "VANTIK:vx:ExpectedClass(struct, double)");
    EXPECT_EQ(refusal(nullptr, 0, "Name"), "VANTIK:vx:ExpectedClass(struct, )");
    EXPECT_EQ(liveArrays(), 2u);
}

TEST_F(StructArrays, FieldNamesAreChecked) {
    const auto refusal = [](std::vector<const char*> names) {
        return failureOf([&] { vxCreateStructMatrix(1, 1, static_cast<int>(names.size()), names.data()); });
    };
    EXPECT_EQ(refusal({"Name", "Value", "Name"}), "VANTIK:vx:DuplicateField(Name)");
    EXPECT_EQ(refusal({"Name", ""}), "VANTIK:vx:EmptyFieldName()");
    EXPECT_EQ(refusal({"Name", nullptr}), "VANTIK:vx:EmptyFieldName()");
    EXPECT_THROW(vxCreateStructMatrix(1, 1, -1, kFields), std::invalid_argument);
    EXPECT_THROW(vxCreateStructMatrix(1, 1, 2, nullptr), std::invalid_argument);
}

TEST_F(StructArrays, CopySharesFieldsUntilOneIsStored) {
    const ArrayOwner array = fields();
    set(array, "Name", "a");
    set(array, "Value", "b");
    const ArrayOwner copy(vxCreateSharedDataCopy(array.get()));
    EXPECT_EQ(vxGetField(copy.get(), 0, "Name"), vxGetField(array.get(), 0, "Name"));
    EXPECT_EQ(liveArrays(), 4u);

    set(copy, "Name", "c");
    EXPECT_EQ(text(array), "a");
    EXPECT_EQ(text(copy), "c");
    EXPECT_EQ(text(copy, "Value"), "b");
    // The values that were not stored still share their contents.
    const vxArray_tag* before = vxGetField(array.get(), 0, "Value");
    const vxArray_tag* after = vxGetField(copy.get(), 0, "Value");
    EXPECT_NE(before, after);
    EXPECT_EQ(vxGetData(before), vxGetData(after));
}

TEST_F(StructArrays, BorrowedValueCannotBeReleasedAndIsCopiedIntoAnotherStruct) {
    const ArrayOwner from = fields();
    const ArrayOwner to = fields();
    set(from, "Name", "both");
    matrix::destroyArray(vxGetField(from.get(), 0, "Name"));
    vxSetField(to.get(), 0, "Value", vxGetField(from.get(), 0, "Name"));
    EXPECT_NE(vxGetField(from.get(), 0, "Name"), vxGetField(to.get(), 0, "Value"));
    EXPECT_EQ(text(from), "both");
    EXPECT_EQ(text(to, "Value"), "both");
}

TEST_F(StructArrays, StructCannotBeAValueOfItself) {
    const ArrayOwner array = fields();
    EXPECT_EQ(failureOf([&] { vxSetField(array.get(), 0, "Name", array.get()); }), "VANTIK:vx:ArrayInItself(Name)");
    // A copy is another array: what it shares is taken apart first.
    vxSetField(array.get(), 0, "Name", vxCreateSharedDataCopy(array.get()));
    EXPECT_EQ(vxGetField(vxGetField(array.get(), 0, "Name"), 0, "Name"), nullptr);
}

TEST_F(StructArrays, StoredValueLeavesItsFrameAndNeverJoinsOne) {
    const ArrayOwner array = fields();
    {
        vantik::detail::CallFrame frame;
        set(array, "Name", "stays");
        vxSetArrayScope(vxGetField(array.get(), 0, "Name"), vxTEMPORARY_SCOPE);
        frame.handOut(vxGetField(array.get(), 0, "Name"));
    }
    EXPECT_EQ(text(array), "stays");
}

TEST_F(StructArrays, DeepNestingIsReleasedWithoutDeepRecursion) {
    ArrayOwner outer = fields();
    for (int depth = 0; depth < 300'000; ++depth) {
        ArrayOwner next = fields();
        vxSetField(next.get(), 0, "Value", outer.release());
        outer = std::move(next);
    }
    EXPECT_EQ(liveArrays(), 300'001u);
}
