// Base of the tests that use the host as a program does: one host, and nothing left when it is gone.
#pragma once

#include "embedded/scope/Scope.h"
#include "host/ClassSystem.h"
#include "tests/embedded/arrays/ArrayFixture.h"
#include "vantik/Host.h"
#include "vantik/HostClass.h"

#include <optional>
#include <span>
#include <stdexcept>

using vantik::Array;
using vantik::Host;
using vantik::HostClass;
using vantik::Object;
using vantik::detail::ScopeEntry;

// A method of no results.
inline vantik::Method doing(std::function<void(std::span<const Array>)> body) {
    return [body = std::move(body)](std::span<const Array> inputs) {
        body(inputs);
        return std::vector<Array>{};
    };
}

class ProgramFixture : public testing::Test {
protected:
    void TearDown() override {
        Home.reset();
        EXPECT_EQ(Host::liveArrays(), 0u) << "handles were left over";
    }

    // Calls a method as a module does: its first result, null where it delivered none. Raises where it was not found.
    ArrayOwner callAsModule(const Object& object, const char* className, const char* method, const Array& input = {},
                            int wanted = 1, vcos::COSClient* client = getSystemClient()) {
        const ScopeEntry entry(Home->scope());
        vxArray_tag* arguments[] = {const_cast<vxArray_tag*>(object.array().handle()),
                                    const_cast<vxArray_tag*>(input.handle())};
        vxArray_tag* result = nullptr;
        if (!omCallMethod(vcos::internal::makeInterned(className), vcos::internal::makeInterned(method), client, wanted,
                          wanted == 0 ? nullptr : &result, input.handle() ? 2 : 1, arguments, false)) {
            throw std::runtime_error(std::string(method) + " not found");
        }
        return ArrayOwner(result);
    }

    std::optional<Host> Home{std::in_place};
};

// The class "test.Counter": a number that its constructor sets and its methods change.
inline void defineCounter(Host& host) {
    const auto number = std::make_shared<double>(0);
    HostClass("test.Counter")
        .method("Counter", doing([number](std::span<const Array> inputs) {
                    *number = inputs.size() > 1 ? inputs[1].number() : 0;
                }))
        .method("add", {"double scalar"}, {"double scalar"},
                [number](std::span<const Array> inputs) {
                    *number += inputs[1].number();
                    return std::vector<Array>{*number};
                })
        .method("both", {}, {"double scalar", "char vector"},
                [number](std::span<const Array>) {
                    return std::vector<Array>{*number, "text"};
                })
        .method("hiddenInternal", doing([](auto) {}))
        .defineIn(host);
}
