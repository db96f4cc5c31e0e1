#include "vantik/HostClass.h"

#include "embedded/classes/ClassRegistry.h"
#include "embedded/classes/TypeWord.h"
#include "embedded/messages/HostFailure.h"
#include "embedded/program/Boundary.h"
#include "embedded/program/CallableClass.h"
#include "embedded/scope/Scope.h"
#include "vantik/Host.h"

#include <utility>

namespace vantik {

struct HostClass::Definition {
    detail::CallableClassSpec Spec;
};

HostClass::HostClass(std::string fullName) : Content(std::make_unique<Definition>()) {
    Content->Spec.FullName = std::move(fullName);
}
HostClass::~HostClass() = default;
HostClass::HostClass(HostClass&&) noexcept = default;
HostClass& HostClass::operator=(HostClass&&) noexcept = default;

HostClass& HostClass::derivesFrom(std::string fullName) {
    Content->Spec.Bases.push_back(std::move(fullName));
    return *this;
}

HostClass& HostClass::method(std::string name, Method body) {
    Content->Spec.Methods.push_back({std::move(name), false, {}, {}, std::move(body)});
    return *this;
}

HostClass& HostClass::method(std::string name, std::vector<std::string> inputTypes,
                             std::vector<std::string> outputTypes, Method body) {
    Content->Spec.Methods.push_back(
        {std::move(name), true, std::move(inputTypes), std::move(outputTypes), std::move(body)});
    return *this;
}

void HostClass::defineIn(Host& host) const {
    detail::runForProgram([&] {
        const detail::ScopeEntry entry(host.scope());
        detail::ClassRegistry& classes = host.scope()->Classes;
        const detail::CallableClassSpec& spec = Content->Spec;
        const std::size_t dot = spec.FullName.rfind('.');
        if (!detail::isDottedName(spec.FullName) || dot == std::string::npos) {
            detail::raiseHostFailure("VANTIK:vcos", "InvalidName", {spec.FullName});
        }
        if (classes.find(spec.FullName)) {
            detail::raiseHostFailure("VANTIK:vcos", "ClassExists", {spec.FullName});
        }
        for (const detail::CallableMethodSpec& method : spec.Methods) {
            if (!method.Body) {
                detail::raiseHostFailure("VANTIK:vcos", "NoCallable", {spec.FullName, method.Name});
            }
        }
        const std::string_view package = std::string_view(spec.FullName).substr(0, dot);
        classes.ensurePackage(package);
        classes.define(package, std::make_unique<detail::CallableClassInfo>(spec));
    });
}

} // namespace vantik
