// Content providers, content consumers and progress reporters made of plain callables.
#include "embedded/arrays/Array.h"
#include "embedded/classes/ClassDefinition.h"
#include "embedded/classes/ClassRegistry.h"
#include "embedded/classes/HostClasses.h"
#include "embedded/objects/HostObject.h"
#include "embedded/objects/ObjectCalls.h"
#include "embedded/objects/SlotValue.h"
#include "embedded/program/Boundary.h"
#include "embedded/scope/Scope.h"
#include "vantik/Host.h"
#include "vantik/HostClass.h"

#include <new>
#include <optional>
#include <utility>

namespace vantik {

namespace detail {

namespace vx = matrix::detail::noninlined::vx_array_api;

namespace {

constexpr std::string_view kPackage = "vantik.embedded";

struct Reporter {
    ProgressReporter Update;
};

// One method of a role: the callables and the inputs after the object go in, the result slot comes out. The output has
// the given type word; null where the method returns nothing.
template <class Role>
struct RoleMethodRow {
    const char* Name;
    const char* Input;
    const char* Output;
    void (*Run)(Role& role, const vcos::COSValue* inputs, vcos::COSValue& result);
};

// The class of a role: the base class of its objects, its own short name, its methods.
template <class Role>
struct RoleTable;

template <class Callable, class... Arguments>
void runIfSet(const Callable& callable, Arguments&&... arguments) {
    if (callable) {
        runCallable([&] { callable(std::forward<Arguments>(arguments)...); });
    }
}

std::span<const std::byte> bytesIn(const vcos::COSValue& slot) {
    const vxArray_tag* array = arrayIn(slot);
    return {static_cast<const std::byte*>(vx::vxGetData(array)), elementCount(array)};
}

// "Nothing" as a result: the empty array of no class.
vcos::COSValue optionalNumber(std::optional<double> value) {
    return slotOf(value ? makeDouble(*value) : vx::vxCreateEmptyUnknownArrayNotOnArrayList());
}

// The bytes that a provider returned, as the column that the client counts by its rows.
vxArray_tag* contentColumn(Array given) {
    static const TypeWord bytes = *TypeWord::parse("uint8 vector");
    const ArrayOwner content(given.release());
    SlotValue checked(bytes, content.get(), {kContentProviderClass, "getDataInternal", SlotPlace::Role::Output, 1});
    ArrayOwner array(checked.takeArray());
    const std::size_t count = elementCount(array.get());
    if (vx::vxGetDimensions(array.get())[0] != count) {
        array.reset(
            makePlainFrom(vxUINT8_CLASS, count, 1, vx::vxGetData(static_cast<const vxArray_tag*>(array.get()))));
    }
    return array.release();
}

template <>
struct RoleTable<ContentProvider> {
    static constexpr const char* kBase = kContentProviderClass;
    static constexpr const char* kName = "ContentProvider";
    static constexpr RoleMethodRow<ContentProvider> kMethods[] = {
        {"startInternal", nullptr, nullptr,
         [](ContentProvider& role, const vcos::COSValue*, vcos::COSValue&) { runIfSet(role.rewind); }},
        {"getDataInternal", "uint64 scalar", "uint8 vector",
         [](ContentProvider& role, const vcos::COSValue* inputs, vcos::COSValue& result) {
             result = slotOf(contentColumn(runCallable([&] { return role.read(inputs[0].Bits); })));
         }},
    };
};

template <>
struct RoleTable<ContentConsumer> {
    static constexpr const char* kBase = kContentConsumerClass;
    static constexpr const char* kName = "ContentConsumer";
    static constexpr RoleMethodRow<ContentConsumer> kMethods[] = {
        {"startInternal", nullptr, "any",
         [](ContentConsumer& role, const vcos::COSValue*, vcos::COSValue& result) {
             result = optionalNumber(role.start ? runCallable(role.start) : std::nullopt);
         }},
        {"putDataInternal", "uint8 vector", "any",
         [](ContentConsumer& role, const vcos::COSValue* inputs, vcos::COSValue& result) {
             result = optionalNumber(runCallable([&] { return role.write(bytesIn(inputs[0])); }).count());
         }},
        {"closeInternal", nullptr, nullptr,
         [](ContentConsumer& role, const vcos::COSValue*, vcos::COSValue&) { runIfSet(role.close); }},
        {"interruptInternal", nullptr, nullptr,
         [](ContentConsumer& role, const vcos::COSValue*, vcos::COSValue&) { runIfSet(role.interrupted); }},
        {"savePayloadInternal", "uint8 vector", nullptr,
         [](ContentConsumer& role, const vcos::COSValue* inputs, vcos::COSValue&) {
             runIfSet(role.savedOnFailure, bytesIn(inputs[0]));
         }},
    };
};

template <>
struct RoleTable<Reporter> {
    static constexpr const char* kBase = kProgressReporterClass;
    static constexpr const char* kName = "ProgressReporter";
    static constexpr RoleMethodRow<Reporter> kMethods[] = {
        {"update", "uint64 scalar", "logical scalar",
         [](Reporter& role, const vcos::COSValue* inputs, vcos::COSValue& result) {
             result.Bits = runCallable([&] { return role.Update(inputs[0].Bits); }) ? 1 : 0;
         }},
    };
};

template <class Role>
class RoleMethod final : public vcos::COSMethodBase {
public:
    RoleMethod(vcos::InternedName className, const RoleMethodRow<Role>& row)
        : COSMethodBase(className, Scope::current().Names.intern(std::string_view(row.Name)),
                        vcos::MemberAccess::Public, nullptr),
          Row(row) {
        InternTable& names = Scope::current().Names;
        vcos::COSMethodSignature* signature = vcos::COSMethodSignature::createMethodSignature();
        setMethodSignature(signature);
        signature->addInputType(names.intern(*className + " scalar"));
        if (row.Input) {
            signature->addInputType(names.intern(std::string_view(row.Input)));
        }
        if (row.Output) {
            signature->addOutputType(names.intern(std::string_view(row.Output)));
        }
    }

