// A scope with the class registered in it, and shortcuts to what stands behind its objects.
#pragma once

#include "host/ArrayApi.h"
#include "host/ClassSystem.h"
#include "hostclass/HTTPConnectionAdapter.h"
#include "hostclass/MethodTable.h"
#include "hostclass/ModuleEntry.h"
#include "hostclass/PropertyTable.h"
#include "tests/support/host/HostFixture.h"
#include "tests/support/host/ScopeFixture.h"
#include "vantik/Host.h"
#include "vantik/HostClass.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <variant>
#include <vector>

using namespace netrove;
using testsupport::failureOf;

inline constexpr const char* kAdapterClass = testsupport::kAdapterClass;

using testsupport::ScopeFixture;

class ClassFixture : public ScopeFixture {
protected:
    ClassFixture() { VKInitialize_netrove(); }
    vantik::Object makeAdapter() { return host().create(kAdapterClass); }
    vantik::Object makeAdapter(bool httpOptionsMode) {
        return host().create(kAdapterClass, {vantik::Array(httpOptionsMode)});
    }
    static HTTPConnectionAdapter& native(const vantik::Object& object) {
        const vcos::COSInterfacePtr element = omGetArrayElement(object.array().handle(), 0);
        return *static_cast<HTTPConnectionAdapter*>(
            element->getInstanceData(vcos::internal::makeInterned(kAdapterClass)));
    }
};

inline std::vector<vantik::MessageArgument> arguments(std::vector<vantik::MessageArgument> list) {
    return list;
}

// The accessors of one property, typed.
template <class T>
const Accessors<T>& accessorsOf(const std::string& name) {
    for (const auto& rows : {valueProperties(), objectProperties()}) {
        for (const PropertyRow& row : rows) {
            if (row.Name == name) {
                return std::get<Accessors<T>>(row.Access);
            }
        }
    }
    throw std::out_of_range(name);
}

// Runs a method's handler without the class system in between. Result arrays belong to the caller.
inline void runHandler(const std::string& name, HTTPConnectionAdapter& adapter, int resultCount,
                       vcos::COSValue* results, std::vector<vcos::COSValue> inputs = {}) {
    for (const MethodRow& row : methodTable()) {
        if (row.Name == name) {
            row.Handler(&adapter, resultCount, results, static_cast<int>(inputs.size()), inputs.data());
            return;
        }
    }
    throw std::out_of_range(name);
}
