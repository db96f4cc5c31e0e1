// One object of a class: the native instances behind it, one for each class that it derives from.
#pragma once

#include "host/ClassSystem.h"

#include <cstddef>
#include <memory>
#include <string_view>
#include <vector>

namespace vantik::detail {

class ClassDefinition;
class Scope;

// Lives as long as something refers to it, and keeps its scope and its class alive as long. The count of references
// is plain: a scope and all its objects are used by one thread at a time.
class HostObject final : public vcos::COSInterface {
public:
    // A new object in the current scope, with its native instances made, base classes first. Where one of them fails,
    // those made before are destroyed again and the failure passes through; an instance that is null is a failed
    // allocation.
    static vcos::COSInterfacePtr make(std::shared_ptr<const ClassDefinition> definition);
    // Every object of this host is a HostObject.
    static HostObject& of(vcos::COSInterface& object) noexcept { return static_cast<HostObject&>(object); }

    const ClassDefinition& definition() const noexcept { return *Definition; }
    const std::shared_ptr<Scope>& scope() const noexcept { return Owner; }

    void* getInstanceData(vcos::InternedName classKey) override;

    // What a program has called so far: see program/CallOrder.h.
    struct CallState {
        bool HasUrl = false;
        bool Open = false;
        std::vector<std::string_view> SetEarly; // members that the next open clears
    } Calls;

private:
    HostObject(std::shared_ptr<Scope> scope, std::shared_ptr<const ClassDefinition> definition);
    ~HostObject() override;
    void addReference() noexcept override { ++References; }
    void release() noexcept override;

    std::size_t References = 0;
    std::shared_ptr<Scope> Owner;
    std::shared_ptr<const ClassDefinition> Definition;
    std::vector<void*> Instances; // in the order of the class's lineage
};

} // namespace vantik::detail