    void invoke(int&, vcos::COSValue* results, int, const vcos::COSValue* inputs) override {
        auto& role = *static_cast<Role*>(vcos::vcosGetScalarObjectValue(className(), inputs[0]));
        Row.Run(role, inputs + 1, results[0]);
    }

private:
    const RoleMethodRow<Role>& Row;
};

// Defined in a scope when its first object is made. The callables are the native instance, so that any number of
// objects needs one class only.
template <class Role>
class RoleClassInfo final : public vcos::COSClassInfo {
public:
    std::string getName() const override { return RoleTable<Role>::kName; }
    void defineClass(vcos::COSClass& definition) override {
        static_cast<ClassDefinition&>(definition).addBaseClass(RoleTable<Role>::kBase);
        for (const RoleMethodRow<Role>& row : RoleTable<Role>::kMethods) {
            definition.addMethod(new RoleMethod<Role>(definition.getFullName(), row));
        }
    }
    void* createInstance() override { return new (std::nothrow) Role; }
    void destroyInstance(void* instance) override { delete static_cast<Role*>(instance); }
    bool isHidden() const override { return true; }
    bool isHandle() const override { return true; }
};

template <class Role>
Object makeRole(Host& host, Role role) {
    const ScopeEntry entry(host.scope());
    ClassRegistry& classes = host.scope()->Classes;
    const std::string name = std::string(kPackage) + "." + RoleTable<Role>::kName;
    std::shared_ptr<ClassDefinition> definition = classes.find(name);
    if (!definition) {
        classes.ensurePackage(kPackage);
        definition = classes.define(kPackage, std::make_unique<RoleClassInfo<Role>>());
    }
    vcos::COSInterfacePtr object = HostObject::make(definition);
    *static_cast<Role*>(object->getInstanceData(definition->getFullName())) = std::move(role);
    return Object(Array::adopt(makeObjectArray(name, {std::move(object)})));
}

template <class Callable>
void requireCallable(const Callable& callable, const char* className, const char* method) {
    if (!callable) {
        raiseHostFailure("VANTIK:vcos", "NoCallable", {std::string(className), std::string(method)});
    }
}

} // namespace

} // namespace detail

Object makeProvider(Host& host, ContentProvider provider) {
    return detail::runForProgram([&] {
        detail::requireCallable(provider.read, detail::kContentProviderClass, "read");
        return detail::makeRole(host, std::move(provider));
    });
}

Object makeConsumer(Host& host, ContentConsumer consumer) {
    return detail::runForProgram([&] {
        detail::requireCallable(consumer.write, detail::kContentConsumerClass, "write");
        return detail::makeRole(host, std::move(consumer));
    });
}

Object makeProgressReporter(Host& host, ProgressReporter reporter) {
    return detail::runForProgram([&] {
        detail::requireCallable(reporter, detail::kProgressReporterClass, "update");
        return detail::makeRole(host, detail::Reporter{std::move(reporter)});
    });
}

} // namespace vantik
