#include "vantik/Object.h"

#include "embedded/arrays/Array.h"
#include "embedded/classes/ClassDefinition.h"
#include "embedded/messages/HostFailure.h"
#include "embedded/objects/ObjectCalls.h"
#include "embedded/program/Boundary.h"
#include "embedded/program/CallOrder.h"
#include "embedded/program/ProgramValues.h"
#include "embedded/scope/Scope.h"

#include <algorithm>
#include <cstdint>
#include <utility>

namespace vantik {

namespace vx = matrix::detail::noninlined::vx_array_api;

namespace detail {

namespace {

// A value is read only, but the class system's handles carry no const.
vxArray_tag* borrowed(const Array& value) {
    return const_cast<vxArray_tag*>(value.handle());
}

HostObject& objectIn(const Array& value) {
    const vcos::COSInterfacePtr object = scalarObject(value.handle());
    if (!object) {
        raiseHostFailure("VANTIK:vcos", "NoObject", {});
    }
    return HostObject::of(*object.get()); // the value keeps it alive
}

// Runs an operation on the object of a value, in the object's scope.
template <class Operation>
auto onObject(const Array& value, Operation operation) {
    return runForProgram([&] {
        HostObject& object = objectIn(value);
        const ScopeEntry entry(object.scope());
        return withWarningsRaised(object.scope()->Warnings, [&] {
            // The program may drop the value in the middle of the operation.
            const vcos::COSInterfacePtr held = scalarObject(value.handle());
            return operation(object);
        });
    });
}

ResultList callMethod(HostObject& object, const Array& self, const MethodEntry& method, std::span<const Array> inputs,
                      int resultsWanted) {
    HandleList arguments = borrowedHandles(*object.scope(), inputs);
    arguments.insert(arguments.begin(), borrowed(self));
    warnOfOrder(object, method.Name);
    ResultList results = runMethod(object, method, resultsWanted, arguments);
    noteOrder(object, method.Name, Array());
    return results;
}

} // namespace

void checkValue(const Scope& scope, const Array& value) {
    const vxArray_tag* array = value.handle();
    for (const vcos::COSInterfacePtr& element : objectElements(array)) {
        const HostObject& object = HostObject::of(*element.get());
        if (object.scope().get() != &scope) {
            raiseHostFailure("VANTIK:vcos", "ForeignObject", {object.definition().name()});
        }
    }
    if (!array || vx::vxGetClassID(array) != vxENUMERATION_CLASS) {
        return;
    }
    const std::string className = vx::vxGetClassName(array);
    const std::vector<std::string>* members = scope.Classes.enumerationMembers(className);
    const std::size_t count = members ? omGetNumberOfElementsInUnderlyingArray(array) : 0;
    for (std::size_t index = 0; index < count; ++index) {
        const vcos::InternedName id = omGetEnumerationID(array, index);
        const std::string member = id == nullptr ? std::string() : *id; // an empty name has no key
        if (std::find(members->begin(), members->end(), member) == members->end()) {
            std::string known;
            for (const std::string& name : *members) {
                known += (known.empty() ? "" : ", ") + name;
            }
            raiseHostFailure("VANTIK:vcos", "UnknownMember", {className, member, known});
        }
    }
}

HandleList borrowedHandles(const Scope& scope, std::span<const Array> values) {
    HandleList handles;
    handles.reserve(values.size() + 1); // a caller may put the object in front
    for (const Array& value : values) {
        checkValue(scope, value);
        handles.push_back(borrowed(value));
    }
    return handles;
}

} // namespace detail

Object::Object() noexcept = default;
Object::Object(const Object&) = default;
Object::Object(Object&&) noexcept = default;
Object::~Object() = default;

Object::Object(Array value) : Value(std::move(value)) {
    detail::runForProgram([this] { detail::objectIn(Value); });
}

Object& Object::operator=(Object other) noexcept {
    std::swap(Value, other.Value);
    return *this;
}

Object::operator bool() const noexcept {
    return Value.handle() != nullptr;
}

std::string Object::className() const {
    return detail::onObject(Value, [](detail::HostObject& object) { return object.definition().name(); });
}

bool Object::isA(std::string_view className) const {
    return detail::onObject(Value, [&](detail::HostObject& object) { return object.definition().isA(className); });
}

Array Object::get(std::string_view property) const {
    return detail::onObject(
        Value, [&](detail::HostObject& object) { return Array::adopt(detail::getProperty(object, property)); });
}

void Object::set(std::string_view property, const Array& value) const {
    detail::onObject(Value, [&](detail::HostObject& object) {
        detail::checkValue(*object.scope(), value);
        detail::setProperty(object, property, detail::borrowed(value));
        detail::noteOrder(object, property, value);
    });
}

Array Object::call(std::string_view method, std::initializer_list<Array> arguments) const {
    return detail::onObject(Value, [&](detail::HostObject& object) {
        const detail::MethodEntry& entry = detail::requireMethod(object, method, *COSGetPublicClient());
        auto results = detail::callMethod(object, Value, entry, {arguments.begin(), arguments.size()}, 1);
        return results.empty() ? Array() : Array::adopt(results.front().release());
    });
}

std::vector<Array> Object::call(std::string_view method, std::initializer_list<Array> arguments,
                                int resultsWanted) const {
    return call(method, std::span<const Array>(arguments.begin(), arguments.size()), resultsWanted);
}

std::vector<Array> Object::call(std::string_view method, std::span<const Array> arguments, int resultsWanted) const {
    return detail::onObject(Value, [&](detail::HostObject& object) {
        const detail::MethodEntry& entry = detail::requireMethod(object, method, *COSGetPublicClient());
        const auto declared = static_cast<std::int64_t>(entry.Outputs.size());
        if (entry.Declared && resultsWanted > declared) {
            detail::raiseHostFailure("VANTIK:vcos", "TooManyOutputs",
                                     {object.definition().name(), entry.Name, declared, std::int64_t{resultsWanted}});
        }
        std::vector<Array> delivered;
        for (detail::ArrayOwner& result : detail::callMethod(object, Value, entry, arguments, resultsWanted)) {
            delivered.push_back(Array::adopt(result.release()));
        }
        return delivered;
    });
}

} // namespace vantik
