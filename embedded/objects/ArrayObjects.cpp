// Object and enumeration arrays, and the is-a test.
#include "embedded/arrays/Array.h"
#include "embedded/objects/HostObject.h"
#include "embedded/scope/Scope.h"

#include <cstring>
#include <utility>

namespace vantik::detail {

namespace {

const EnumerationContents* enumerationContents(const vxArray_tag* array) noexcept {
    if (!array || !array->Contents || array->Contents->ClassId != vxENUMERATION_CLASS) {
        return nullptr;
    }
    return static_cast<const EnumerationContents*>(array->Contents.get());
}

// The scope that knows the class of an array: that of its objects, wherever the caller is, else the caller's. Null for
// a class that derives from nothing, and outside every scope.
const Scope* definingScope(const vxArray_tag* array) {
    const vxClassID classId = array->Contents->ClassId;
    if (classId != vxOBJECT_CLASS && classId != vxENUMERATION_CLASS) {
        return nullptr;
    }
    const auto& objects = objectElements(array);
    if (!objects.empty() && objects.front()) {
        return HostObject::of(*objects.front().get()).scope().get();
    }
    return Scope::currentOrNull();
}

std::size_t rowsFor(std::size_t elements) noexcept {
    return elements == 0 ? 0 : 1;
}

} // namespace

ObjectContents::ObjectContents(std::string name, std::vector<vcos::COSInterfacePtr> elements)
    : ArrayContents(vxOBJECT_CLASS, rowsFor(elements.size()), elements.size()), Name(std::move(name)),
      Elements(std::move(elements)) {}

EnumerationContents::EnumerationContents(std::string name, std::vector<std::string> members)
    : ArrayContents(vxENUMERATION_CLASS, rowsFor(members.size()), members.size()), Name(std::move(name)),
      Members(std::move(members)) {}

vxArray_tag* makeObjectArray(const std::string& className, std::vector<vcos::COSInterfacePtr> elements) {
    return makeArray(new ObjectContents(className, std::move(elements)));
}

vxArray_tag* makeEnumerationArray(const std::string& className, std::vector<std::string> members) {
    return makeArray(new EnumerationContents(className, std::move(members)));
}

const std::vector<vcos::COSInterfacePtr>& objectElements(const vxArray_tag* array) {
    static const std::vector<vcos::COSInterfacePtr> none;
    if (!array || !array->Contents || array->Contents->ClassId != vxOBJECT_CLASS) {
        return none;
    }
    return static_cast<const ObjectContents*>(array->Contents.get())->Elements;
}

} // namespace vantik::detail

namespace matrix::detail::noninlined::vx_array_api {

bool vxIsA(const vxArray_tag* array, const char* className) {
    if (!array || !array->Contents || !className) {
        return false;
    }
    const char* ownName = array->Contents->className();
    if (std::strcmp(ownName, className) == 0) {
        return true;
    }
    const vantik::detail::Scope* scope = vantik::detail::definingScope(array);
    return scope && scope->Classes.derivesFrom(ownName, className);
}

} // namespace matrix::detail::noninlined::vx_array_api

std::size_t omGetNumberOfElementsInUnderlyingArray(const vxArray_tag* array) {
    const auto* contents = vantik::detail::enumerationContents(array);
    return contents ? contents->Count : 0;
}

const std::string* omGetEnumerationID(const vxArray_tag* array, std::size_t index) {
    const auto* contents = vantik::detail::enumerationContents(array);
    if (!contents || index >= contents->Count) {
        return nullptr;
    }
    return vcos::internal::makeInterned(std::string(contents->Members[index]));
}
