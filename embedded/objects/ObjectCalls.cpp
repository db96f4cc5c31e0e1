#include "embedded/objects/ObjectCalls.h"

#include "embedded/arrays/CallFrame.h"
#include "embedded/classes/ClassDefinition.h"
#include "embedded/messages/HostFailure.h"
#include "embedded/objects/SlotValue.h"
#include "embedded/text/NearestName.h"

#include <boost/container/small_vector.hpp>

#include <algorithm>
#include <array>
#include <cstdint>
#include <list>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace vantik::detail {

namespace vx = matrix::detail::noninlined::vx_array_api;

namespace {

constexpr std::string_view kInternalSuffix = "Internal";

// Most calls have so few, and then need no memory of the heap for them.
using SlotList = boost::container::small_vector<vcos::COSValue, 4>;

// The inputs of one call as slots, checked against what the method declares.
class InputSlots {
public:
    // `first` is the number of inputs that are not counted in failures: the object of a method.
    InputSlots(const ClassDefinition& definition, const MethodEntry& method, std::span<vxArray_tag* const> inputs,
               std::size_t first) {
        Slots.reserve(inputs.size());
        if (!method.Declared) {
            for (vxArray_tag* input : inputs) {
                Slots.push_back(slotOf(input));
            }
            return;
        }
        checkCount(definition, method, inputs.size(), first);
        // The method was found through the object's own class, so the object fits.
        for (std::size_t index = 0; index < first; ++index) {
            Slots.push_back(slotOf(inputs[index]));
        }
        for (std::size_t index = first; index < inputs.size(); ++index) {
            const std::size_t number = index - first;
            const SlotPlace place{definition.name(), method.Name, SlotPlace::Role::Input, static_cast<int>(number) + 1};
            SlotValue& value = number < First.size() ? First[number].emplace(method.Inputs[index], inputs[index], place)
                                                     : Rest.emplace_back(method.Inputs[index], inputs[index], place);
            Slots.push_back(value.slot());
        }
    }

    int count() const noexcept { return static_cast<int>(Slots.size()); }
    const vcos::COSValue* data() const noexcept { return Slots.data(); }

private:
    static void checkCount(const ClassDefinition& definition, const MethodEntry& method, std::size_t given,
                           std::size_t first) {
        const std::size_t most = method.Inputs.size();
        const std::size_t least = most - static_cast<std::size_t>(method.OptionalInputs);
        if (given >= least && given <= most) {
            return;
        }
        const bool tooMany = given > most;
        const auto counted = [first](std::size_t count) { return static_cast<std::int64_t>(count - first); };
        raiseHostFailure("VANTIK:vcos", tooMany ? "TooManyInputs" : "NotEnoughInputs",
                         {definition.name(), method.Name, counted(tooMany ? most : least), counted(given)});
    }

    // A slot may point into its value, so none of them moves.
    std::array<std::optional<SlotValue>, 2> First;
    std::list<SlotValue> Rest;
    SlotList Slots;
};

// Tells the description that the host has finished with what a getter returned: exactly once, in every case.
class PropertyRead {
public:
    PropertyRead(vcos::COSPropInfo& property, vcos::COSInterface& object) : Property(property), Object(object) {
        Property.getPropertyValue(Object, Value);
    }
    ~PropertyRead() {
        try {
            Property.releasePropertyValue(Object, Value);
        } catch (...) {
            // The caller has its copy; a releaser that fails leaves at most its array to the call frame.
        }
    }
    PropertyRead(const PropertyRead&) = delete;
    PropertyRead& operator=(const PropertyRead&) = delete;

    const vcos::COSValue& value() const noexcept { return Value; }

private:
    vcos::COSPropInfo& Property;
    vcos::COSInterface& Object;
    vcos::COSValue Value;
};

const PropertyEntry& requireProperty(const HostObject& object, std::string_view name) {
    const ClassDefinition& definition = object.definition();
    const PropertyEntry* property = definition.findProperty(name);
    if (!property) {
        std::vector<std::string> names;
        for (const ClassDefinition* ancestor : definition.lineage()) {
            for (const PropertyEntry& known : ancestor->properties()) {
                names.push_back(known.Name);
            }
        }
        raiseHostFailure("VANTIK:vcos", "UnknownProperty",
                         withHint({definition.name(), std::string(name)}, nearestName(name, names)));
    }
    return *property;
}

void requireAccess(const HostObject& object, const PropertyEntry& property, vcos::MemberAccess access) {
    if (access != vcos::MemberAccess::Public) {
        raiseHostFailure("VANTIK:vcos", "NoAccess", {object.definition().name(), property.Name});
    }
}

} // namespace

vcos::COSInterfacePtr scalarObject(const vxArray_tag* array) {
    const std::vector<vcos::COSInterfacePtr>& elements = objectElements(array);
    return elements.size() == 1 ? elements.front() : vcos::COSInterfacePtr();
}

