// The host's array API (libvx): array values and what they hold.
//
// Ownership: a function named `vxCreate…`, and `matrix::create`, returns a new handle that the caller owns and releases
// with `matrix::destroyArray` or hands on. A handle that is left when the host call that made it ends is released then,
// unless `vxSetArrayScope(array, 0)` made it persistent. Contents are shared between handles until one of them is
// written.
#pragma once

#include "host/HostApi.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

struct vxArray_tag;
using vxArray = vxArray_tag;

enum vxClassID : int {
    vxUNKNOWN_CLASS = 0, // the empty array of no class, the host's "nothing"
    vxSTRUCT_CLASS = 2,
    vxLOGICAL_CLASS = 3,
    vxCHAR_CLASS = 4,
    vxDOUBLE_CLASS = 6,
    vxUINT8_CLASS = 9,
    vxINT32_CLASS = 12,
    vxUINT64_CLASS = 15,
    vxOBJECT_CLASS = 18,
    vxENUMERATION_CLASS = 19,
};

enum vxComplexity : int { vxREAL = 0 };

// Life of a handle: persistent until destroyed, or released with the host call that made it.
enum vxVariableScope : int { vxPERSISTENT_SCOPE = 0, vxTEMPORARY_SCOPE = 1 };

namespace matrix {

// Text of a char array in the default narrow encoding, or in UTF-16. Any other class raises a message exception
// (VANTIK:vx:ExpectedText).
VANTIK_HOST_API std::string get_string(const vxArray_tag* array);
VANTIK_HOST_API std::u16string get_ustring(const vxArray_tag* array);

struct VANTIK_HOST_API vxDestroy_deleter {
    void operator()(vxArray_tag* array) const noexcept;
};

// New 1-by-n char array from narrow text of the given length in bytes.
VANTIK_HOST_API std::unique_ptr<vxArray_tag, vxDestroy_deleter> create(const char* text, std::size_t length);

// Releases a handle. Null is allowed.
VANTIK_HOST_API void destroyArray(vxArray_tag* array) noexcept;

namespace detail::noninlined::vx_array_api {

// Null reads as the array of no class in every operation that only reads.

// New char array from NUL-terminated narrow text.
VANTIK_HOST_API vxArray_tag* vxCreateString(const char* text);
// New empty array of no class, always persistent.
VANTIK_HOST_API vxArray_tag* vxCreateEmptyUnknownArrayNotOnArrayList();
// New numeric matrix with all elements zero. The library makes columns as long as a server announces, up to 1 GiB, so a
// large one should cost no memory before it is written. Raises a message exception for a class that is not numeric and
// std::bad_alloc where there is no memory.
VANTIK_HOST_API vxArray_tag* vxCreateNumericMatrix(std::size_t rows, std::size_t columns, vxClassID classId,
                                                   vxComplexity complexity);
VANTIK_HOST_API vxArray_tag* vxCreateDoubleScalar(double value);
VANTIK_HOST_API vxArray_tag* vxCreateStructMatrix(std::size_t rows, std::size_t columns, int fieldCount,
                                                  const char* const* fieldNames);
// New handle on the same contents.
VANTIK_HOST_API vxArray_tag* vxCreateSharedDataCopy(const vxArray_tag* array);

// One field of one element, borrowed and to be read only; null where the field or the value is missing. Valid until the
// field is stored to or the contents go.
VANTIK_HOST_API vxArray_tag* vxGetField(const vxArray_tag* array, std::size_t index, const char* name);
// Stores a value in a field and takes ownership of it, also when it raises (VANTIK:vx:NoSuchField, IndexOutOfRange,
// ExpectedClass): the value is released then. Null removes the field's value. A borrowed field value is copied.
VANTIK_HOST_API void vxSetField(vxArray_tag* array, std::size_t index, const char* name, vxArray_tag* value);

// First element of a numeric or logical array as a double; 0 where it has none. Raises VANTIK:vx:ExpectedClass for
// every other class: any number would be a wrong answer.
VANTIK_HOST_API double vxGetScalar(const vxArray_tag* array);
VANTIK_HOST_API bool vxIsEmpty(const vxArray_tag* array);
// True where the array's class is `className` or derives from it.
VANTIK_HOST_API bool vxIsA(const vxArray_tag* array, const char* className);
// Full class name, valid as long as the array.
VANTIK_HOST_API const char* vxGetClassName(const vxArray_tag* array);
VANTIK_HOST_API void vxSetArrayScope(vxArray_tag* array, vxVariableScope scope);

// Elements in column order: the const form reads in place; the other form first makes the contents this handle's own.
// Null for a class without plain elements, never null for a plain class, even without elements.
VANTIK_HOST_API const void* vxGetData(const vxArray_tag* array);
VANTIK_HOST_API void* vxGetData(vxArray_tag* array);
// First byte of the elements, read as logicals.
VANTIK_HOST_API const bool* vxGetLogicals(const vxArray_tag* array);

VANTIK_HOST_API std::size_t vxGetNumberOfDimensions(const vxArray_tag* array);
VANTIK_HOST_API const std::size_t* vxGetDimensions(const vxArray_tag* array);

} // namespace detail::noninlined::vx_array_api

} // namespace matrix

// Vectors of enumeration members; 0 for every other array.
VANTIK_HOST_API std::size_t omGetNumberOfElementsInUnderlyingArray(const vxArray_tag* array);
// Interned name of one member (see ClassSystem.h); null for an array that holds no enumeration members.
VANTIK_HOST_API const std::string* omGetEnumerationID(const vxArray_tag* array, std::size_t index);
