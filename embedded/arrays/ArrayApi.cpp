// The host's operations on arrays of every class. Reading null is reading the array of no class.
#include "host/ArrayApi.h"

#include "embedded/arrays/Array.h"
#include "embedded/arrays/CallFrame.h"
#include "embedded/messages/HostFailure.h"
#include "embedded/text/TextConversion.h"
#include "host/Text.h"

#include <cstring>

using namespace vantik::detail;

namespace matrix {

std::string get_string(const vxArray_tag* array) {
    return fl::i18n::to_string(get_ustring(array));
}

std::u16string get_ustring(const vxArray_tag* array) {
    const PlainContents* contents = plainContents(array);
    if (!contents || contents->ClassId != vxCHAR_CLASS) {
        raiseHostFailure("VANTIK:vx", "ExpectedText",
                         {std::string(detail::noninlined::vx_array_api::vxGetClassName(array))});
    }
    return std::u16string(textElements(*contents));
}

void vxDestroy_deleter::operator()(vxArray_tag* array) const noexcept {
    destroyArray(array);
}

std::unique_ptr<vxArray_tag, vxDestroy_deleter> create(const char* text, std::size_t length) {
    const std::string_view utf8 = text ? std::string_view(text, length) : std::string_view();
    return ArrayOwner(isAscii(utf8) ? makeAsciiText(utf8) : makeText(decodeUtf8(utf8)));
}

void destroyArray(vxArray_tag* array) noexcept {
    // A borrowed field value belongs to its struct.
    if (!array || array->Nested) {
        return;
    }
    CallFrame::unlink(array);
    delete array;
}

namespace detail::noninlined::vx_array_api {

vxArray_tag* vxCreateString(const char* text) {
    return create(text, text ? std::strlen(text) : 0).release();
}

vxArray_tag* vxCreateEmptyUnknownArrayNotOnArrayList() {
    return new vxArray_tag(nullptr);
}

vxArray_tag* vxCreateNumericMatrix(std::size_t rows, std::size_t columns, vxClassID classId, vxComplexity complexity) {
    if (!isNumeric(classId)) {
        raiseHostFailure("VANTIK:vx", "ExpectedNumericClass", {static_cast<std::int64_t>(classId)});
    }
    if (complexity != vxREAL) {
        raiseHostFailure("VANTIK:vx", "ExpectedReal", {static_cast<std::int64_t>(complexity)});
    }
    return makePlain(classId, rows, columns);
}

vxArray_tag* vxCreateDoubleScalar(double value) {
    return makeDouble(value);
}

vxArray_tag* vxCreateSharedDataCopy(const vxArray_tag* array) {
    return makeArray(array ? array->Contents : nullptr);
}

double vxGetScalar(const vxArray_tag* array) {
    const vxClassID classId = vxGetClassID(array);
    if (classId != vxLOGICAL_CLASS && !isNumeric(classId)) {
        raiseHostFailure("VANTIK:vx", "ExpectedClass", {std::string("number"), std::string(vxGetClassName(array))});
    }
    return elementAsDouble(array, 0);
}

bool vxIsEmpty(const vxArray_tag* array) {
    return elementCount(array) == 0;
}

const char* vxGetClassName(const vxArray_tag* array) {
    return array && array->Contents ? array->Contents->className() : "";
}

void vxSetArrayScope(vxArray_tag* array, vxVariableScope scope) {
    if (!array) {
        return;
    }
    if (scope == vxPERSISTENT_SCOPE) {
        CallFrame::unlink(array);
    } else if (CallFrame* frame = CallFrame::current()) {
        frame->link(array);
    }
}

const void* vxGetData(const vxArray_tag* array) {
    const PlainContents* contents = plainContents(array);
    return contents ? contents->elements<std::byte>() : nullptr;
}

void* vxGetData(vxArray_tag* array) {
    PlainContents* contents = writablePlainContents(array);
    return contents ? contents->elements<std::byte>() : nullptr;
}

const bool* vxGetLogicals(const vxArray_tag* array) {
    const PlainContents* contents = plainContents(array);
    return contents ? contents->elements<bool>() : nullptr;
}

std::size_t vxGetNumberOfDimensions(const vxArray_tag*) {
    return std::tuple_size_v<Dimensions>;
}

const std::size_t* vxGetDimensions(const vxArray_tag* array) {
    static constexpr Dimensions none{0, 0};
    return array && array->Contents ? array->Contents->Size.data() : none.data();
}

} // namespace detail::noninlined::vx_array_api

} // namespace matrix
