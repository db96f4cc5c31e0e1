// One package of a scope.
#pragma once

#include "host/ClassSystem.h"

#include <memory>
#include <string>

namespace vantik::detail {

class ClassRegistry;

class Package final : public vcos::COSPackage {
public:
    Package(ClassRegistry& registry, std::string fullName, std::unique_ptr<vcos::COSNamespaceInfo> description);
    ~Package() override;

    vcos::COSNamespaceInfo& description() const noexcept { return *Description; }

    void addInnerNamespace(vcos::COSNamespaceInfo* description) override;
    void addClass(vcos::COSClassInfo* description, int access, int kind) override;
    std::string getFullName() const override;

private:
    ClassRegistry& Registry; // owns this package
    std::string FullName;
    std::unique_ptr<vcos::COSNamespaceInfo> Description;
};

} // namespace vantik::detail
