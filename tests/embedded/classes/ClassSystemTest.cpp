// Packages, classes and names.
#include "host/ClassSystem.h"

#include "embedded/classes/HostClasses.h"
#include "embedded/text/NearestName.h"
#include "tests/embedded/classes/ClassFixture.h"

using testing::Test;
using vantik::detail::ArrayOwner;
using vantik::detail::ClassDefinition;
using vantik::detail::Scope;
using vantik::detail::ScopeEntry;

namespace {

class PackageScript final : public vcos::COSNamespaceInfo {
public:
    PackageScript(std::string shortName, Log* log) : Name(std::move(shortName)), Events(log) {}
    std::string getName() const override { return Name; }
    void initializePackage(vcos::COSPackage& package) override {
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

class Classes : public ClassFixture {};
class Names : public ClassFixture {};
class HostClasses : public ClassFixture {};

} // namespace

TEST_F(Names, EqualTextsShareOneAddress) {
    EXPECT_EQ(name("startInternal"), name(std::string("start") + "Internal"));
    EXPECT_NE(name("startInternal"), name("closeInternal"));
    EXPECT_EQ(*name("startInternal"), "startInternal");
}

TEST_F(Names, EmptyTextIsNull) {
    EXPECT_EQ(name(""), nullptr);
    EXPECT_EQ(Home->Names.intern(std::string_view()), nullptr);
}

TEST_F(Names, AddressesStayWhenManyNamesFollow) {
    const vcos::InternedName first = name("first");
    for (int number = 0; number < 10000; ++number) {
        name("name" + std::to_string(number));
    }
    EXPECT_EQ(name("first"), first);
    EXPECT_EQ(*first, "first");
}

TEST_F(Names, TwoScopesHaveTheirOwn) {
    const vcos::InternedName here = name("shared");
    const ScopeEntry other(std::make_shared<Scope>());
    EXPECT_NE(name("shared"), here);
}

TEST_F(Packages, AreFoundByTheirDottedNames) {
    EXPECT_EQ(vcos::COSPackage::getNamespace(name("outer")), nullptr);
    vcos::COSPackage::addNamespace(script("outer"));
    vcos::COSPackage* outer = vcos::COSPackage::getNamespace(name("outer"));
    ASSERT_NE(outer, nullptr);
    EXPECT_EQ(outer->getFullName(), "outer");
    outer->addInnerNamespace(script("inner"));
    vcos::COSPackage* inner = vcos::COSPackage::getNamespace(name("outer.inner"));
    ASSERT_NE(inner, nullptr);
    EXPECT_EQ(inner->getFullName(), "outer.inner");
    EXPECT_EQ(vcos::COSPackage::getNamespace(name("inner")), nullptr);
    EXPECT_EQ(vcos::COSPackage::getNamespace(nullptr), nullptr);
    EXPECT_EQ(Events, (Log{"begin outer", "begin outer.inner"}));
}

TEST_F(Packages, EndWithTheirScopeInnerOnesFirst) {
    vcos::COSPackage::addNamespace(script("outer"));
    vcos::COSPackage::getNamespace(name("outer"))->addInnerNamespace(script("inner"));
    Events.clear();
    Entry.reset();
    Home.reset();
    EXPECT_EQ(Events, (Log{"end inner", "end outer"}));
}

TEST_F(Packages, TakenNameIsRefused) {
    vcos::COSPackage::addNamespace(script("outer"));
    EXPECT_EQ(failureOf([&] { vcos::COSPackage::addNamespace(script("outer")); }), "VANTIK:vcos:PackageExists(outer)");
    EXPECT_EQ(failureOf([&] { vcos::COSPackage::getNamespace(name("vantik"))->addInnerNamespace(script("net")); }),
              "VANTIK:vcos:PackageExists(vantik.net)");
}

TEST_F(Packages, NameThatIsNoIdentifierIsRefused) {
    for (const char* bad : {"", "a.b", "1a", "a b", "_a", "\xC3\xA4"}) {
        EXPECT_EQ(failureOf([&] { vcos::COSPackage::addNamespace(script(bad)); }),
                  std::string("VANTIK:vcos:InvalidName(") + bad + ")");
    }
}

TEST_F(Packages, FailedAllocationOfTheDescriptionIsReported) {
    EXPECT_THROW(vcos::COSPackage::addNamespace(nullptr), foundation::core::except::bad_alloc);
}

TEST_F(Packages, FailedInitializationLeavesNoPackage) {
    PackageScript* failing = script("outer");
    failing->Fails = true;
    EXPECT_THROW(vcos::COSPackage::addNamespace(failing), std::runtime_error);
    EXPECT_EQ(vcos::COSPackage::getNamespace(name("outer")), nullptr);
}

TEST_F(Classes, AreFoundByTheirFullName) {
    std::string definedAs;
    addClass("Thing", [&](vcos::COSClass& definition) {
        definedAs = *definition.getFullName();
        EXPECT_EQ(vcos::COSClass::getClass(name("test.Thing")), &definition) << "its members may name it as a type";
    });
    EXPECT_EQ(definedAs, "test.Thing");
    vcos::COSClass* found = vcos::COSClass::getClass(name("test.Thing"));
    ASSERT_NE(found, nullptr);
    found->load(true);
    EXPECT_EQ(found->getFullName(), name("test.Thing"));
    EXPECT_EQ(vcos::COSClass::getClass(name("test.Other")), nullptr);
    EXPECT_EQ(vcos::COSClass::getClass(nullptr), nullptr);
}

TEST_F(Classes, FailedDefinitionLeavesNoClassAndPasses) {
    EXPECT_THROW(addClass("Thing", [](vcos::COSClass&) { throw std::out_of_range("half way"); }), std::out_of_range);
    EXPECT_EQ(vcos::COSClass::getClass(name("test.Thing")), nullptr);
    EXPECT_EQ(Events, (Log{"forget Thing"}));
    addClass("Thing");
    EXPECT_NE(vcos::COSClass::getClass(name("test.Thing")), nullptr) << "a later attempt is free to succeed";
}

TEST_F(Classes, SecondDescriptionReplacesTheFirstForNewObjects) {
    const auto answering = [](double answer) {
        return [answer](vcos::COSClass& definition) {
            ScriptedMethod::addTo(definition, "answer",
                                  ScriptedMethod::Signature{{"test.Thing scalar"}, {"double scalar"}},
                                  [answer](int&, vcos::COSValue* results, int, const vcos::COSValue*) {
                                      results[0].Bits = std::bit_cast<std::uint64_t>(answer);
                                  });
        };
    };
    const auto ask = [&](const ArrayOwner& object) {
        auto& host = objectIn(object);
        vxArray_tag* self = object.get();
        const auto& method = vantik::detail::requireMethod(host, "answer", *COSGetPublicClient());
        return vantik::detail::elementAsDouble(vantik::detail::runMethod(host, method, 1, {&self, 1}).front().get(), 0);
    };
    addClass("Thing", answering(1));
    ArrayOwner before = make("test.Thing");
    addClass("Thing", answering(2));
    const ArrayOwner after = make("test.Thing");
    EXPECT_EQ(ask(before), 1);
    EXPECT_EQ(ask(after), 2);
    const std::vector<std::string> names = classes().classNames();
    EXPECT_EQ(std::count(names.begin(), names.end(), "test.Thing"), 1);
    Events.clear();
    before.reset();
    EXPECT_EQ(Events, (Log{"destroy Thing", "forget Thing"})) << "the old description goes with its last object";
}

TEST_F(Classes, FailedReplacementKeepsTheFirst) {
    addClass("Thing");
    vcos::COSClass* first = vcos::COSClass::getClass(name("test.Thing"));
    EXPECT_THROW(addClass("Thing", [](vcos::COSClass&) { throw std::out_of_range("half way"); }), std::out_of_range);
    EXPECT_EQ(vcos::COSClass::getClass(name("test.Thing")), first);
}

TEST_F(Classes, FailedAllocationsAreReported) {
    classes().ensurePackage("test");
    EXPECT_THROW(vcos::COSPackage::getNamespace(name("test"))->addClass(nullptr, 0, 2),
                 foundation::core::except::bad_alloc);
    EXPECT_THROW(addClass("Thing", [](vcos::COSClass& definition) { definition.addMethod(nullptr); }),
                 foundation::core::except::bad_alloc);
    EXPECT_THROW(addClass("Thing", [](vcos::COSClass& definition) { definition.addProperty(nullptr); }),
                 foundation::core::except::bad_alloc);
}

TEST_F(Classes, NameThatIsNoIdentifierIsRefused) {
    EXPECT_EQ(failureOf([&] { addClass("a.Thing"); }), "VANTIK:vcos:InvalidName(a.Thing)");
    EXPECT_EQ(failureOf([&] {
                  addClass("Thing",
                           [](vcos::COSClass& definition) { ScriptedMethod::addTo(definition, "do it", {}, {}); });
              }),
              "VANTIK:vcos:InvalidName(do it)");
    EXPECT_EQ(failureOf([&] {
                  addClass("Thing", [](vcos::COSClass& definition) {
                      definition.validatePropertyType(name("1st"), name("any"));
                  });
              }),
              "VANTIK:vcos:InvalidName(1st)");
}

TEST_F(Classes, ClassOfCopiedObjectsIsRefused) {
    auto* description = new ScriptedClass("Thing", &Events);
    description->Handle = false;
    EXPECT_EQ(failureOf([&] { addClass(description); }), "VANTIK:vcos:NotAHandleClass(test.Thing)");
}

TEST_F(Classes, TypeThatNobodyKnowsIsRefused) {
    const auto validate = [&](const char* typeWord) {
        return failureOf([&] {
            addClass("Thing", [&](vcos::COSClass& definition) {
                definition.validatePropertyType(name("Size"), name(typeWord));
            });
        });
    };
    for (const char* known : {"any", "unicodeString", "uint8 vector", "double scalar", "struct scalar",
                              "test.Thing scalar", "vantik.net.http.io.ContentProvider vector", "logical"}) {
        EXPECT_EQ(validate(known), "");
    }
    for (const char* unknown : {"", "uint8 matrix", "uint8  vector", "test.Missing scalar", "float"}) {
        EXPECT_EQ(validate(unknown), std::string("VANTIK:vcos:UnknownType(test.Thing, Size, ") + unknown + ")");
    }
    // A method's classes are looked for with each call: only the form of the word counts.
    EXPECT_EQ(failureOf([&] {
                  addClass("Thing", [](vcos::COSClass& definition) {
                      ScriptedMethod::addTo(definition, "run",
                                            ScriptedMethod::Signature{{"test.Thing scalar", "a.B!"}, {}}, {});
                  });
              }),
              "VANTIK:vcos:UnknownType(test.Thing, run, a.B!)");
}

TEST_F(Classes, MemberIsAddedOnce) {
    EXPECT_EQ(failureOf([&] {
                  addClass("Thing", [](vcos::COSClass& definition) {
                      ScriptedMethod::addTo(definition, "run", {}, {});
                      ScriptedMethod::addTo(definition, "run", {}, {});
                  });
              }),
              "VANTIK:vcos:MemberExists(test.Thing, run)");
    EXPECT_EQ(failureOf([&] {
                  addClass("Thing", [](vcos::COSClass& definition) {
                      ScriptedProperty::addTo(definition, "Size", "any", {});
                      ScriptedProperty::addTo(definition, "Size", "any", {});
                  });
              }),
              "VANTIK:vcos:MemberExists(test.Thing, Size)");
}

TEST_F(Classes, UnknownOneIsRefusedWithAHint) {
    addClass("Connection");
    EXPECT_EQ(failureOf([&] { classes().require("test.Conection"); }),
              "VANTIK:vcos:UnknownClass(test.Conection, test.Connection)");
    EXPECT_EQ(failureOf([&] { classes().require("test.connection"); }),
              "VANTIK:vcos:UnknownClass(test.connection, test.Connection)");
    EXPECT_EQ(failureOf([&] { classes().require("elsewhere"); }), "VANTIK:vcos:UnknownClass(elsewhere, none)");
}

TEST_F(Classes, HiddenOneHasNoNameInTheList) {
    auto* description = new ScriptedClass("Thing", &Events);
    description->Hidden = true;
    addClass(description);
    const std::vector<std::string> names = classes().classNames();
    EXPECT_EQ(std::count(names.begin(), names.end(), "test.Thing"), 0);
    EXPECT_NE(classes().find("test.Thing"), nullptr);
}

TEST_F(Classes, DeriveFromEachOfTheirBases) {
    addClass("Root");
    addDerivedClass("Left", {"test.Root"});
    addDerivedClass("Right", {"test.Root"});
    addDerivedClass("Leaf", {"test.Left", "test.Right"});
    for (const char* base : {"test.Leaf", "test.Left", "test.Right", "test.Root"}) {
        EXPECT_TRUE(classes().derivesFrom("test.Leaf", base)) << base;
    }
    EXPECT_FALSE(classes().derivesFrom("test.Root", "test.Leaf"));
    EXPECT_FALSE(classes().derivesFrom("test.Left", "test.Right"));
    EXPECT_TRUE(classes().derivesFrom("unknown.Thing", "unknown.Thing"));
    EXPECT_FALSE(classes().derivesFrom("unknown.Thing", "test.Root"));
    EXPECT_EQ(classes().require("test.Leaf")->baseClasses(), (std::vector<std::string>{"test.Left", "test.Right"}));
}

TEST_F(Classes, MissingBaseClassIsRefused) {
    EXPECT_EQ(failureOf([&] { addDerivedClass("Leaf", {"test.Rot"}); }), "VANTIK:vcos:UnknownClass(test.Rot, none)");
}

TEST_F(Classes, ClassCannotDeriveFromItsFormerSelf) {
    addClass("Root");
    addDerivedClass("Leaf", {"test.Root"});
    EXPECT_EQ(failureOf([&] { addDerivedClass("Root", {"test.Leaf"}); }),
              "VANTIK:vcos:CircularBaseClass(test.Root, test.Leaf)");
    EXPECT_EQ(failureOf([&] { addDerivedClass("Self", {"test.Self"}); }),
              "VANTIK:vcos:CircularBaseClass(test.Self, test.Self)");
}

TEST_F(HostClasses, AreThereFromTheStart) {
    EXPECT_EQ(classes().classNames(),
              (std::vector<std::string>{"vantik.net.http.io.ContentProvider", "vantik.net.http.io.ContentConsumer",
                                        "vantik.net.http.internal.ProgressReporter",
                                        "vantik.net.http.AuthenticationScheme"}));
    for (const char* package :
         {"vantik", "vantik.net", "vantik.net.http", "vantik.net.http.io", "vantik.net.http.internal"}) {
        EXPECT_NE(vcos::COSPackage::getNamespace(name(package)), nullptr) << package;
    }
    EXPECT_EQ(*classes().enumerationMembers("vantik.net.http.AuthenticationScheme"),
              (std::vector<std::string>{"Basic", "Digest", "NTLM", "Negotiate"}));
    EXPECT_EQ(classes().enumerationMembers("vantik.net.http.io.ContentProvider"), nullptr);
    EXPECT_EQ(classes().enumerationMembers("missing"), nullptr);
}

TEST_F(HostClasses, CanBeTakenAwayOneByOne) {
    EXPECT_TRUE(classes().removeClass(vantik::detail::kContentConsumerClass));
    EXPECT_FALSE(classes().removeClass(vantik::detail::kContentConsumerClass));
    EXPECT_EQ(vcos::COSClass::getClass(name(vantik::detail::kContentConsumerClass)), nullptr);
    EXPECT_NE(vcos::COSClass::getClass(name(vantik::detail::kContentProviderClass)), nullptr);
}

TEST_F(HostClasses, MakeNoObjectsOfTheirOwn) {
    EXPECT_EQ(failureOf([&] { make(vantik::detail::kContentProviderClass); }),
              "VANTIK:vcos:AbstractClass(vantik.net.http.io.ContentProvider)");
    EXPECT_EQ(failureOf([&] { make(vantik::detail::kAuthenticationSchemeClass); }),
              "VANTIK:vcos:NotConstructible(vantik.net.http.AuthenticationScheme)");
}

TEST_F(Classes, ServiceModelIsTheScopes) {
    EXPECT_TRUE(omGetVcosUsingUSM());
    Home->RegistersPerScope = false;
    EXPECT_FALSE(omGetVcosUsingUSM());
}

TEST(NearestNames, AreCloseOrNone) {
    const std::vector<std::string> known{"URL", "Username", "ProxyUsername", "ResponseCode", "Payload"};
    const auto nearest = [&](std::string_view text) { return vantik::detail::nearestName(text, known); };
    EXPECT_EQ(nearest("Usrname"), "Username");
    EXPECT_EQ(nearest("username"), "Username");
    EXPECT_EQ(nearest("url"), "") << "three changes of case in three letters may be anything";
    EXPECT_EQ(nearest("Url"), "URL");
    EXPECT_EQ(nearest("Responsecode"), "ResponseCode");
    EXPECT_EQ(nearest("Colour"), "");
    EXPECT_EQ(nearest(""), "");
    EXPECT_EQ(nearest(std::string(100000, 'x')), "");
}
