#include "hostclass/ValueConversion.h"

#include "errors/MessageIdentifiers.h"
#include "host/Messages.h"
#include "host/Text.h"
#include "hostcalls/HostObjectCall.h"
#include "http/HttpSyntax.h"

#include <algorithm>
#include <string_view>

namespace netrove {

namespace vx = matrix::detail::noninlined::vx_array_api;

namespace {

template <class Element>
std::span<const Element> elementsOf(const vxArray_tag* array) {
    const void* data = vx::vxGetData(array);
    if (data == nullptr) {
        return {};
    }
    return {static_cast<const Element*>(data), arrayElementCount(array)};
}

// Up to the text's first NUL: a stored line may hold one, and no host text goes beyond it.
HostArray makeText(std::string_view text) {
    return matrix::create(text.data(), std::min(text.find('\0'), text.size()));
}

template <class Conversion>
auto convertField(const vxArray_tag* array, std::size_t index, const char* name, Conversion conversion) {
    if (const vxArray_tag* field = vx::vxGetField(array, index, name)) {
        return conversion(field);
    }
    const HostArray nothing(vx::vxCreateEmptyUnknownArrayNotOnArrayList());
    return conversion(nothing.get());
}

} // namespace

void checkArrayClass(const vxArray_tag* array, const char* className) {
    if (array == nullptr || vx::vxIsEmpty(array) || vx::vxIsA(array, className)) {
        return;
    }
    const std::u16string mismatch = fl::i18n::MessageCatalog::get_message(VANTIK::type::PropSetClsMismatch(className),
                                                                          fl::i18n::VkLocale::global());
    const VANTIK::Failure<VANTIK::legacy_two_part::UnableToConvert> failure(
        VANTIK::legacy_two_part::UnableToConvert(vx::vxGetClassName(array), className, mismatch));
    // The host's own route first, which usually does not return.
    matrix::detail::do_legacy_vx_error(failure);
    throw failure;
}

std::span<const std::uint8_t> bytesOf(const vxArray_tag* array) {
    return elementsOf<std::uint8_t>(array);
}

std::span<const double> doublesOf(const vxArray_tag* array) {
    return elementsOf<double>(array);
}

HostArray makeByteArray(std::span<const std::uint8_t> bytes) {
    return makeByteColumn({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}

HostArray makeDoubleArray(std::span<const double> values) {
    HostArray array(vx::vxCreateNumericMatrix(1, values.size(), vxDOUBLE_CLASS, vxREAL));
    std::ranges::copy(values, static_cast<double*>(vx::vxGetData(array.get())));
    return array;
}

HostArray makeString(const std::string& text) {
    return HostArray(vx::vxCreateString(text.c_str()));
}

HostArray makeFieldStruct(std::size_t count, FieldLine first, FieldLine last) {
    static constexpr const char* fieldNames[] = {"Name", "Value"};
    HostArray fields(vx::vxCreateStructMatrix(1, count, 2, fieldNames));
    std::size_t index = 0;
    for (auto line = first; line != last && index < count; ++line, ++index) {
        const auto [name, value] = viewFieldLine(*line);
        vx::vxSetField(fields.get(), index, "Name", makeText(name).release());
        vx::vxSetField(fields.get(), index, "Value", makeText(value).release());
    }
    return fields;
}

std::string fieldString(const vxArray_tag* array, std::size_t index, const char* name) {
    return convertField(array, index, name, [](const vxArray_tag* field) { return matrix::get_string(field); });
}

std::u16string fieldUString(const vxArray_tag* array, std::size_t index, const char* name) {
    return convertField(array, index, name, [](const vxArray_tag* field) { return matrix::get_ustring(field); });
}

} // namespace netrove