vxArray_tag* createObject(std::shared_ptr<const ClassDefinition> definition, std::span<vxArray_tag* const> inputs) {
    const std::shared_ptr<const ClassDefinition> kept = definition;
    if (kept->isAbstract()) {
        raiseHostFailure("VANTIK:vcos", "AbstractClass", {kept->name()});
    }
    if (!kept->description().isConstructible() || kept->description().isEnumeration()) {
        raiseHostFailure("VANTIK:vcos", "NotConstructible", {kept->name()});
    }
    CallFrame frame;
    const MethodEntry* constructor = kept->findConstructor();
    if (!constructor && !inputs.empty()) {
        raiseHostFailure(
            "VANTIK:vcos", "TooManyInputs",
            {kept->name(), std::string(kept->shortName()), std::int64_t{0}, static_cast<std::int64_t>(inputs.size())});
    }
    const InputSlots slots =
        constructor ? InputSlots(*kept, *constructor, inputs, 0) : InputSlots(*kept, MethodEntry(), {}, 0);
    ArrayOwner array(makeObjectArray(kept->name(), {HostObject::make(std::move(definition))}));
    if (constructor) {
        // Room for whatever the constructor declares in addition to the object itself.
        SlotList results(std::max<std::size_t>(constructor->Outputs.size(), 1));
        results.front() = slotOf(array.get());
        int resultCount = 1;
        constructor->Info->invoke(resultCount, results.data(), slots.count(), slots.data());
    }
    frame.handOut(array.get());
    return array.release();
}

vxArray_tag* getProperty(HostObject& object, std::string_view property) {
    const PropertyEntry& entry = requireProperty(object, property);
    requireAccess(object, entry, entry.Info->getGetAccess());
    CallFrame frame;
    const vcos::COSInterfacePtr kept(&object);
    const PropertyRead read(*entry.Info, object);
    vxArray_tag* result = arrayFromSlot(entry.Type, read.value());
    if (!entry.Type.liesInSlot() && entry.Type.Content != TypeWord::Kind::UnicodeString) {
        // The getter's array may go with the releaser or with the frame, or stay with the object: the caller gets a
        // handle of its own.
        result = result ? vx::vxCreateSharedDataCopy(result) : vx::vxCreateEmptyUnknownArrayNotOnArrayList();
    }
    frame.handOut(result);
    return result;
}

void setProperty(HostObject& object, std::string_view property, vxArray_tag* value) {
    const PropertyEntry& entry = requireProperty(object, property);
    requireAccess(object, entry, entry.Info->getSetAccess());
    if (!entry.Info->hasSetter()) {
        raiseHostFailure("VANTIK:vcos", "ReadOnlyProperty", {object.definition().name(), entry.Name});
    }
    CallFrame frame;
    const vcos::COSInterfacePtr kept(&object);
    const SlotValue slot(entry.Type, value, {object.definition().name(), entry.Name, SlotPlace::Role::Property, 0});
    entry.Info->setPropertyValue(object, slot.slot());
}

bool isVisibleTo(const vcos::COSClient& client, const MethodEntry& method) {
    return client.SeesAll || (!std::string_view(method.Name).ends_with(kInternalSuffix) && method.Info->isVisible() &&
                              method.Info->getMemberAccess() == vcos::MemberAccess::Public);
}

const MethodEntry* findMethod(const HostObject& object, std::string_view method, const vcos::COSClient& client) {
    const MethodEntry* found = object.definition().findMethod(method);
    return found && isVisibleTo(client, *found) && !found->Info->isAbstract() ? found : nullptr;
}

const MethodEntry& requireMethod(const HostObject& object, std::string_view method, const vcos::COSClient& client) {
    const MethodEntry* found = findMethod(object, method, client);
    if (!found) {
        std::vector<std::string> names;
        for (const ClassDefinition* ancestor : object.definition().lineage()) {
            for (const MethodEntry& known : ancestor->methods()) {
                if (!known.Constructor && isVisibleTo(client, known)) {
                    names.push_back(known.Name);
                }
            }
        }
        raiseHostFailure("VANTIK:vcos", "UnknownMethod",
                         withHint({object.definition().name(), std::string(method)}, nearestName(method, names)));
    }
    return *found;
}

ResultList runMethod(HostObject& object, const MethodEntry& method, int resultsWanted,
                     std::span<vxArray_tag* const> arguments) {
    CallFrame frame;
    const vcos::COSInterfacePtr kept(&object);
    const InputSlots inputs(object.definition(), method, arguments, 1);

    // A method without declared results may return any number of them; one with results has room for all of its own,
    // and may always return one.
    const int declared = method.Declared ? static_cast<int>(method.Outputs.size()) : std::max(resultsWanted, 0);
    const int wanted = std::clamp(resultsWanted, 0, declared);
    SlotList slots(static_cast<std::size_t>(std::max(declared, 1)));
    ResultList results(slots.size()); // made now: once there are handles, nothing may fail before them
    int delivered = wanted;
    method.Info->invoke(delivered, slots.data(), inputs.count(), inputs.data());
    delivered = std::clamp(delivered, 0, static_cast<int>(slots.size()));

    // Every handle has an owner before anything below can fail.
    static const TypeWord any;
    const auto typeOf = [&](std::size_t index) -> const TypeWord& {
        return index < method.Outputs.size() ? method.Outputs[index] : any;
    };
    const auto isHandle = [&](std::size_t index) {
        return !typeOf(index).liesInSlot() && typeOf(index).Content != TypeWord::Kind::UnicodeString;
    };
    for (std::size_t index = 0; index < slots.size(); ++index) {
        if (isHandle(index)) {
            results[index].reset(arrayIn(slots[index]));
        }
    }
    results.resize(static_cast<std::size_t>(delivered)); // a handle beyond the count is released here
    for (std::size_t index = 0; index < results.size(); ++index) {
        if (!isHandle(index)) {
            results[index].reset(arrayFromSlot(typeOf(index), slots[index]));
        }
        frame.handOut(results[index].get());
    }
    return results;
}

} // namespace vantik::detail
