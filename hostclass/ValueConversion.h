// Conversion of values that cross the host boundary: byte vectors, vectors of doubles, Name/Value structs and host
// objects.
#pragma once

#include "host/ArrayApi.h"
#include "hostcalls/HostArray.h"
#include "hostclass/ValueSlot.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace netrove {

// Returns for null, for an empty array and for one whose class is `className` or derives from it. Otherwise raises
// VANTIK:legacy_two_part:UnableToConvert.
void checkArrayClass(const vxArray_tag* array, const char* className);

// Elements of a "uint8 vector" or a "double vector", in place: the array owns them. Shape is ignored, only the count
// matters.
std::span<const std::uint8_t> bytesOf(const vxArray_tag* array);
std::span<const double> doublesOf(const vxArray_tag* array);

// A column of bytes; a row of doubles. The shapes differ on purpose.
HostArray makeByteArray(std::span<const std::uint8_t> bytes);
HostArray makeDoubleArray(std::span<const double> values);

// A char array from narrow text up to its first NUL.
HostArray makeString(const std::string& text);

// A 1-by-count struct with the fields "Name" and "Value" from a run of stored field lines.
using FieldLine = std::vector<std::string>::const_iterator;
HostArray makeFieldStruct(std::size_t count, FieldLine first, FieldLine last);

// Text of one field of one struct element. A field without a value is the host's array of no class, and the host's own
// conversion says what that is.
std::string fieldString(const vxArray_tag* array, std::size_t index, const char* name);
std::u16string fieldUString(const vxArray_tag* array, std::size_t index, const char* name);

// Hands a result to the host.
inline void giveResult(vcos::COSValue& slot, HostArray array) {
    ValueSlot<vxArray_tag*>::write(slot, array.release());
}

} // namespace netrove
