#include "hostclass/ClassRegistration.h"

#include "errors/InternalError.h"
#include "errors/MessageIdentifiers.h"
#include "host/ArrayApi.h"
#include "hostclass/HTTPConnectionAdapter.h"
#include "hostclass/MemberTemplates.h"
#include "hostclass/MethodTable.h"
#include "hostclass/PropertyTable.h"

#include <new>

namespace netrove {

namespace {

constexpr const char* kShortName = "HTTPConnectionAdapter";
constexpr const char* kFullName = "vantik.internal.webservices.HTTPConnectionAdapter";

vcos::InternedName interned(std::string text) {
    return vcos::internal::makeInterned(std::move(text));
}

// A property that holds a host object: the object's class must exist and be usable before the property refers to it.
void addObjectPropertyEntry(vcos::COSClass& definition, const PropertyRow& row) {
    const char* objectClass = row.Description;
    vcos::COSClass* found = vcos::COSClass::getClass(interned(objectClass));
    if (found == nullptr) {
        VANTIK::raise<VANTIK::legacy_two_part::undefinedVarOrClass>(objectClass);
    }
    found->load(true);
    addPropertyEntry(definition, row);
}

} // namespace

std::string HTTPConnectionAdapterClassInfo::getName() const {
    return kShortName;
}

void HTTPConnectionAdapterClassInfo::defineClass(vcos::COSClass& definition) {
    for (const PropertyRow& row : valueProperties()) {
        addPropertyEntry(definition, row);
    }
    for (const PropertyRow& row : objectProperties()) {
        addObjectPropertyEntry(definition, row);
    }
    definition.addMethod(new HTTPConnectionAdapterConstructorInfo(definition.getFullName()));
    for (const MethodRow& row : methodTable()) {
        addMethodEntry(definition, row);
    }
}

void* HTTPConnectionAdapterClassInfo::createInstance() {
    return new (std::nothrow) HTTPConnectionAdapter;
}

void HTTPConnectionAdapterClassInfo::destroyInstance(void* instance) {
    delete static_cast<HTTPConnectionAdapter*>(instance);
}

HTTPConnectionAdapterConstructorInfo::HTTPConnectionAdapterConstructorInfo(vcos::InternedName key)
    : Signature(vcos::COSMethodSignature::createMethodSignature()), ClassKey(key) {
    Signature->addInputType(interned("logical scalar"));
    Signature->setOptionalInputCount(1);
    Signature->addOutputType(interned(kFullName));
}

std::string HTTPConnectionAdapterConstructorInfo::getName() const {
    return kShortName;
}

void HTTPConnectionAdapterConstructorInfo::invoke(int&, vcos::COSValue* results, int inputCount,
                                                  const vcos::COSValue* inputs) {
    const bool httpOptionsMode = inputCount > 0 && ValueSlot<bool>::read(inputs[0]);
    const vcos::COSInterfacePtr object = omGetArrayElement(ValueSlot<vxArray_tag*>::read(results[0]), 0);
    void* instance = object ? object->getInstanceData(ClassKey) : nullptr;
    requireInstance<HTTPConnectionAdapter*>(instance)->Connection.Settings.HTTPOptionsMode = httpOptionsMode;
}

vcos::COSPackage* getWebservicesPackage() {
    const vcos::InternedName rootName = interned("vantik");
    vcos::COSPackage* root = vcos::COSPackage::getNamespace(rootName);
    if (root == nullptr) {
        vcos::COSPackage::addNamespace(new NetroveNamespace("vantik"));
        root = vcos::COSPackage::getNamespace(rootName);
    }
    return getChildPackage(getChildPackage(root, "internal"), "webservices");
}

vcos::COSPackage* getChildPackage(vcos::COSPackage* parent, const std::string& name) {
    if (parent == nullptr) {
        return nullptr;
    }
    const vcos::InternedName fullName = interned(parent->getFullName() + "." + name);
    vcos::COSPackage* child = vcos::COSPackage::getNamespace(fullName);
    if (child == nullptr) {
        parent->addInnerNamespace(new NetroveNamespace(name)); // the short name: the parent adds its own
        child = vcos::COSPackage::getNamespace(fullName);
    }
    return child;
}

void registerAdapterClass() {
    vcos::COSPackage* package = getWebservicesPackage();
    if (package == nullptr) {
        throwInternalError("Package vantik.internal.webservices not found");
    }
    // Null if there is no memory: the class system reports that.
    package->addClass(new HTTPConnectionAdapterClassInfo, 0, 2);
}

} // namespace netrove
