#include "embedded/program/CallableClass.h"

#include "embedded/classes/ClassDefinition.h"
#include "embedded/objects/SlotValue.h"
#include "embedded/program/Boundary.h"
#include "embedded/scope/Scope.h"

#include <algorithm>
#include <memory>
#include <new>
#include <utility>

namespace vantik::detail {

namespace vx = matrix::detail::noninlined::vx_array_api;

namespace {

std::string_view shortNameOf(std::string_view fullName) {
    const std::size_t dot = fullName.rfind('.');
    return dot == std::string_view::npos ? fullName : fullName.substr(dot + 1);
}

// A word that is not a type word is refused, by name, when the method is added to its class.
std::vector<TypeWord> parseAll(const std::vector<std::string>& words) {
    std::vector<TypeWord> types;
    types.reserve(words.size());
    for (const std::string& word : words) {
        types.push_back(TypeWord::parse(word).value_or(TypeWord()));
    }
    return types;
}

// A value of the program's own. A caller may write the next value into an input's elements in place, and the program
// may keep the input: the few bytes of a scalar are copied, so that it does not change.
Array valueOf(const vxArray_tag* borrowed) {
    if (!borrowed) {
        return {};
    }
    ArrayOwner copy(vx::vxCreateSharedDataCopy(borrowed));
    if (elementCount(borrowed) == 1 && plainContents(borrowed)) {
        vx::vxGetData(copy.get());
    }
    return Array::adopt(copy.release());
}

} // namespace

CallableMethod::CallableMethod(const std::string& className, CallableMethodSpec spec, bool isConstructor)
    : COSMethodBase(Scope::current().Names.intern(className),
                    Scope::current().Names.intern(std::string_view(spec.Name)), vcos::MemberAccess::Public, nullptr),
      Spec(std::move(spec)), IsConstructor(isConstructor), InputTypes(parseAll(Spec.Inputs)),
      OutputTypes(parseAll(Spec.Outputs)) {
    if (!Spec.Declared) {
        return;
    }
    InternTable& names = Scope::current().Names;
    vcos::COSMethodSignature* signature = vcos::COSMethodSignature::createMethodSignature();
    setMethodSignature(signature);
    if (!IsConstructor) {
        signature->addInputType(names.intern(className + " scalar"));
    }
    for (const std::string& word : Spec.Inputs) {
        signature->addInputType(names.intern(std::string_view(word)));
    }
    for (const std::string& word : Spec.Outputs) {
        signature->addOutputType(names.intern(std::string_view(word)));
    }
}

CallableMethod::~CallableMethod() = default;

void CallableMethod::invoke(int& resultCount, vcos::COSValue* results, int inputCount, const vcos::COSValue* inputs) {
    std::vector<Array> values;
    values.reserve(static_cast<std::size_t>(inputCount) + 1);
    if (IsConstructor) {
        values.push_back(valueOf(arrayIn(results[0])));
    }
    for (int index = 0; index < inputCount; ++index) {
        // Input 0 of a method is the object, which none of the program's type words covers.
        const std::size_t declared = static_cast<std::size_t>(index) - (IsConstructor ? 0 : 1);
        const TypeWord* type = declared < InputTypes.size() ? &InputTypes[declared] : nullptr;
        const bool isHandle = !type || (!type->liesInSlot() && type->Content != TypeWord::Kind::UnicodeString);
        values.push_back(isHandle ? valueOf(arrayIn(inputs[index]))
                                  : Array::adopt(arrayFromSlot(*type, inputs[index])));
    }
    std::vector<Array> given = runCallable([&] { return Spec.Body(values); });
    if (IsConstructor) {
        return;
    }
    Texts.clear();
    const int delivered =
        static_cast<int>(std::min<std::size_t>(given.size(), static_cast<std::size_t>(std::max(resultCount, 0))));
    for (int index = 0; index < delivered; ++index) {
        const auto place = static_cast<std::size_t>(index);
        if (!Spec.Declared) {
            results[index] = slotOf(given[place].release());
            continue;
        }
        const TypeWord& type = OutputTypes[place]; // no more are wanted than declared
        const ArrayOwner value(given[place].release());
        SlotValue slot(type, value.get(), {*className(), Spec.Name, SlotPlace::Role::Output, index + 1});
        if (type.Content == TypeWord::Kind::UnicodeString) {
            results[index].Bits = reinterpret_cast<std::uintptr_t>(&Texts.emplace_back(slot.takeText()));
        } else {
            results[index] = type.liesInSlot() ? slot.slot() : slotOf(slot.takeArray());
        }
    }
    resultCount = delivered;
}

CallableClassInfo::CallableClassInfo(CallableClassSpec spec) : Spec(std::move(spec)) {}
CallableClassInfo::~CallableClassInfo() = default;

std::string CallableClassInfo::getName() const {
    return std::string(shortNameOf(Spec.FullName));
}

void CallableClassInfo::defineClass(vcos::COSClass& definition) {
    auto& own = static_cast<ClassDefinition&>(definition); // this host defines no other kind
    for (const std::string& base : Spec.Bases) {
        own.addBaseClass(base);
    }
    for (const CallableMethodSpec& method : Spec.Methods) {
        own.addMethod(new CallableMethod(Spec.FullName, method, method.Name == shortNameOf(Spec.FullName)));
    }
}

// What a program attaches to the object (see vantik/Binding.h); the callables hold whatever else there is.
void* CallableClassInfo::createInstance() {
    return new (std::nothrow) std::shared_ptr<void>;
}
void CallableClassInfo::destroyInstance(void* instance) {
    delete static_cast<std::shared_ptr<void>*>(instance);
}

bool CallableClassInfo::isConstructible() const {
    return true;
}
bool CallableClassInfo::isHandle() const {
    return true;
}

} // namespace vantik::detail
