// Host classes whose methods are callables of the program.
#pragma once

#include "embedded/classes/TypeWord.h"
#include "host/ClassSystem.h"
#include "vantik/HostClass.h"

#include <deque>
#include <string>
#include <vector>

namespace vantik::detail {

// What a program says about a class. The names of types are checked when the class is defined.
struct CallableMethodSpec {
    std::string Name;
    bool Declared = false;
    std::vector<std::string> Inputs; // without the object
    std::vector<std::string> Outputs;
    Method Body;
};
struct CallableClassSpec {
    std::string FullName;
    std::vector<std::string> Bases;
    std::vector<CallableMethodSpec> Methods;
};

class CallableMethod final : public vcos::COSMethodBase {
public:
    // Made in the scope that the class is defined in.
    CallableMethod(const std::string& className, CallableMethodSpec spec, bool isConstructor);
    ~CallableMethod() override;
    void invoke(int& resultCount, vcos::COSValue* results, int inputCount, const vcos::COSValue* inputs) override;

private:
    CallableMethodSpec Spec;
    bool IsConstructor;
    std::vector<TypeWord> InputTypes; // without the object; empty where nothing is declared
    std::vector<TypeWord> OutputTypes;
    std::deque<std::u16string> Texts; // what "unicodeString" results of the latest call point to
};

class CallableClassInfo final : public vcos::COSClassInfo {
public:
    explicit CallableClassInfo(CallableClassSpec spec);
    ~CallableClassInfo() override;
    std::string getName() const override;
    void defineClass(vcos::COSClass& definition) override;
    void* createInstance() override;
    void destroyInstance(void* instance) override;
    bool isConstructible() const override;
    bool isHandle() const override;

private:
    CallableClassSpec Spec;
};

} // namespace vantik::detail
