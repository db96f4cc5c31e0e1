#include "embedded/objects/HostObject.h"

#include "embedded/classes/ClassDefinition.h"
#include "embedded/scope/Scope.h"
#include "host/Messages.h"

#include <utility>

namespace vantik::detail {

vcos::COSInterfacePtr HostObject::make(std::shared_ptr<const ClassDefinition> definition) {
    auto* const object = new HostObject(Scope::current().shared_from_this(), std::move(definition));
    vcos::COSInterfacePtr reference(object);
    const auto& lineage = object->Definition->lineage();
    object->Instances.reserve(lineage.size());
    for (const ClassDefinition* ancestor : lineage) {
        void* const instance = ancestor->description().createInstance();
        if (!instance) {
            throw foundation::core::except::bad_alloc();
        }
        object->Instances.push_back(instance);
    }
    return reference;
}

HostObject::HostObject(std::shared_ptr<Scope> scope, std::shared_ptr<const ClassDefinition> definition)
    : Owner(std::move(scope)), Definition(std::move(definition)) {}

HostObject::~HostObject() {
    // Derived classes first, like destructors.
    while (!Instances.empty()) {
        void* const instance = Instances.back();
        const std::size_t place = Instances.size() - 1;
        Instances.pop_back();
        try {
            Definition->lineage()[place]->description().destroyInstance(instance);
        } catch (...) {
            // The last reference may go in a destructor or while another failure unwinds: nobody could be told.
        }
    }
}

void* HostObject::getInstanceData(vcos::InternedName classKey) {
    if (!classKey) {
        return nullptr;
    }
    const auto& lineage = Definition->lineage();
    for (std::size_t place = 0; place < Instances.size(); ++place) {
        if (lineage[place]->name() == *classKey) {
            return Instances[place];
        }
    }
    return nullptr;
}

void HostObject::release() noexcept {
    if (--References != 0) {
        return;
    }
    // The scope may go with its last object, but only after it.
    const ScopeEntry entry(Owner);
    delete this;
}

} // namespace vantik::detail
