#include "vantik/Binding.h"

#include "embedded/arrays/Array.h"
#include "embedded/classes/ClassDefinition.h"
#include "embedded/messages/HostFailure.h"
#include "embedded/objects/HostObject.h"
#include "embedded/objects/ObjectCalls.h"
#include "embedded/program/Boundary.h"
#include "embedded/program/CallableClass.h"
#include "embedded/scope/Scope.h"

#include <utility>

namespace vantik {

namespace {

struct ElementRow {
    ElementClass Kind;
    vxClassID ClassId;
};

constexpr ElementRow kElementRows[] = {
    {ElementClass::Logical, vxLOGICAL_CLASS}, {ElementClass::Uint8, vxUINT8_CLASS},
    {ElementClass::Int32, vxINT32_CLASS},     {ElementClass::Uint64, vxUINT64_CLASS},
    {ElementClass::Double, vxDOUBLE_CLASS},
};

// The value of an object; null where its class has none.
std::shared_ptr<void>* valueIn(const Object& object) {
    return detail::runForProgram([&]() -> std::shared_ptr<void>* {
        const vcos::COSInterfacePtr target = detail::scalarObject(object.array().handle());
        if (!target) {
            detail::raiseHostFailure("VANTIK:vcos", "NoObject", {});
        }
        detail::HostObject& carrier = detail::HostObject::of(*target.get()); // the argument keeps it alive
        const detail::ClassDefinition& definition = carrier.definition();
        if (dynamic_cast<const detail::CallableClassInfo*>(&definition.description()) == nullptr) {
            return nullptr;
        }
        const detail::ScopeEntry entry(carrier.scope());
        return static_cast<std::shared_ptr<void>*>(
            carrier.getInstanceData(detail::Scope::current().Names.intern(definition.name())));
    });
}

} // namespace

Array makeElements(ElementClass kind, std::size_t rows, std::size_t columns) {
    for (const ElementRow& row : kElementRows) {
        if (row.Kind == kind) {
            return Array::adopt(detail::makePlain(row.ClassId, rows, columns));
        }
    }
    return {};
}

std::optional<ElementClass> elementClass(const Array& array) {
    const detail::PlainContents* contents = detail::plainContents(array.handle());
    for (const ElementRow& row : kElementRows) {
        if (contents && row.ClassId == contents->ClassId) {
            return row.Kind;
        }
    }
    return std::nullopt;
}

std::span<const std::byte> elements(const Array& array) {
    if (!elementClass(array)) {
        return {};
    }
    const detail::PlainContents* contents = detail::plainContents(array.handle());
    return {contents->elements<std::byte>(), contents->byteCount()};
}

std::span<std::byte> writableElements(Array& array) {
    if (!elementClass(array)) {
        return {};
    }
    detail::PlainContents* contents = detail::writablePlainContents(const_cast<vxArray_tag*>(array.handle()));
    return {contents->elements<std::byte>(), contents->byteCount()};
}

std::optional<std::vector<std::string>> members(const Array& array) {
    const vxArray_tag* handle = array.handle();
    if (!handle || matrix::detail::noninlined::vx_array_api::vxGetClassID(handle) != vxENUMERATION_CLASS) {
        return std::nullopt;
    }
    return static_cast<const detail::EnumerationContents&>(*handle->Contents).Members;
}

bool attach(const Object& object, std::shared_ptr<void> value) {
    std::shared_ptr<void>* const place = valueIn(object);
    if (place) {
        *place = std::move(value);
    }
    return place != nullptr;
}

std::shared_ptr<void> attached(const Object& object) {
    const std::shared_ptr<void>* const place = valueIn(object);
    return place ? *place : nullptr;
}

} // namespace vantik
