// A scope with the class registered in it, and shortcuts to what its objects are made of.
#pragma once

#include "host/ArrayApi.h"
#include "host/ClassSystem.h"
#include "hostclass/HTTPConnectionAdapter.h"
#include "hostclass/MethodTable.h"
#include "hostclass/ModuleEntry.h"
#include "hostclass/PropertyTable.h"
#include "tests/support/host/FailureText.h"
#include "tests/support/host/HostFixture.h"
#include "tests/support/host/ScopeFixture.h"
#include "vantik/Host.h"
#include "vantik/HostClass.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <initializer_list>
#include <limits>
#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

using namespace netrove;
using testsupport::failureOf;
using testsupport::kAdapterClass;
using testsupport::ScopeFixture;

inline constexpr double kUnlimited = std::numeric_limits<double>::infinity();

// "VANTIK:webservices:EmptyName(value)": identifier and arguments of what an action fails with.
inline std::string failureTextOf(const std::function<void()>& action) {
    return testsupport::describe(failureOf(action));
}

inline vcos::COSClass* registeredClass() {
    return vcos::COSClass::getClass(vcos::internal::makeInterned(kAdapterClass));
}

class ClassFixture : public ScopeFixture {
protected:
    ClassFixture() { VKInitialize_netrove(); }
    vantik::Object makeAdapter(std::initializer_list<vantik::Array> arguments) {
        return host().create(kAdapterClass, arguments);
    }
    static HTTPConnectionAdapter& native(const vantik::Object& object) {
        const vcos::COSInterfacePtr element = omGetArrayElement(object.array().handle(), 0);
        return *static_cast<HTTPConnectionAdapter*>(
            element->getInstanceData(vcos::internal::makeInterned(kAdapterClass)));
    }
};

// With one object of the class, driven by the HTTP interface.
class AdapterFixture : public ClassFixture {
protected:
    vantik::Object Adapter = makeAdapter({true});

    HTTPConnectionAdapter& native() { return ClassFixture::native(Adapter); }
    HTTPConnection& connection() { return native().Connection; }
    RequestSettings& settings() { return connection().Settings; }
    void openTo(const std::string& url) {
        Adapter.set("URL", url);
        Adapter.call("openConnection");
        Adapter.set("RequestMethod", "GET");
    }

    // The accessors of one property, typed: they take what no program can pass, null above all.
    template <class T>
    static const Accessors<T>& accessorsOf(const std::string& name) {
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
    void runHandler(const std::string& name, int resultCount, vcos::COSValue* results,
                    std::vector<vcos::COSValue> inputs = {}) {
        for (const MethodRow& row : methodTable()) {
            if (row.Name == name) {
                row.Handler(&native(), resultCount, results, static_cast<int>(inputs.size()), inputs.data());
                return;
            }
        }
        throw std::out_of_range(name);
    }
};
