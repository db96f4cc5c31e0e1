// The class's properties as data.
#pragma once

#include "host/ClassSystem.h"
#include "hostclass/MemberTemplates.h"
#include "hostclass/ValueSlot.h"

#include <cstdint>
#include <span>
#include <variant>

class HTTPConnectionAdapter;

namespace netrove {

template <class T>
using Accessors = PropertyAccessors<HTTPConnectionAdapter, T>;

// One property. Get and set access are always public. The attribute word is passed to the class system unread.
struct PropertyRow {
    const char* Name;
    const char* TypeWord;
    std::uint32_t Attributes;
    const char* Description;
    std::variant<Accessors<Text>, Accessors<double>, Accessors<vxArray_tag*>, Accessors<bool>,
                 Accessors<unsigned long long>, Accessors<int>>
        Access;
};

// In order of registration: first the properties with values of their own, then those that hold a host object, whose
// description is the full name of the object's class.
std::span<const PropertyRow> valueProperties();
std::span<const PropertyRow> objectProperties();

// Adds one property to the class being defined. Raises foundation::core::except::bad_alloc if there is no memory.
void addPropertyEntry(vcos::COSClass& definition, const PropertyRow& row);

} // namespace netrove
