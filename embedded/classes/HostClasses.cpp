#include "embedded/classes/HostClasses.h"

#include "embedded/classes/ClassDefinition.h"
#include "embedded/classes/ClassRegistry.h"

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace vantik::detail {

namespace {

// Only to derive from: whoever calls such an object knows its methods by name.
class AbstractClassInfo final : public vcos::COSClassInfo {
public:
    explicit AbstractClassInfo(std::string name) : Name(std::move(name)) {}
    std::string getName() const override { return Name; }
    void defineClass(vcos::COSClass&) override {}
    void* createInstance() override { return this; } // for objects of derived classes
    void destroyInstance(void*) override {}
    bool isHandle() const override { return true; }
    bool isAbstract() const override { return true; }

private:
    std::string Name;
};

class EnumerationClassInfo final : public vcos::COSClassInfo {
public:
    EnumerationClassInfo(std::string name, std::vector<std::string> members)
        : Name(std::move(name)), Members(std::move(members)) {}
    std::string getName() const override { return Name; }
    void defineClass(vcos::COSClass& definition) override {
        for (const std::string& member : Members) {
            static_cast<ClassDefinition&>(definition).addMember(member);
        }
    }
    // Members are values, not objects.
    void* createInstance() override { return nullptr; }
    void destroyInstance(void*) override {}
    bool isEnumeration() const override { return true; }

private:
    std::string Name;
    std::vector<std::string> Members;
};

// No members: an abstract class.
struct HostClassRow {
    std::string_view FullName;
    std::vector<std::string> Members;
};

} // namespace

void defineHostClasses(ClassRegistry& registry) {
    const HostClassRow rows[] = {
        {kContentProviderClass, {}},
        {kContentConsumerClass, {}},
        {kProgressReporterClass, {}},
        {kAuthenticationSchemeClass, {"Basic", "Digest", "NTLM", "Negotiate"}},
    };
    for (const HostClassRow& row : rows) {
        const std::size_t dot = row.FullName.rfind('.');
        const std::string_view package = row.FullName.substr(0, dot);
        std::string name(row.FullName.substr(dot + 1));
        std::unique_ptr<vcos::COSClassInfo> description;
        if (row.Members.empty()) {
            description = std::make_unique<AbstractClassInfo>(std::move(name));
        } else {
            description = std::make_unique<EnumerationClassInfo>(std::move(name), row.Members);
        }
        registry.ensurePackage(package);
        registry.define(package, std::move(description));
    }
}

} // namespace vantik::detail
