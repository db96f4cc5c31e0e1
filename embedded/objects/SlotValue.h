// Values on their way through a value slot, in the direction of a handler and back.
#pragma once

#include "embedded/arrays/Array.h"
#include "embedded/classes/TypeWord.h"
#include "host/ClassSystem.h"

#include <memory>
#include <string>
#include <string_view>
#include <utility>

namespace vantik::detail {

// What a value is for, so that a refusal can say so.
struct SlotPlace {
    enum class Role { Property, Input, Output };

    std::string_view ClassName;
    std::string_view Member;
    Role Use;
    int Position; // from 1, the object not counted; unused for a property
};

// One value as a handler wants it. What the slot points to belongs to this object or to the array that was given; both
// must live as long as the slot is used.
//
// An array that already is what the type word says goes through as it is. Otherwise:
//   - numbers and logicals become one another where every value fits exactly,
//   - "unicodeString" takes a char array in one row or one column,
//   - a "vector" also takes a scalar and any array without elements, whatever its class,
//   - nothing (null, or the empty array of no class) is null for a property that is not a number, and for an input the
//     empty array of the declared class.
// Everything else raises VANTIK:vcos:WrongPropertyType, WrongInputType or WrongOutputType.
class SlotValue {
public:
    SlotValue(const TypeWord& type, vxArray_tag* given, const SlotPlace& place);
    SlotValue(const SlotValue&) = delete;
    SlotValue& operator=(const SlotValue&) = delete;

    const vcos::COSValue& slot() const noexcept { return Slot; }
    // Where the slot holds an array: an owned handle on it, or null.
    vxArray_tag* takeArray();
    // Where the slot holds a text: that text.
    std::u16string takeText() noexcept { return std::move(Text); }

private:
    void pointTo(const void* target) noexcept;
    void own(vxArray_tag* made) noexcept;

    vcos::COSValue Slot;
    ArrayOwner Made;     // null: the slot holds the given array, or none
    std::u16string Text; // what a "unicodeString" slot points to
};

// A handle in a slot, and the slot as a handle.
vcos::COSValue slotOf(const vxArray_tag* array) noexcept;
vxArray_tag* arrayIn(const vcos::COSValue& slot) noexcept;

// What a handler put into a slot, as a new array; for a type that is an array, the handle in the slot itself, perhaps
// null. A null text counts as empty.
vxArray_tag* arrayFromSlot(const TypeWord& type, const vcos::COSValue& slot);

} // namespace vantik::detail
