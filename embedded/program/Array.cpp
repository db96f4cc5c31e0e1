#include "vantik/Array.h"

#include "embedded/arrays/Array.h"
#include "embedded/arrays/CallFrame.h"
#include "embedded/messages/HostFailure.h"
#include "embedded/program/Boundary.h"
#include "embedded/program/ProgramValues.h"
#include "embedded/text/TextConversion.h"
#include "host/Text.h"
#include "vantik/Failure.h"

#include <cmath>
#include <utility>

namespace vantik {

namespace {

namespace vx = matrix::detail::noninlined::vx_array_api;

using resource_core::MsgArgument;

[[noreturn]] void fail(const char* key, std::vector<MsgArgument> arguments) {
    throw Failure(detail::messageFor(detail::HostMessage(std::move(arguments), "VANTIK:vx", key)));
}

// Runs an operation of the host and turns what it raises for the user into a Failure.
template <class Operation>
auto translated(Operation operation) {
    try {
        return operation();
    } catch (const foundation::core::except::IUserException& error) {
        throw Failure(detail::messageFor(error.msg_id()));
    }
}

// An Array may live longer than the host call that it is made in.
vxArray_tag* kept(vxArray_tag* handle) noexcept {
    if (handle) {
        detail::CallFrame::unlink(handle);
    }
    return handle;
}

vxArray_tag* sharedCopy(const vxArray_tag* handle) {
    return handle && handle->Contents ? kept(vx::vxCreateSharedDataCopy(handle)) : nullptr;
}

vxArray_tag* textHandle(std::string_view utf8) {
    if (detail::isAscii(utf8)) {
        return kept(detail::makeAsciiText(utf8));
    }
    std::size_t badByte = 0;
    const auto text = detail::decodeUtf8Strictly(utf8, badByte);
    if (!text) {
        fail("NotUtf8", {static_cast<std::int64_t>(badByte)});
    }
    return kept(detail::makeText(*text));
}

[[noreturn]] void failClass(const char* expected, const vxArray_tag* found) {
    fail("ExpectedClass", {std::string(expected), std::string(vx::vxGetClassName(found))});
}

const detail::PlainContents& plainOf(const vxArray_tag* handle, vxClassID classId, const char* expected) {
    const detail::PlainContents* contents = detail::plainContents(handle);
    if (!contents || contents->ClassId != classId) {
        failClass(expected, handle);
    }
    return *contents;
}

const detail::StructContents& structOf(const vxArray_tag* handle) {
    const detail::StructContents* contents = detail::structContents(handle);
    if (!contents) {
        failClass("struct", handle);
    }
    return *contents;
}

void checkNumbers(const vxArray_tag* handle) {
    const vxClassID classId = vx::vxGetClassID(handle);
    if (classId != vxLOGICAL_CLASS && !detail::isNumeric(classId)) {
        failClass("number", handle);
    }
}

void checkNumber(const vxArray_tag* handle) {
    checkNumbers(handle);
    const std::size_t* size = vx::vxGetDimensions(handle);
    if (detail::elementCount(handle) != 1) {
        fail("ExpectedScalar", {static_cast<std::int64_t>(size[0]), static_cast<std::int64_t>(size[1])});
    }
}

std::u16string_view textOf(const vxArray_tag* handle) {
    const detail::PlainContents* contents = detail::plainContents(handle);
    if (!contents || contents->ClassId != vxCHAR_CLASS) {
        fail("ExpectedText", {std::string(vx::vxGetClassName(handle))});
    }
    return detail::textElements(*contents);
}

// `valueAt(row, field)` is the value there, in the order of the field names.
template <class ValueAt>
Array makeStructure(std::size_t elements, std::vector<std::string> names, ValueAt valueAt) {
    return translated([&] {
        auto* contents = new detail::StructContents(1, elements, std::move(names));
        Array result = Array::adopt(detail::makeArray(contents));
        for (std::size_t row = 0; row < elements; ++row) {
            for (std::size_t field = 0; field < contents->FieldNames.size(); ++field) {
                detail::setField(*contents, row, field, valueAt(row, field));
            }
        }
        return result;
    });
}

// Borrowed from the struct.
vxArray_tag* fieldValue(const vxArray_tag* handle, std::string_view name, std::size_t index) {
    const detail::StructContents& contents = structOf(handle);
    const std::size_t field = contents.fieldNumber(name);
    if (field == contents.FieldNames.size()) {
        fail("NoSuchField", {std::string(name)});
    }
    if (index >= contents.Count) {
        fail("IndexOutOfRange", {static_cast<std::int64_t>(index), static_cast<std::int64_t>(contents.Count)});
    }
    return contents.value(index, field);
}

} // namespace

void detail::setField(StructContents& contents, std::size_t index, std::size_t field, Array value) noexcept {
    vxArray_tag* handle = value.release();
    if (handle) {
        handle->Nested = true;
        contents.value(index, field) = handle;
    }
}

std::string detail::fieldText(const Array& structure, std::string_view name, std::size_t index) {
    return Array::adopt(fieldValue(structure.handle(), name, index)).textOr(""); // which does not destroy it
}

Array::Array() noexcept : Handle(nullptr) {}

Array::Array(const char* utf8) : Handle(textHandle(utf8 ? std::string_view(utf8) : std::string_view())) {}

Array::Array(const std::string& utf8) : Handle(textHandle(utf8)) {}

Array::Array(std::string_view utf8) : Handle(textHandle(utf8)) {}

Array::Array(const char16_t* text) : Array(text ? std::u16string_view(text) : std::u16string_view()) {}

Array::Array(const std::u16string& text) : Array(std::u16string_view(text)) {}

Array::Array(std::u16string_view text) : Handle(kept(detail::makeText(text))) {}

Array::Array(bool value) : Handle(kept(detail::makeLogical(value))) {}

Array::Array(double value) : Handle(kept(detail::makeDouble(value))) {}

Array::Array(std::int32_t value) : Handle(kept(detail::makeInt32(value))) {}

Array::Array(std::uint64_t value) : Handle(kept(detail::makeUInt64(value))) {}

Array Array::wideInteger(std::int64_t value) {
    if (std::in_range<std::int32_t>(value)) {
        return {static_cast<std::int32_t>(value)};
    }
    if (value >= 0) {
        return {static_cast<std::uint64_t>(value)};
    }
    const auto number = static_cast<double>(value); // from -2^63 on, so it converts back
    if (static_cast<std::int64_t>(number) != value) {
        fail("NumberNotHeld", {value});
    }
    return {number};
}

Array::Array(const Array& other) : Handle(sharedCopy(other.Handle)) {}

Array::Array(Array&& other) noexcept : Handle(std::exchange(other.Handle, nullptr)) {}

Array& Array::operator=(Array other) noexcept {
    std::swap(Handle, other.Handle);
    return *this;
}

Array::~Array() {
    matrix::destroyArray(Handle);
}

Array Array::bytes(std::span<const std::byte> content) {
    return adopt(detail::makePlainFrom(vxUINT8_CLASS, content.size(), 1, content.data()));
}

Array Array::bytes(std::string_view content) {
    return adopt(detail::makePlainFrom(vxUINT8_CLASS, content.size(), 1, content.data()));
}

Array Array::doubles(std::span<const double> values) {
    return adopt(detail::makePlainFrom(vxDOUBLE_CLASS, 1, values.size(), values.data()));
}

Array Array::doubles(std::initializer_list<double> values) {
    return doubles(std::span<const double>(values.begin(), values.size()));
}

Array Array::logicals(const std::vector<bool>& values) {
    const std::vector<std::uint8_t> elements(values.begin(), values.end());
    return adopt(detail::makePlainFrom(vxLOGICAL_CLASS, 1, elements.size(), elements.data()));
}

Array Array::enumeration(std::string_view className, std::span<const std::string> members) {
    return adopt(detail::makeEnumerationArray(std::string(className), {members.begin(), members.end()}));
}

Array Array::enumeration(std::string_view className, std::initializer_list<std::string_view> members) {
    return adopt(detail::makeEnumerationArray(std::string(className), {members.begin(), members.end()}));
}

Array Array::structure(std::initializer_list<Field> fields) {
    std::vector<std::string> names;
    names.reserve(fields.size());
    for (const Field& field : fields) {
        names.push_back(field.first);
    }
    return makeStructure(1, std::move(names),
                         [&](std::size_t, std::size_t field) { return fields.begin()[field].second; });
}

Array Array::structures(const std::vector<std::string>& fieldNames, const std::vector<std::vector<Array>>& rows) {
    for (std::size_t row = 0; row < rows.size(); ++row) {
        if (rows[row].size() != fieldNames.size()) {
            fail("RowLength", {static_cast<std::int64_t>(row), static_cast<std::int64_t>(fieldNames.size()),
                               static_cast<std::int64_t>(rows[row].size())});
        }
    }
    return makeStructure(rows.size(), fieldNames, [&](std::size_t row, std::size_t field) { return rows[row][field]; });
}

std::string Array::className() const {
    return vx::vxGetClassName(Handle);
}

std::vector<std::size_t> Array::dimensions() const {
    const std::size_t* size = vx::vxGetDimensions(Handle);
    return {size, size + vx::vxGetNumberOfDimensions(Handle)};
}

std::size_t Array::size() const {
    return detail::elementCount(Handle);
}

bool Array::isA(std::string_view className) const {
    return vx::vxIsA(Handle, std::string(className).c_str());
}

std::string Array::text() const {
    const std::u16string_view text = textOf(Handle);
    try {
        return detail::encodeUtf8(text);
    } catch (const fl::i18n::CvtExceptionBase& error) {
        fail("TextNotConvertible", {std::string(error.what())});
    }
}

std::string Array::textOr(std::string_view other) const {
    return empty() ? std::string(other) : text();
}

std::u16string Array::wideText() const {
    return std::u16string(textOf(Handle));
}

double Array::number() const {
    checkNumber(Handle);
    return detail::elementAsDouble(Handle, 0);
}

bool Array::truth() const {
    return number() != 0;
}

std::uint64_t Array::unsignedInteger() const {
    checkNumber(Handle);
    // A double does not hold every 64-bit integer.
    if (vx::vxGetClassID(Handle) == vxUINT64_CLASS) {
        return detail::plainContents(Handle)->elements<std::uint64_t>()[0];
    }
    const double value = detail::elementAsDouble(Handle, 0);
    constexpr double limit = 18446744073709551616.0; // 2^64
    if (!(value >= 0 && value < limit) || std::trunc(value) != value) {
        fail("ExpectedUnsignedInteger", {std::to_string(value)});
    }
    return static_cast<std::uint64_t>(value);
}

std::span<const std::byte> Array::bytes() const {
    const detail::PlainContents& contents = plainOf(Handle, vxUINT8_CLASS, "uint8");
    return {contents.elements<std::byte>(), contents.Count};
}

std::string Array::byteText() && {
    return std::string(std::as_const(*this).byteText());
}

std::string_view Array::byteText() const& {
    const detail::PlainContents& contents = plainOf(Handle, vxUINT8_CLASS, "uint8");
    return {contents.elements<char>(), contents.Count};
}

std::vector<double> Array::doubles() const {
    checkNumbers(Handle);
    std::vector<double> values(size());
    for (std::size_t i = 0; i < values.size(); ++i) {
        values[i] = detail::elementAsDouble(Handle, i);
    }
    return values;
}

std::vector<std::string> Array::fieldNames() const {
    return structOf(Handle).FieldNames;
}

Array Array::field(std::string_view name, std::size_t index) const {
    return adopt(sharedCopy(fieldValue(Handle, name, index)));
}

std::span<std::byte> Array::writableBytes() {
    plainOf(Handle, vxUINT8_CLASS, "uint8");
    detail::PlainContents* contents = detail::writablePlainContents(Handle);
    return {contents->elements<std::byte>(), contents->Count};
}

vxArray_tag* Array::release() noexcept {
    return std::exchange(Handle, nullptr);
}

Array Array::adopt(vxArray_tag* handle) noexcept {
    Array result;
    result.Handle = kept(handle);
    return result;
}

} // namespace vantik
