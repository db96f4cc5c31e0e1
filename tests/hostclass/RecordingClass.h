// A class being defined that keeps what it is given.
#pragma once

#include "host/ClassSystem.h"

#include <memory>
#include <string>
#include <utility>
#include <vector>

class RecordingClass final : public vcos::COSClass {
public:
    explicit RecordingClass(std::string fullName) : RecordingClass(vcos::internal::makeInterned(std::move(fullName))) {}
    explicit RecordingClass(vcos::InternedName fullName) : FullName(fullName) {}

    void load(bool fully) override { Order.push_back(fully ? "loaded fully" : "loaded in part"); }
    vcos::InternedName getFullName() const override { return FullName; }
    vcos::COSDataTypePtr validatePropertyType(vcos::InternedName name, vcos::InternedName typeWord) override {
        Validated.emplace_back(*name, *typeWord);
        // Nobody looks inside; the address alone shows that the property got this very type.
        Type = std::make_shared<int>(0);
        return vcos::COSDataTypePtr(Type, reinterpret_cast<const vcos::COSDataType*>(Type.get()));
    }
    void addProperty(vcos::COSPropT* property) override {
        Order.push_back(*property->getName() + ": " + Validated.back().second);
        GotValidatedType.push_back(static_cast<const void*>(property->getDataType().get()) == Type.get());
        Properties.emplace_back(property);
    }
    void addMethod(vcos::COSMethodInfo* method) override {
        Order.push_back(method == nullptr ? "(null)" : method->getName() + "()");
        Methods.emplace_back(method);
    }

    std::vector<std::string> Order; // "property: type word", "method()" and "loaded fully", as they came
    std::vector<std::pair<std::string, std::string>> Validated; // name and type word, in order
    std::vector<bool> GotValidatedType;                         // one for each property
    std::vector<std::unique_ptr<vcos::COSPropT>> Properties;
    std::vector<std::unique_ptr<vcos::COSMethodInfo>> Methods;

private:
    vcos::InternedName FullName;
    std::shared_ptr<int> Type;
};
