// Makes the class visible to the host's class system: its packages, its description and its constructor.
#pragma once

#include "host/ClassSystem.h"

#include <memory>
#include <string>
#include <utility>

namespace netrove {

// A package that we create if the host does not have it yet.
class NetroveNamespace final : public vcos::COSNamespaceInfo {
public:
    explicit NetroveNamespace(std::string name) : Name(std::move(name)) {}
    ~NetroveNamespace() override = default;
    std::string getName() const override { return Name; }
    void unloadDynamicContent() override {}

private:
    std::string Name; // short name
};

// Describes the class and makes its native instances.
class HTTPConnectionAdapterClassInfo final : public vcos::COSClassInfo {
public:
    HTTPConnectionAdapterClassInfo() = default;
    ~HTTPConnectionAdapterClassInfo() override = default;
    std::string getName() const override;
    // Raises VANTIK:legacy_two_part:undefinedVarOrClass if the host lacks a class that a property holds; the class is
    // then defined up to the last property added.
    void defineClass(vcos::COSClass& definition) override;
    void* createInstance() override;
    void destroyInstance(void* instance) override;
    bool isConstructible() const override { return true; }
    bool isHandle() const override { return true; }
    bool isTransient() const override { return true; }
};

// The constructor: one optional input, which says whether the object serves the HTTP interface or the older web-options
// interface.
class HTTPConnectionAdapterConstructorInfo final : public vcos::COSMethodInfo {
public:
    explicit HTTPConnectionAdapterConstructorInfo(vcos::InternedName classKey);
    ~HTTPConnectionAdapterConstructorInfo() override = default;
    std::string getName() const override;
    const vcos::COSMethodSignature* getMethodSignature() const override { return Signature.get(); }
    void invoke(int& resultCount, vcos::COSValue* results, int inputCount, const vcos::COSValue* inputs) override;

private:
    std::unique_ptr<vcos::COSMethodSignature> Signature;
    vcos::InternedName ClassKey; // full class name
};

// The package vantik.internal.webservices of the current scope; each package on the way is created if it is missing.
vcos::COSPackage* getWebservicesPackage();
// A child of `parent` by its short name, created if it is missing. Null for a null parent.
vcos::COSPackage* getChildPackage(vcos::COSPackage* parent, const std::string& name);

// Adds the class to the current scope.
void registerAdapterClass();

} // namespace netrove
