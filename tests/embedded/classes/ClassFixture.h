// Base of the tests of the class system: a scope of its own, classes described by lambdas, and a log of what happened.
#pragma once

#include "embedded/classes/ClassDefinition.h"
#include "embedded/classes/ClassRegistry.h"
#include "embedded/objects/ObjectCalls.h"
#include "embedded/objects/SlotValue.h"
#include "embedded/scope/Scope.h"
#include "host/ClassSystem.h"
#include "tests/embedded/arrays/ArrayFixture.h"

#include <cstdlib>
#include <optional>
#include <span>

using vantik::detail::Scope;
using vantik::detail::ScopeEntry;
using vcos::COSClass;
using vcos::COSValue;
using Log = std::vector<std::string>;

inline vcos::InternedName name(std::string text) {
    return vcos::internal::makeInterned(std::move(text));
}

class ScriptedProperty final : public vcos::COSPropT {
public:
    struct Accessors {
        std::function<COSValue()> Get;
        std::function<void(vcos::COSInterface&, const COSValue&)> Set;
        std::function<void(const COSValue&)> Release;
        vcos::MemberAccess GetAccess = vcos::MemberAccess::Public;
        vcos::MemberAccess SetAccess = vcos::MemberAccess::Public;
    };

    // In a block from `calloc`, as a module makes its properties.
    static void addTo(COSClass& definition, const char* propertyName, const char* typeWord, Accessors accessors) {
        vcos::COSDataTypePtr type = definition.validatePropertyType(name(propertyName), name(typeWord));
        void* block = std::calloc(1, sizeof(ScriptedProperty));
        definition.addProperty(new (block)
                                   ScriptedProperty(definition, propertyName, std::move(type), std::move(accessors)));
    }

    void getPropertyValue(vcos::COSInterface&, COSValue& value) override { value = Script.Get(); }
    void setPropertyValue(vcos::COSInterface& object, const COSValue& value) override { Script.Set(object, value); }
    void releasePropertyValue(vcos::COSInterface&, const COSValue& value) override {
        if (Script.Release) {
            Script.Release(value);
        }
    }
    bool hasSetter() const override { return static_cast<bool>(Script.Set); }

private:
    ScriptedProperty(COSClass& definition, const char* propertyName, vcos::COSDataTypePtr type, Accessors accessors)
        : COSPropT(definition.getFullName(), name(propertyName), std::move(type), accessors.GetAccess,
                   accessors.SetAccess, 3022, "a property"),
          Script(std::move(accessors)) {}

    Accessors Script;
};

class ScriptedMethod final : public vcos::COSMethodBase {
public:
    // One call: the results wanted and their slots, the inputs, the object first.
    struct Call {
        int& Wanted;
        COSValue* Results;
        std::span<const COSValue> Inputs;
    };
    using Body = std::function<void(Call)>;

    struct Signature {
        std::vector<std::string> Inputs; // with the object
        std::vector<std::string> Outputs;
        int Optional = 0;
    };

    // Without a signature, nothing is declared.
    static void addTo(COSClass& definition, const char* methodName, std::optional<Signature> signature, Body body,
                      vcos::MemberAccess access = vcos::MemberAccess::Public) {
        auto* method = new ScriptedMethod(definition, methodName, std::move(body), access);
        if (signature) {
            vcos::COSMethodSignature* declared = vcos::COSMethodSignature::createMethodSignature();
            method->setMethodSignature(declared);
            for (const std::string& word : signature->Inputs) {
                declared->addInputType(name(word));
            }
            for (const std::string& word : signature->Outputs) {
                declared->addOutputType(name(word));
            }
            declared->setOptionalInputCount(signature->Optional);
        }
        definition.addMethod(method);
    }

    void invoke(int& resultCount, COSValue* results, int inputCount, const COSValue* inputs) override {
        Script({resultCount, results, {inputs, static_cast<std::size_t>(inputCount)}});
    }

private:
    ScriptedMethod(COSClass& definition, const char* methodName, Body body, vcos::MemberAccess access)
        : COSMethodBase(definition.getFullName(), name(methodName), access, "a method"), Script(std::move(body)) {}

    Body Script;
};

// A class whose native instance is a counter.
class ScriptedClass final : public vcos::COSClassInfo {
public:
    struct Instance {
        int Number = 0;
    };
    using Define = std::function<void(COSClass&)>;

    ScriptedClass(std::string shortName, Log* log, Define define = {})
        : Name(std::move(shortName)), Events(log), DefineScript(std::move(define)) {}
    ~ScriptedClass() override { note("forget "); }

    std::string getName() const override { return Name; }
    void defineClass(COSClass& definition) override {
        if (DefineScript) {
            DefineScript(definition);
        }
    }
    void* createInstance() override {
        note("create ");
        if (CreateScript) {
            CreateScript();
        }
        return MakesNoInstance ? nullptr : new Instance;
    }
    void destroyInstance(void* instance) override {
        note("destroy ");
        delete static_cast<Instance*>(instance);
        if (DestroyScript) {
            DestroyScript();
        }
    }
    bool isConstructible() const override { return Constructible; }
    bool isHandle() const override { return Handle; }
    bool isAbstract() const override { return Abstract; }
    bool isHidden() const override { return Hidden; }

    bool Constructible = true;
    bool Handle = true;
    bool Abstract = false;
    bool Hidden = false;
    bool MakesNoInstance = false;
    std::function<void()> CreateScript;
    std::function<void()> DestroyScript;

private:
    void note(const char* what) {
        if (Events) {
            Events->push_back(what + Name);
        }
    }

    std::string Name;
    Log* Events;
    Define DefineScript;
};

class ClassFixture : public ArrayFixture {
protected:
    ClassFixture() : Home(std::make_shared<Scope>()), Entry(std::in_place, Home) {}

    void TearDown() override {
        const std::weak_ptr<Scope> watched = Home;
        Entry.reset();
        Home.reset();
        EXPECT_TRUE(watched.expired()) << "something still holds the scope";
        ArrayFixture::TearDown();
    }

    vantik::detail::ClassRegistry& classes() { return Home->Classes; }

    // Adds a class to the package "test" as a module does.
    ScriptedClass* addClass(const char* shortName, ScriptedClass::Define define = {}) {
        return addClass(new ScriptedClass(shortName, &Events, std::move(define)));
    }
    ScriptedClass* addClass(ScriptedClass* description) {
        classes().ensurePackage("test");
        vcos::COSPackage::getNamespace(name("test"))->addClass(description, 0, 2);
        return description;
    }

    // With a base class, which only a description that knows this host can declare.
    ScriptedClass* addDerivedClass(const char* shortName, std::vector<std::string> bases,
                                   ScriptedClass::Define define = {}) {
        return addClass(shortName, [bases = std::move(bases), define = std::move(define)](COSClass& definition) {
            for (const std::string& base : bases) {
                static_cast<vantik::detail::ClassDefinition&>(definition).addBaseClass(base);
            }
            if (define) {
                define(definition);
            }
        });
    }

    ArrayOwner make(const std::string& className, std::vector<vxArray_tag*> inputs = {}) {
        return ArrayOwner(vantik::detail::createObject(classes().require(className), inputs));
    }

    static vantik::detail::HostObject& objectIn(const ArrayOwner& array) {
        return vantik::detail::HostObject::of(*vantik::detail::scalarObject(array.get()).get());
    }

    std::shared_ptr<Scope> Home;
    std::optional<ScopeEntry> Entry;
    Log Events;
};
