// The class's methods as data.
#pragma once

#include "host/ClassSystem.h"
#include "hostclass/MemberTemplates.h"

#include <array>
#include <span>

class HTTPConnectionAdapter;

namespace netrove {

// One method. Access is always public; the object comes before the inputs. Unused places are null.
struct MethodRow {
    const char* Name;
    std::array<const char*, 3> Outputs;
    std::array<const char*, 2> Inputs;
    MethodHandler<HTTPConnectionAdapter*> Handler;
    bool WithAns; // delivers its first result even if none is asked for
};

// In order of registration.
std::span<const MethodRow> methodTable();

// Adds one method to the class being defined.
void addMethodEntry(vcos::COSClass& definition, const MethodRow& row);

} // namespace netrove
