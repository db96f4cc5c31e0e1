// Packages and classes: how they are added, found, replaced and refused.
#include "embedded/classes/ClassRegistry.h"

#include "tests/embedded/classes/ClassFixture.h"

#include <algorithm>
#include <bit>

using namespace vantik::detail;
using vcos::COSPackage;
using Classes = ClassFixture;

namespace {

class PackageScript final : public vcos::COSNamespaceInfo {
public:
    PackageScript(std::string shortName, Log* log) : Name(std::move(shortName)), Events(log) {}
    std::string getName() const override { return Name; }
    void initializePackage(COSPackage& package) override {
        Events->push_back("begin " + package.getFullName());
        if (Fails) {
            throw std::runtime_error("no package");
        }
    }
    void unloadDynamicContent() override { Events->push_back("end " + Name); }

    bool Fails = false;

private:
    std::string Name;
    Log* Events;
};

class Packages : public ClassFixture {
protected:
    PackageScript* script(const char* shortName) { return new PackageScript(shortName, &Events); }
};

} // namespace

TEST_F(Packages, AreFoundByTheirDottedNamesAndEndWithTheirScopeInnerOnesFirst) {
    EXPECT_EQ(COSPackage::getNamespace(name("outer")), nullptr);
    COSPackage::addNamespace(script("outer"));
    COSPackage* outer = COSPackage::getNamespace(name("outer"));
    ASSERT_NE(outer, nullptr);
    EXPECT_EQ(outer->getFullName(), "outer");
    outer->addInnerNamespace(script("inner"));
    COSPackage* inner = COSPackage::getNamespace(name("outer.inner"));
    ASSERT_NE(inner, nullptr);
    EXPECT_EQ(inner->getFullName(), "outer.inner");
    EXPECT_EQ(COSPackage::getNamespace(name("inner")), nullptr);
    EXPECT_EQ(COSPackage::getNamespace(nullptr), nullptr);
    Entry.reset();
    Home.reset();
    EXPECT_EQ(Events, (Log{"begin outer", "begin outer.inner", "end inner", "end outer"}));
}

TEST_F(Packages, NameThatIsTakenOrNotAnIdentifierIsRefused) {
    COSPackage::addNamespace(script("outer"));
    EXPECT_EQ(failureOf([&] { COSPackage::addNamespace(script("outer")); }), "VANTIK:vcos:PackageExists(outer)");
    EXPECT_EQ(failureOf([&] { COSPackage::getNamespace(name("vantik"))->addInnerNamespace(script("net")); }),
              "VANTIK:vcos:PackageExists(vantik.net)");
    for (const char* bad : {"", "a.b", "1a", "a b", "_a", "\xC3\xA4"}) {
        EXPECT_EQ(failureOf([&] { COSPackage::addNamespace(script(bad)); }),
                  std::string("VANTIK:vcos:InvalidName(") + bad + ")");
    }
}

TEST_F(Packages, FailedAllocationOrInitializationLeavesNoPackage) {
    EXPECT_THROW(COSPackage::addNamespace(nullptr), foundation::core::except::bad_alloc);
    PackageScript* failing = script("outer");
    failing->Fails = true;
    EXPECT_THROW(COSPackage::addNamespace(failing), std::runtime_error);
    EXPECT_EQ(COSPackage::getNamespace(name("outer")), nullptr);
}

TEST_F(Classes, AreFoundByTheirFullName) {
    std::string definedAs;
    addClass("Thing", [&](COSClass& definition) {
        definedAs = *definition.getFullName();
        EXPECT_EQ(COSClass::getClass(name("test.Thing")), &definition) << "its members may name it as a type";
    });
    EXPECT_EQ(definedAs, "test.Thing");
    COSClass* found = COSClass::getClass(name("test.Thing"));
    ASSERT_NE(found, nullptr);
    found->load(true);
    EXPECT_EQ(found->getFullName(), name("test.Thing"));
    EXPECT_EQ(COSClass::getClass(name("test.Other")), nullptr);
    EXPECT_EQ(COSClass::getClass(nullptr), nullptr);
}

TEST_F(Classes, FailedDefinitionLeavesEverythingAsItWasAndPasses) {
    const auto half = [](COSClass&) { throw std::out_of_range("half way"); };
    EXPECT_THROW(addClass("Thing", half), std::out_of_range);
    EXPECT_EQ(COSClass::getClass(name("test.Thing")), nullptr);
    EXPECT_EQ(Events, (Log{"forget Thing"}));
    addClass("Thing");
    COSClass* first = COSClass::getClass(name("test.Thing"));
    EXPECT_NE(first, nullptr) << "a later attempt is free to succeed";
    EXPECT_THROW(addClass("Thing", half), std::out_of_range);
    EXPECT_EQ(COSClass::getClass(name("test.Thing")), first);
}

TEST_F(Classes, SecondDescriptionReplacesTheFirstForNewObjects) {
    const auto answering = [](double answer) {
        return [answer](COSClass& definition) {
            ScriptedMethod::addTo(definition, "answer",
                                  ScriptedMethod::Signature{{"test.Thing scalar"}, {"double scalar"}},
                                  [answer](auto call) { call.Results[0].Bits = std::bit_cast<std::uint64_t>(answer); });
        };
    };
    const auto ask = [&](const ArrayOwner& object) {
        vxArray_tag* self = object.get();
        const auto& method = requireMethod(objectIn(object), "answer", *COSGetPublicClient());
        return elementAsDouble(runMethod(objectIn(object), method, 1, {&self, 1}).front().get(), 0);
    };
    addClass("Thing", answering(1));
    ArrayOwner before = make("test.Thing");
    addClass("Thing", answering(2));
    const ArrayOwner after = make("test.Thing");
    EXPECT_EQ(ask(before), 1);
    EXPECT_EQ(ask(after), 2);
    EXPECT_EQ(std::ranges::count(classes().classNames(), "test.Thing"), 1);
    Events.clear();
    before.reset();
    EXPECT_EQ(Events, (Log{"destroy Thing", "forget Thing"})) << "the old description goes with its last object";
}

TEST_F(Classes, ClassOfCopiedObjectsIsRefusedAndHiddenOneHasNoNameInTheList) {
    auto* copied = new ScriptedClass("Copied", &Events);
    copied->Handle = false;
    EXPECT_EQ(failureOf([&] { addClass(copied); }), "VANTIK:vcos:NotAHandleClass(test.Copied)");
    auto* hidden = new ScriptedClass("Hidden", &Events);
    hidden->Hidden = true;
    addClass(hidden);
    EXPECT_EQ(std::ranges::count(classes().classNames(), "test.Hidden"), 0);
    EXPECT_NE(classes().find("test.Hidden"), nullptr);
}

TEST_F(Classes, UnknownOneIsRefusedWithAHint) {
    addClass("Connection");
    for (const auto& [given, hint] : {std::pair{"test.Conection", "test.Connection"},
                                      {"test.connection", "test.Connection"},
                                      {"elsewhere", "none"}}) {
        EXPECT_EQ(failureOf([&, unknown = given] { classes().require(unknown); }),
                  std::string("VANTIK:vcos:UnknownClass(") + given + ", " + hint + ")");
    }
}

TEST_F(Classes, ServiceModelIsTheScopes) {
    EXPECT_TRUE(omGetVcosUsingUSM());
    Home->RegistersPerScope = false;
    EXPECT_FALSE(omGetVcosUsingUSM());
}
