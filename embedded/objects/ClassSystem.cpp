#include "host/ClassSystem.h"

#include "embedded/classes/ClassDefinition.h"
#include "embedded/messages/HostFailure.h"
#include "embedded/objects/HostObject.h"
#include "embedded/objects/ObjectCalls.h"
#include "embedded/objects/SlotValue.h"
#include "embedded/scope/Scope.h"

#include <algorithm>
#include <memory>
#include <utility>

using vantik::detail::Scope;

namespace vcos {

namespace internal {

InternedName makeInterned(std::string&& text) {
    return Scope::current().Names.intern(std::move(text));
}

} // namespace internal

COSClass* COSClass::getClass(InternedName fullName) {
    return fullName ? Scope::current().Classes.find(*fullName).get() : nullptr;
}

COSPackage* COSPackage::getNamespace(InternedName fullName) {
    return fullName ? Scope::current().Classes.findPackage(*fullName) : nullptr;
}

void COSPackage::addNamespace(COSNamespaceInfo* description) {
    Scope::current().Classes.addPackage({}, std::unique_ptr<COSNamespaceInfo>(description));
}

COSInterfacePtr::COSInterfacePtr() noexcept : Object(nullptr) {}
COSInterfacePtr::COSInterfacePtr(COSInterface* object) noexcept : Object(object) {
    if (Object) {
        Object->addReference();
    }
}
COSInterfacePtr::COSInterfacePtr(const COSInterfacePtr& other) noexcept : COSInterfacePtr(other.Object) {}
COSInterfacePtr::COSInterfacePtr(COSInterfacePtr&& other) noexcept : Object(std::exchange(other.Object, nullptr)) {}
COSInterfacePtr& COSInterfacePtr::operator=(COSInterfacePtr other) noexcept {
    std::swap(Object, other.Object);
    return *this;
}
COSInterfacePtr::~COSInterfacePtr() {
    if (Object) {
        Object->release();
    }
}

void* vcosGetScalarObjectValue(InternedName classKey, const COSValue& value) {
    const COSInterfacePtr object = vantik::detail::scalarObject(vantik::detail::arrayIn(value));
    void* const instance = object ? object->getInstanceData(classKey) : nullptr;
    if (!instance) {
        // A handler would use it unseen.
        vantik::detail::raiseHostFailure("VANTIK:vcos", "NotAnObjectOf", {classKey ? *classKey : std::string()});
    }
    return instance;
}

} // namespace vcos

bool omGetVcosUsingUSM() {
    return Scope::current().RegistersPerScope;
}

vcos::COSClient* getSystemClient() {
    static vcos::COSClient system(true);
    return &system;
}

vcos::COSClient* COSGetPublicClient() {
    static vcos::COSClient everyone(false);
    return &everyone;
}

bool omCallMethod(vcos::InternedName className, vcos::InternedName methodName, vcos::COSClient* client, int resultCount,
                  vxArray_tag** results, int argumentCount, vxArray_tag** arguments, bool onlyStatic) {
    if (!className || !methodName || !client || argumentCount < 1) {
        return false;
    }
    const vcos::COSInterfacePtr reference = vantik::detail::scalarObject(arguments[0]);
    if (!reference) {
        return false;
    }
    auto& object = vantik::detail::HostObject::of(*reference.get());
    if (!object.definition().isA(*className)) {
        return false;
    }
    const vantik::detail::MethodEntry* method = vantik::detail::findMethod(object, *methodName, *client);
    if (!method || (onlyStatic && !method->Info->isStatic())) {
        return false;
    }
    auto delivered =
        vantik::detail::runMethod(object, *method, resultCount, {arguments, static_cast<std::size_t>(argumentCount)});
    delivered.resize(
        static_cast<std::size_t>(std::max(resultCount, 0))); // one returned unasked is dropped, a missing one is null
    for (std::size_t index = 0; index < delivered.size(); ++index) {
        results[index] = delivered[index].release();
    }
    return true;
}

vcos::COSInterfacePtr omGetArrayElement(const vxArray_tag* array, std::size_t index) {
    const auto& elements = vantik::detail::objectElements(array);
    return index < elements.size() ? elements[index] : vcos::COSInterfacePtr();
}
