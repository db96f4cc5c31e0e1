// The packages and classes of one scope.
//
// Where the rest of the class system is:
//   ClassDefinition    one class: its properties, methods and base classes
//   HostObject         one object: its native instances and its references
//   ObjectCalls        making an object, reading and writing properties, calling methods
//   SlotValue          values on their way into and out of a value slot, checked and converted by type word
//   TypeWord           what a type word says
//   ClassSystem.cpp    the functions of host/ClassSystem.h, on top of these
//   ClassDefaults.cpp  what the bases of the information classes answer by themselves
#pragma once

#include "embedded/classes/ClassDefinition.h"
#include "host/ClassSystem.h"

#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace vantik::detail {

class Package;

class ClassRegistry final : public KnownClasses {
public:
    ClassRegistry();
    ~ClassRegistry();
    ClassRegistry(const ClassRegistry&) = delete;
    ClassRegistry& operator=(const ClassRegistry&) = delete;

    // Null where there is no such package.
    vcos::COSPackage* findPackage(std::string_view fullName) const noexcept;
    // Adds a package to another one, or a root package where `parent` is empty. A name that is taken, or is not
    // an identifier, raises; a null description is a failed allocation and raises too.
    void addPackage(std::string_view parent, std::unique_ptr<vcos::COSNamespaceInfo> description);
    // The package of that full name; it and its parents are added where they are missing.
    void ensurePackage(std::string_view fullName);

    std::shared_ptr<ClassDefinition> find(std::string_view fullName) const override;
    std::shared_ptr<ClassDefinition> require(std::string_view fullName) const override;

    // Adds a class to a package that is there, and has its description define it. A class of the same name is replaced:
    // objects made before keep the old description alive. Where `defineClass` raises, everything is as it was before,
    // and what it raised passes through.
    std::shared_ptr<ClassDefinition> define(std::string_view package, std::unique_ptr<vcos::COSClassInfo> description);

    // Forgets a class, for new objects and as a type. For tests of a host that lacks it. False where there was none.
    VANTIK_HOST_API bool removeClass(std::string_view fullName);

    // True for a class and itself, even where it is unknown, and for a class and each of its base classes.
    bool derivesFrom(std::string_view className, std::string_view base) const;

    // Full names in order of definition; a hidden class is left out.
    std::vector<std::string> classNames() const;

    // The members of an enumeration; null where no enumeration has that name.
    const std::vector<std::string>* enumerationMembers(std::string_view className) const;

private:
    std::map<std::string, std::unique_ptr<Package>, std::less<>> Packages;
    std::vector<std::shared_ptr<ClassDefinition>> Classes; // in order of definition
};

} // namespace vantik::detail
