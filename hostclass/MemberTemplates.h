// The objects that carry the class's properties and methods: the class system calls them, and they find the native
// instance and call an accessor or a handler.
#pragma once

#include "errors/InternalError.h"
#include "host/ClassSystem.h"
#include "hostclass/ValueSlot.h"

#include <memory>
#include <type_traits>
#include <utility>

namespace netrove {

// The native instance that the class system found. It finds one for every object whose construction succeeded, so null
// means that the host has lost track.
template <class Instance>
Instance requireInstance(void* instance) {
    static_assert(std::is_pointer_v<Instance>);
    if (instance == nullptr) {
        throwInternalError("No native instance behind the object");
    }
    return static_cast<Instance>(instance);
}

// One method's code: the instance, the number of results wanted and their slots, the number of inputs after the object
// and their slots. Arrays stored in result slots belong to the host, input arrays are borrowed.
template <class Instance>
using MethodHandler = void (*)(Instance instance, int resultCount, vcos::COSValue* results, int inputCount,
                               const vcos::COSValue* inputs);

// Takes the object off the inputs and calls the handler with the rest. Without an instance vcosGetScalarObjectValue
// raises, so the handler never sees null.
template <class Instance>
void callHandler(MethodHandler<Instance> handler, vcos::InternedName classKey, int resultCount, vcos::COSValue* results,
                 int inputCount, const vcos::COSValue* inputs) {
    handler(static_cast<Instance>(vcos::vcosGetScalarObjectValue(classKey, inputs[0])), resultCount, results,
            inputCount - 1, inputs + 1);
}

// A method that delivers as many results as the caller wants.
template <class Instance>
class COSMethodCLNRN final : public vcos::COSMethodBase {
public:
    COSMethodCLNRN(vcos::InternedName className, vcos::InternedName methodName, vcos::MemberAccess access,
                   std::unique_ptr<vcos::COSMethodSignature> signature, MethodHandler<Instance> handler)
        : COSMethodBase(className, methodName, access, nullptr), Handler(handler) {
        setMethodSignature(signature.release());
    }
    ~COSMethodCLNRN() override = default;

    void invoke(int& resultCount, vcos::COSValue* results, int inputCount, const vcos::COSValue* inputs) override {
        callHandler(Handler, className(), resultCount, results, inputCount, inputs);
    }

private:
    MethodHandler<Instance> Handler;
};

// A method that always delivers a first result, even to a caller who asks for none.
template <class Instance>
class COSMethodWithAnsCLNRN final : public vcos::COSMethodBase {
public:
    COSMethodWithAnsCLNRN(vcos::InternedName className, vcos::InternedName methodName, vcos::MemberAccess access,
                          std::unique_ptr<vcos::COSMethodSignature> signature, MethodHandler<Instance> handler)
        : COSMethodBase(className, methodName, access, nullptr), Handler(handler) {
        setMethodSignature(signature.release());
    }
    ~COSMethodWithAnsCLNRN() override = default;

    void invoke(int& resultCount, vcos::COSValue* results, int inputCount, const vcos::COSValue* inputs) override {
        if (resultCount == 0) {
            resultCount = 1;
        }
        callHandler(Handler, className(), resultCount, results, inputCount, inputs);
    }

private:
    MethodHandler<Instance> Handler;
};

// The accessors of one property. What a getter returns belongs to the instance unless there is a releaser, which is
// called with it once the host has finished.
template <class Native, class T>
struct PropertyAccessors {
    using Value = T;
    T (*Getter)(Native&) = nullptr;
    void (*Setter)(Native&, T) = nullptr;   // null: the property cannot be set
    void (*Releaser)(Native&, T) = nullptr; // null: nothing to release
};

// A property of native type T.
template <class Native, class T>
class COSPropCPPT final : public vcos::COSPropT {
public:
    COSPropCPPT(vcos::InternedName className, vcos::InternedName propertyName, vcos::COSDataTypePtr type,
                std::uint32_t attributes, const char* description, PropertyAccessors<Native, T> accessors)
        : COSPropT(className, propertyName, std::move(type), vcos::MemberAccess::Public, vcos::MemberAccess::Public,
                   attributes, description),
          Getter(accessors.Getter), Setter(accessors.Setter), Releaser(accessors.Releaser) {}
    ~COSPropCPPT() override = default;

    void getPropertyValue(vcos::COSInterface& object, vcos::COSValue& value) override {
        ValueSlot<T>::write(value, Getter(instanceOf(object)));
    }
    // Not called if hasSetter returns false.
    void setPropertyValue(vcos::COSInterface& object, const vcos::COSValue& value) override {
        Setter(instanceOf(object), ValueSlot<T>::read(value));
    }
    void releasePropertyValue(vcos::COSInterface& object, const vcos::COSValue& value) override {
        if (Releaser != nullptr) {
            Releaser(instanceOf(object), ValueSlot<T>::read(value));
        }
    }
    bool hasSetter() const override { return Setter != nullptr; }

private:
    Native& instanceOf(vcos::COSInterface& object) const {
        return *requireInstance<Native*>(object.getInstanceData(className()));
    }

    T (*Getter)(Native&);
    void (*Setter)(Native&, T);
    void (*Releaser)(Native&, T);
};

} // namespace netrove
