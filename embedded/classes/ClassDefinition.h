// One class of a scope: what its description added to it, and what it inherits.
#pragma once

#include "embedded/classes/TypeWord.h"
#include "host/ClassSystem.h"

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace vantik::detail {

class ClassDefinition;

// What a definition may name: the classes of its scope.
class KnownClasses {
public:
    // The class that currently has this full name; null where there is none.
    virtual std::shared_ptr<ClassDefinition> find(std::string_view fullName) const = 0;
    // The same, and a failure that names the nearest known class where there is none.
    virtual std::shared_ptr<ClassDefinition> require(std::string_view fullName) const = 0;

protected:
    ~KnownClasses() = default;
};

// A method with what its signature declares.
struct MethodEntry {
    std::unique_ptr<vcos::COSMethodInfo> Info;
    std::string Name;
    bool Declared = false; // false: no signature, nothing below counts
    bool Constructor = false;
    std::vector<TypeWord> Inputs; // the object first, except for a constructor
    std::vector<TypeWord> Outputs;
    int OptionalInputs = 0; // at the end
};

// Releases a property through its own class: its block came from `calloc`.
struct PropertyEntry {
    std::unique_ptr<vcos::COSPropT> Info;
    std::string Name;
    TypeWord Type;
};

// Complete once `defineClass` has run; never changed afterwards, so objects share it with the registry.
class ClassDefinition final : public vcos::COSClass {
public:
    ClassDefinition(const KnownClasses& known, std::string fullName, std::unique_ptr<vcos::COSClassInfo> description);
    ~ClassDefinition() override;

    // From `defineClass` of a description that knows this host: a base class, which must be there, and the members of
    // an enumeration. A class may have several base classes; the first one counts first.
    void addBaseClass(std::string_view fullName);
    void addMember(std::string name) { Members.push_back(std::move(name)); }

    const std::string& name() const noexcept { return FullName; }
    std::string_view shortName() const noexcept;
    vcos::COSClassInfo& description() const noexcept { return *Description; }
    const std::vector<std::string>& members() const noexcept { return Members; }
    std::vector<std::string> baseClasses() const; // direct ones, in order of declaration

    // This class and all it derives from, each once, base classes first.
    const std::vector<const ClassDefinition*>& lineage() const noexcept { return Lineage; }
    bool isA(std::string_view fullName) const noexcept;
    bool isAbstract() const;

    // Own ones, in order of definition.
    const std::vector<PropertyEntry>& properties() const noexcept { return Properties; }
    const std::vector<MethodEntry>& methods() const noexcept { return Methods; }

    // The nearest one in the lineage; null where there is none. A constructor is not a method.
    const PropertyEntry* findProperty(std::string_view name) const noexcept;
    const MethodEntry* findMethod(std::string_view name) const noexcept;
    const MethodEntry* findConstructor() const noexcept;

    void load(bool fully) override;
    vcos::InternedName getFullName() const override;
    vcos::COSDataTypePtr validatePropertyType(vcos::InternedName name, vcos::InternedName typeWord) override;
    void addProperty(vcos::COSPropT* property) override;
    void addMethod(vcos::COSMethodInfo* method) override;

private:
    TypeWord parseType(std::string_view member, vcos::InternedName word) const;

    const KnownClasses& Known; // used only while the class is being defined
    std::string FullName;
    std::unique_ptr<vcos::COSClassInfo> Description;
    std::vector<std::shared_ptr<const ClassDefinition>> Bases;
    std::vector<const ClassDefinition*> Lineage;
    std::vector<std::string> Members;
    std::vector<PropertyEntry> Properties;
    std::vector<MethodEntry> Methods;
};

} // namespace vantik::detail
