#include "vantik/Host.h"

#include "embedded/arrays/Array.h"
#include "embedded/arrays/CallFrame.h"
#include "embedded/classes/ClassDefinition.h"
#include "embedded/objects/ObjectCalls.h"
#include "embedded/program/Boundary.h"
#include "embedded/program/ProgramValues.h"
#include "embedded/scope/Scope.h"

#include <algorithm>
#include <utility>

namespace vantik {

namespace {

using detail::ClassDefinition;
using detail::MethodEntry;
using detail::PropertyEntry;
using detail::Scope;
using detail::ScopeEntry;

std::vector<std::string> textsOf(const std::vector<detail::TypeWord>& types) {
    std::vector<std::string> texts(types.size());
    std::transform(types.begin(), types.end(), texts.begin(), [](const detail::TypeWord& type) { return type.Text; });
    return texts;
}

MethodDescription describeMethod(const MethodEntry& method) {
    return {method.Name, textsOf(method.Inputs), textsOf(method.Outputs), method.OptionalInputs, method.Declared};
}

PropertyDescription describeProperty(const PropertyEntry& property) {
    return {property.Name, property.Type.Text, property.Info->getDescription(), property.Info->hasSetter(),
            property.Info->getAttributes()};
}

// Adds a member, or puts it in the place of the inherited one that it hides.
template <class Description>
void addOrHide(std::vector<Description>& members, Description member) {
    const auto hidden = std::find_if(members.begin(), members.end(),
                                     [&](const Description& known) { return known.Name == member.Name; });
    if (hidden == members.end()) {
        members.push_back(std::move(member));
    } else {
        *hidden = std::move(member);
    }
}

ClassDescription describeClass(const ClassDefinition& definition) {
    ClassDescription description;
    description.Name = definition.name();
    description.BaseClasses = definition.baseClasses();
    description.Members = definition.members();
    description.Abstract = definition.isAbstract();
    for (const ClassDefinition* ancestor : definition.lineage()) {
        for (const PropertyEntry& property : ancestor->properties()) {
            addOrHide(description.Properties, describeProperty(property));
        }
        for (const MethodEntry& method : ancestor->methods()) {
            if (!method.Constructor && detail::isVisibleTo(*COSGetPublicClient(), method)) {
                addOrHide(description.Methods, describeMethod(method));
            }
        }
    }
    if (const MethodEntry* constructor = definition.findConstructor()) {
        description.Methods.insert(description.Methods.begin(), describeMethod(*constructor));
    }
    return description;
}

// A hook of the program, fit to be called by the host.
std::function<void()> hook(std::function<void()> callable) {
    if (!callable) {
        return {};
    }
    return [callable = std::move(callable)] { detail::runCallable(callable); };
}

} // namespace

Host::Host() : State(detail::runForProgram([] { return std::make_shared<Scope>(); })) {}

Host::~Host() = default;

void Host::load(std::string_view module) {
    detail::runForProgram([&] {
        const ScopeEntry entry(State);
        detail::CallFrame frame;
        State->Modules.load(module);
    });
}

Object Host::create(std::string_view className, std::initializer_list<Array> arguments) {
    return create(className, std::span<const Array>(arguments.begin(), arguments.size()));
}

Object Host::create(std::string_view className, std::span<const Array> arguments) {
    return detail::runForProgram([&] {
        const ScopeEntry entry(State);
        const detail::HandleList inputs = detail::borrowedHandles(*State, arguments);
        return Object(Array::adopt(detail::createObject(State->Classes.require(className), inputs)));
    });
}

Array Host::callBuiltin(std::string_view name, std::initializer_list<Array> arguments) {
    return callBuiltin(name, std::span<const Array>(arguments.begin(), arguments.size()));
}

Array Host::callBuiltin(std::string_view name, std::span<const Array> arguments) {
    return detail::runForProgram([&] {
        const ScopeEntry entry(State);
        const detail::ModuleTable::Builtin builtin = State->Modules.findBuiltin(name);
        detail::HandleList inputs = detail::borrowedHandles(*State, arguments);
        return detail::withWarningsRaised(State->Warnings, [&] {
            detail::CallFrame frame;
            vxArray_tag* result = nullptr;
            builtin(1, &result, static_cast<int>(inputs.size()), inputs.data());
            return Array::adopt(result); // which takes it off the frame
        });
    });
}

ClassDescription Host::describe(std::string_view className) const {
    return detail::runForProgram([&] {
        const ScopeEntry entry(State);
        return describeClass(*State->Classes.require(className));
    });
}

std::vector<std::string> Host::classNames() const {
    return State->Classes.classNames();
}

void Host::onWarning(WarningHandler handler) {
    if (!handler) {
        State->Warnings.setHandler({});
        return;
    }
    State->Warnings.setHandler(
        [handler = std::move(handler)](const resource_core::BaseMsgID& id) { handler(detail::messageFor(id)); });
}

void Host::treatAsFailure(std::string_view identifier) {
    State->Warnings.treatAsFailure(identifier);
}

void Host::interrupt() noexcept {
    State->Interrupt.request();
}
void Host::clearInterrupt() noexcept {
    State->Interrupt.clear();
}
bool Host::interruptPending() const noexcept {
    return State->Interrupt.pending();
}
bool Host::wasInterrupted() const noexcept {
    return State->Interrupt.stopped();
}
void Host::interruptAfter(std::chrono::nanoseconds time) {
    State->Interrupt.requestAfter(time);
}

void Host::onInterruptCheck(std::function<bool()> asksToStop) {
    State->AsksToStop = std::move(asksToStop);
}

void Host::onImpersonation(std::function<void()> entry, std::function<void()> exit) {
    State->Impersonation.OnEntry = hook(std::move(entry));
    State->Impersonation.OnExit = hook(std::move(exit));
}

std::size_t Host::impersonationDepth() const noexcept {
    return State->Impersonation.Depth;
}

std::size_t Host::liveArrays() noexcept {
    return detail::liveArrays();
}

} // namespace vantik
