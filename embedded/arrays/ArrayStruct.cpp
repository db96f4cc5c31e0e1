// Struct arrays: values by field and element.
#include "embedded/arrays/Array.h"
#include "embedded/arrays/CallFrame.h"
#include "embedded/messages/HostFailure.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>
#include <stdexcept>
#include <utility>

namespace vantik::detail {

namespace {

// Values whose struct has gone. A value may be a struct with values of its own, nested as deep as a program likes, so
// they are destroyed one after the other and not inside one another, where the stack would be the limit.
thread_local vxArray_tag* doomed = nullptr; // linked by `Older`
thread_local bool destroyingDoomed = false;

void doom(vxArray_tag* value) noexcept {
    if (!value) {
        return;
    }
    value->Older = doomed;
    doomed = value;
}

void destroyDoomed() noexcept {
    if (destroyingDoomed) {
        return;
    }
    destroyingDoomed = true;
    while (doomed) {
        vxArray_tag* value = doomed;
        doomed = value->Older;
        delete value;
    }
    destroyingDoomed = false;
}

std::size_t valueCount(std::size_t elements, std::size_t fields) {
    std::size_t count = 0;
    // The values are pointers. NOLINTNEXTLINE(bugprone-sizeof-expression)
    constexpr std::size_t valueSize = sizeof(vxArray_tag*);
    if (__builtin_mul_overflow(elements, fields, &count) ||
        count > static_cast<std::size_t>(std::numeric_limits<std::ptrdiff_t>::max()) / valueSize) {
        throw std::bad_alloc();
    }
    return count;
}

void checkFieldNames(const std::vector<std::string>& names) {
    for (auto name = names.begin(); name != names.end(); ++name) {
        if (name->empty()) {
            raiseHostFailure("VANTIK:vx", "EmptyFieldName", {});
        }
        if (std::find(names.begin(), name, *name) != name) {
            raiseHostFailure("VANTIK:vx", "DuplicateField", {*name});
        }
    }
}

} // namespace

StructContents::StructContents(std::size_t rows, std::size_t columns, std::vector<std::string> fieldNames)
    : ArrayContents(vxSTRUCT_CLASS, rows, columns), FieldNames(std::move(fieldNames)) {
    checkFieldNames(FieldNames);
    Values.resize(valueCount(Count, FieldNames.size()));
}

// The first constructor has run when copying starts, so a failure half-way destroys what has been copied.
StructContents::StructContents(const StructContents& other)
    : StructContents(other.Size[0], other.Size[1], other.FieldNames) {
    for (std::size_t i = 0; i < Values.size(); ++i) {
        if (!other.Values[i]) {
            continue;
        }
        Values[i] = new vxArray_tag(other.Values[i]->Contents);
        Values[i]->Nested = true;
    }
}

StructContents::~StructContents() {
    for (vxArray_tag* value : Values) {
        doom(value);
    }
    destroyDoomed();
}

const char* StructContents::className() const noexcept {
    return "struct";
}

std::size_t StructContents::fieldNumber(std::string_view name) const noexcept {
    return static_cast<std::size_t>(std::find(FieldNames.begin(), FieldNames.end(), name) - FieldNames.begin());
}

const StructContents* structContents(const vxArray_tag* array) noexcept {
    if (!array || !array->Contents || array->Contents->ClassId != vxSTRUCT_CLASS) {
        return nullptr;
    }
    return static_cast<const StructContents*>(array->Contents.get());
}

StructContents* writableStructContents(vxArray_tag* array) {
    const StructContents* contents = structContents(array);
    if (!contents) {
        return nullptr;
    }
    if (contents->use_count() > 1) {
        array->Contents = new StructContents(*contents);
    }
    return static_cast<StructContents*>(array->Contents.get());
}

} // namespace vantik::detail

namespace matrix::detail::noninlined::vx_array_api {

using namespace vantik::detail;

vxArray_tag* vxCreateStructMatrix(std::size_t rows, std::size_t columns, int fieldCount,
                                  const char* const* fieldNames) {
    if (fieldCount < 0 || (fieldCount > 0 && !fieldNames)) {
        throw std::invalid_argument("a struct matrix needs a name for each of its fields");
    }
    std::vector<std::string> names;
    names.reserve(static_cast<std::size_t>(fieldCount));
    for (int i = 0; i < fieldCount; ++i) {
        names.emplace_back(fieldNames[i] ? fieldNames[i] : "");
    }
    return makeArray(new StructContents(rows, columns, std::move(names)));
}

vxArray_tag* vxGetField(const vxArray_tag* array, std::size_t index, const char* name) {
    const StructContents* contents = structContents(array);
    if (!contents || !name || index >= contents->Count) {
        return nullptr;
    }
    const std::size_t field = contents->fieldNumber(name);
    return field < contents->FieldNames.size() ? contents->value(index, field) : nullptr;
}

void vxSetField(vxArray_tag* array, std::size_t index, const char* name, vxArray_tag* value) {
    if (value && value == array) {
        raiseHostFailure("VANTIK:vx", "ArrayInItself", {std::string(name ? name : "")});
    }
    ArrayOwner taken(value); // a failure below releases it

    const StructContents* contents = structContents(array);
    if (!contents) {
        raiseHostFailure("VANTIK:vx", "ExpectedClass", {std::string("struct"), std::string(vxGetClassName(array))});
    }
    if (index >= contents->Count) {
        raiseHostFailure("VANTIK:vx", "IndexOutOfRange",
                         {static_cast<std::int64_t>(index), static_cast<std::int64_t>(contents->Count)});
    }
    const std::size_t field = contents->fieldNumber(name ? name : "");
    if (field == contents->FieldNames.size()) {
        raiseHostFailure("VANTIK:vx", "NoSuchField", {std::string(name ? name : "")});
    }

    // Another struct's value, borrowed from `vxGetField`, stays where it is.
    if (value && value->Nested) {
        taken.reset(vxCreateSharedDataCopy(value));
    }

    vxArray_tag*& place = writableStructContents(array)->value(index, field);
    if (taken) {
        CallFrame::unlink(taken.get());
        taken->Nested = true;
    }
    if (vxArray_tag* const previous = std::exchange(place, taken.release())) {
        doom(previous);
        destroyDoomed();
    }
}

} // namespace matrix::detail::noninlined::vx_array_api
