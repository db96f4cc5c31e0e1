#include "embedded/classes/ClassRegistry.h"

#include "embedded/classes/Package.h"
#include "embedded/messages/HostFailure.h"
#include "embedded/text/NearestName.h"
#include "host/Messages.h"

#include <algorithm>
#include <utility>

namespace vantik::detail {

namespace {

// A package that exists because a class or another package in it does.
class ImpliedNamespace final : public vcos::COSNamespaceInfo {
public:
    explicit ImpliedNamespace(std::string_view name) : Name(name) {}
    std::string getName() const override { return Name; }

private:
    std::string Name;
};

std::string joined(std::string_view parent, std::string_view name) {
    std::string full(parent);
    if (!full.empty()) {
        full += '.';
    }
    full += name;
    return full;
}

} // namespace

Package::Package(ClassRegistry& registry, std::string fullName, std::unique_ptr<vcos::COSNamespaceInfo> description)
    : Registry(registry), FullName(std::move(fullName)), Description(std::move(description)) {}

Package::~Package() {
    Description->unloadDynamicContent();
}

void Package::addInnerNamespace(vcos::COSNamespaceInfo* description) {
    Registry.addPackage(FullName, std::unique_ptr<vcos::COSNamespaceInfo>(description));
}

// Access and kind are passed through a module's registration unread: this host has public classes of one kind.
void Package::addClass(vcos::COSClassInfo* description, int, int) {
    Registry.define(FullName, std::unique_ptr<vcos::COSClassInfo>(description));
}

std::string Package::getFullName() const {
    return FullName;
}

ClassRegistry::ClassRegistry() = default; // here, where a package is known

// Classes go newest first, since a class may still look at what was there before it; then the packages, inner ones
// first.
ClassRegistry::~ClassRegistry() {
    while (!Classes.empty()) {
        const std::shared_ptr<ClassDefinition> last = std::move(Classes.back());
        Classes.pop_back();
    }
    while (!Packages.empty()) {
        const auto last = Packages.extract(std::prev(Packages.end()));
    }
}

vcos::COSPackage* ClassRegistry::findPackage(std::string_view fullName) const noexcept {
    const auto found = Packages.find(fullName);
    return found == Packages.end() ? nullptr : found->second.get();
}

void ClassRegistry::addPackage(std::string_view parent, std::unique_ptr<vcos::COSNamespaceInfo> description) {
    if (!description) {
        throw foundation::core::except::bad_alloc();
    }
    const std::string name = description->getName();
    if (!isIdentifier(name)) {
        raiseHostFailure("VANTIK:vcos", "InvalidName", {name});
    }
    const std::string fullName = joined(parent, name);
    if (findPackage(fullName)) {
        raiseHostFailure("VANTIK:vcos", "PackageExists", {fullName});
    }
    const auto added = Packages.emplace(fullName, std::make_unique<Package>(*this, fullName, std::move(description)));
    try {
        added.first->second->description().initializePackage(*added.first->second);
    } catch (...) {
        Packages.erase(added.first);
        throw;
    }
}

void ClassRegistry::ensurePackage(std::string_view fullName) {
    if (!isDottedName(fullName)) {
        raiseHostFailure("VANTIK:vcos", "InvalidName", {std::string(fullName)});
    }
    for (std::size_t dot = 0; dot != std::string_view::npos;) {
        const std::size_t start = dot == 0 ? 0 : dot + 1;
        dot = fullName.find('.', start);
        if (!findPackage(fullName.substr(0, dot))) {
            const std::string_view parent = fullName.substr(0, start == 0 ? 0 : start - 1);
            const std::string_view name = fullName.substr(start, dot == std::string_view::npos ? dot : dot - start);
            addPackage(parent, std::make_unique<ImpliedNamespace>(name));
        }
    }
}

std::shared_ptr<ClassDefinition> ClassRegistry::find(std::string_view fullName) const {
    const auto found = std::find_if(Classes.begin(), Classes.end(),
                                    [fullName](const auto& definition) { return definition->name() == fullName; });
    return found == Classes.end() ? nullptr : *found;
}

std::shared_ptr<ClassDefinition> ClassRegistry::require(std::string_view fullName) const {
    std::shared_ptr<ClassDefinition> definition = find(fullName);
    if (!definition) {
        raiseHostFailure("VANTIK:vcos", "UnknownClass",
                         withHint({std::string(fullName)}, nearestName(fullName, classNames())));
    }
    return definition;
}

std::shared_ptr<ClassDefinition> ClassRegistry::define(std::string_view package,
                                                       std::unique_ptr<vcos::COSClassInfo> description) {
    if (!description) {
        throw foundation::core::except::bad_alloc();
    }
    const std::string name = description->getName();
    if (!isIdentifier(name)) {
        raiseHostFailure("VANTIK:vcos", "InvalidName", {name});
    }
    // Objects are references here; nothing here could copy the objects of a class that wants a copy at each assignment.
    if (!description->isHandle() && !description->isEnumeration()) {
        raiseHostFailure("VANTIK:vcos", "NotAHandleClass", {joined(package, name)});
    }
    auto added = std::make_shared<ClassDefinition>(*this, joined(package, name), std::move(description));
    const auto named = [&](const auto& known) { return known->name() == added->name(); };
    std::shared_ptr<ClassDefinition> replaced;
    if (const auto taken = std::find_if(Classes.begin(), Classes.end(), named); taken != Classes.end()) {
        replaced = std::exchange(*taken, added);
    } else {
        Classes.push_back(added);
    }
    try {
        // The class is in place already, so that its members may name it as their type.
        added->description().defineClass(*added);
    } catch (...) {
        // `defineClass` may have changed the list, so the place is looked up again.
        if (const auto place = std::find(Classes.begin(), Classes.end(), added); place != Classes.end()) {
            if (replaced) {
                *place = std::move(replaced);
            } else {
                Classes.erase(place);
            }
        }
        throw;
    }
    return added;
}

bool ClassRegistry::removeClass(std::string_view fullName) {
    return std::erase_if(Classes, [fullName](const auto& known) { return known->name() == fullName; }) != 0;
}

bool ClassRegistry::derivesFrom(std::string_view className, std::string_view base) const {
    if (className == base) {
        return true;
    }
    const std::shared_ptr<ClassDefinition> definition = find(className);
    return definition && definition->isA(base);
}

std::vector<std::string> ClassRegistry::classNames() const {
    std::vector<std::string> names;
    for (const auto& definition : Classes) {
        if (!definition->description().isHidden()) {
            names.push_back(definition->name());
        }
    }
    return names;
}

const std::vector<std::string>* ClassRegistry::enumerationMembers(std::string_view className) const {
    const std::shared_ptr<ClassDefinition> definition = find(className);
    return definition && definition->description().isEnumeration() ? &definition->members() : nullptr;
}

} // namespace vantik::detail
