#include "embedded/classes/ClassDefinition.h"

#include "embedded/classes/MethodSignature.h"
#include "embedded/messages/HostFailure.h"
#include "host/Messages.h"

#include <algorithm>
#include <utility>

namespace vantik::detail {

namespace {

std::string_view textOf(vcos::InternedName name) noexcept {
    return name ? std::string_view(*name) : std::string_view();
}

template <class Entry>
bool isTaken(const std::vector<Entry>& entries, std::string_view name) {
    return std::any_of(entries.begin(), entries.end(), [name](const Entry& entry) { return entry.Name == name; });
}

std::vector<TypeWord> parseAll(const std::vector<vcos::InternedName>& words, auto parse) {
    std::vector<TypeWord> types;
    types.reserve(words.size());
    for (const vcos::InternedName word : words) {
        types.push_back(parse(word));
    }
    return types;
}

} // namespace

ClassDefinition::ClassDefinition(const KnownClasses& known, std::string fullName,
                                 std::unique_ptr<vcos::COSClassInfo> description)
    : Known(known), FullName(std::move(fullName)), Description(std::move(description)), Lineage{this} {}

// Members and methods may still use the description.
ClassDefinition::~ClassDefinition() {
    Methods.clear();
    Properties.clear();
}

void ClassDefinition::addBaseClass(std::string_view fullName) {
    std::shared_ptr<const ClassDefinition> base = Known.require(fullName);
    // A class that is being replaced must not derive from its former self: an object would hold two instances of one
    // name.
    if (base->isA(FullName)) {
        raiseHostFailure("VANTIK:vcos", "CircularBaseClass", {FullName, base->name()});
    }
    for (const ClassDefinition* ancestor : base->Lineage) {
        if (!isA(ancestor->FullName)) {
            Lineage.insert(Lineage.end() - 1, ancestor);
        }
    }
    Bases.push_back(std::move(base));
}

std::string_view ClassDefinition::shortName() const noexcept {
    const std::size_t dot = FullName.rfind('.');
    return std::string_view(FullName).substr(dot == std::string::npos ? 0 : dot + 1);
}

std::vector<std::string> ClassDefinition::baseClasses() const {
    std::vector<std::string> names;
    for (const auto& base : Bases) {
        names.push_back(base->name());
    }
    return names;
}

bool ClassDefinition::isA(std::string_view fullName) const noexcept {
    return std::any_of(Lineage.begin(), Lineage.end(),
                       [fullName](const ClassDefinition* ancestor) { return ancestor->FullName == fullName; });
}

bool ClassDefinition::isAbstract() const {
    return Description->isAbstract() || Description->classIsAbstract();
}

const PropertyEntry* ClassDefinition::findProperty(std::string_view name) const noexcept {
    for (auto owner = Lineage.rbegin(); owner != Lineage.rend(); ++owner) {
        for (const PropertyEntry& entry : (*owner)->Properties) {
            if (entry.Name == name) {
                return &entry;
            }
        }
    }
    return nullptr;
}

const MethodEntry* ClassDefinition::findMethod(std::string_view name) const noexcept {
    for (auto owner = Lineage.rbegin(); owner != Lineage.rend(); ++owner) {
        for (const MethodEntry& entry : (*owner)->Methods) {
            if (!entry.Constructor && entry.Name == name) {
                return &entry;
            }
        }
    }
    return nullptr;
}

const MethodEntry* ClassDefinition::findConstructor() const noexcept {
    for (auto owner = Lineage.rbegin(); owner != Lineage.rend(); ++owner) {
        for (const MethodEntry& entry : (*owner)->Methods) {
            if (entry.Constructor) {
                return &entry;
            }
        }
    }
    return nullptr;
}

// A class is complete as soon as it is registered, so there is nothing left to load.
void ClassDefinition::load(bool) {}

vcos::InternedName ClassDefinition::getFullName() const {
    return vcos::internal::makeInterned(std::string(FullName));
}

TypeWord ClassDefinition::parseType(std::string_view member, vcos::InternedName word) const {
    std::optional<TypeWord> type = TypeWord::parse(textOf(word));
    if (!type) {
        raiseHostFailure("VANTIK:vcos", "UnknownType", {FullName, std::string(member), std::string(textOf(word))});
    }
    return std::move(*type);
}

vcos::COSDataTypePtr ClassDefinition::validatePropertyType(vcos::InternedName name, vcos::InternedName typeWord) {
    if (!isIdentifier(textOf(name))) {
        raiseHostFailure("VANTIK:vcos", "InvalidName", {std::string(textOf(name))});
    }
    TypeWord type = parseType(textOf(name), typeWord);
    // A method's types are looked at with each call; a property's type must be there from the start.
    if (type.Content == TypeWord::Kind::Object && !type.ClassName.empty() && type.ClassName != FullName &&
        !Known.find(type.ClassName)) {
        raiseHostFailure("VANTIK:vcos", "UnknownType", {FullName, std::string(textOf(name)), type.Text});
    }
    return std::make_shared<const vcos::COSDataType>(std::move(type));
}

void ClassDefinition::addProperty(vcos::COSPropT* property) {
    if (!property) {
        throw foundation::core::except::bad_alloc();
    }
    PropertyEntry entry;
    entry.Info.reset(property);
    entry.Name = textOf(property->getName());
    if (isTaken(Properties, entry.Name)) {
        raiseHostFailure("VANTIK:vcos", "MemberExists", {FullName, entry.Name});
    }
    const vcos::COSDataTypePtr type = property->getDataType();
    if (!type) {
        raiseHostFailure("VANTIK:vcos", "UnknownType", {FullName, entry.Name, std::string()});
    }
    entry.Type = type->Word;
    Properties.push_back(std::move(entry));
}

void ClassDefinition::addMethod(vcos::COSMethodInfo* method) {
    if (!method) {
        throw foundation::core::except::bad_alloc();
    }
    MethodEntry entry;
    entry.Info.reset(method);
    entry.Name = method->getName();
    if (!isIdentifier(entry.Name)) {
        raiseHostFailure("VANTIK:vcos", "InvalidName", {entry.Name});
    }
    if (isTaken(Methods, entry.Name)) {
        raiseHostFailure("VANTIK:vcos", "MemberExists", {FullName, entry.Name});
    }
    entry.Constructor = entry.Name == shortName();
    if (const vcos::COSMethodSignature* declared = method->getMethodSignature()) {
        const MethodSignature& signature = MethodSignature::of(*declared);
        const auto parse = [&](vcos::InternedName word) { return parseType(entry.Name, word); };
        entry.Declared = true;
        entry.Inputs = parseAll(signature.Inputs, parse);
        entry.Outputs = parseAll(signature.Outputs, parse);
        if (!entry.Constructor && entry.Inputs.empty()) {
            entry.Inputs.push_back(*TypeWord::parse("scalar")); // the object is there, declared or not
        }
        const std::size_t objects = entry.Constructor ? 0 : 1;
        const int most = static_cast<int>(entry.Inputs.size() - objects);
        entry.OptionalInputs = std::clamp(signature.OptionalInputs, 0, most);
    }
    Methods.push_back(std::move(entry));
}

} // namespace vantik::detail
