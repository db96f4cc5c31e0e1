// What the bases of the information classes do by themselves, and the storage that a library shares with them.
#include "embedded/classes/MethodSignature.h"
#include "embedded/messages/HostFailure.h"
#include "host/ClassSystem.h"
#include "host/Heap.h"

#include <cstdlib>
#include <utility>

namespace vcos {

namespace {

std::string textOf(InternedName name) {
    return name ? *name : std::string();
}
std::string textOf(const char* text) {
    return text ? text : std::string();
}

} // namespace

// One heap with `calloc` and `utFree`, so that either side may release what the other one made. The operators are
// noexcept: a new expression then yields null where there is no memory.
void* COSNamespaceInfo::operator new(std::size_t size) noexcept {
    return std::malloc(size);
}
void COSNamespaceInfo::operator delete(void* block) noexcept {
    utFree(block);
}
void* COSMethodInfo::operator new(std::size_t size) noexcept {
    return std::malloc(size);
}
void COSMethodInfo::operator delete(void* block) noexcept {
    utFree(block);
}
void* COSClassInfo::operator new(std::size_t size) noexcept {
    return std::malloc(size);
}
void COSClassInfo::operator delete(void* block) noexcept {
    utFree(block);
}
void COSPropInfo::operator delete(void* block) noexcept {
    utFree(block);
}

COSNamespaceInfo::~COSNamespaceInfo() = default;
std::string COSNamespaceInfo::getDescription() const {
    return {};
}
std::string COSNamespaceInfo::getDetailedDescription() const {
    return getDescription();
}
bool COSNamespaceInfo::attemptToLoadInnerNamespace(InternedName) {
    return false;
}
bool COSNamespaceInfo::attemptToLoadSubPackage(InternedName) {
    return false;
}
void COSNamespaceInfo::throwErrorForDefinitionOfExistingName(InternedName name) const {
    vantik::detail::raiseHostFailure("VANTIK:vcos", "PackageExists", {textOf(name)});
}
bool COSNamespaceInfo::attemptToLoadClass(InternedName) {
    return false;
}
bool COSNamespaceInfo::attemptToLoadFunction(InternedName) {
    return false;
}
bool COSNamespaceInfo::attemptToLoadType(InternedName) {
    return false;
}
void* COSNamespaceInfo::getMethodSelector() const {
    return nullptr;
}
void COSNamespaceInfo::unloadDynamicContent() {}
void COSNamespaceInfo::initializePackage(COSPackage&) {}
bool COSNamespaceInfo::isDestructible() const {
    return true;
}
bool COSNamespaceInfo::isLocked() const {
    return false;
}
bool COSNamespaceInfo::canLoadDynamicContent() const {
    return false;
}

COSMethodSignature* COSMethodSignature::createMethodSignature() {
    return new vantik::detail::MethodSignature;
}
COSMethodSignature::~COSMethodSignature() = default;

COSMethodInfo::~COSMethodInfo() = default;
std::string COSMethodInfo::getDescription() const {
    return {};
}
bool COSMethodInfo::isLookupScope() const {
    return false;
}
std::string COSMethodInfo::getDetailedDescription() const {
    return getDescription();
}
MemberAccess COSMethodInfo::getMemberAccess() const {
    return MemberAccess::Public;
}
int COSMethodInfo::getExtendedAccess() const {
    return 0;
}
bool COSMethodInfo::isFirstArgDispatch() const {
    return true;
}
bool COSMethodInfo::isStatic() const {
    return false;
}
bool COSMethodInfo::isAbstract() const {
    return false;
}
bool COSMethodInfo::isSealed() const {
    return false;
}
bool COSMethodInfo::isVisible() const {
    return true;
}
bool COSMethodInfo::isDestructible() const {
    return true;
}
bool COSMethodInfo::isLocked() const {
    return false;
}
bool COSMethodInfo::isExplicit() const {
    return false;
}
bool COSMethodInfo::doesMethodOverrideAllSignatures() const {
    return false;
}

COSMethodBase::COSMethodBase(InternedName className, InternedName methodName, MemberAccess access,
                             const char* description)
    : ClassName(className), MethodName(methodName), Access(access), Description(textOf(description)) {}
COSMethodBase::~COSMethodBase() = default;
std::string COSMethodBase::getName() const {
    return textOf(MethodName);
}
std::string COSMethodBase::getDescription() const {
    return Description;
}
MemberAccess COSMethodBase::getMemberAccess() const {
    return Access;
}
const COSMethodSignature* COSMethodBase::getMethodSignature() const {
    return Signature.get();
}
void COSMethodBase::setMethodSignature(COSMethodSignature* signature) {
    Signature.reset(signature);
}

COSPropInfo::~COSPropInfo() = default;
bool COSPropInfo::isWeakReference() const {
    return false;
}
bool COSPropInfo::canContainInterfaces() const {
    return false;
}
bool COSPropInfo::hasSetter() const {
    return true;
}

COSPropT::COSPropT(InternedName className, InternedName propertyName, COSDataTypePtr type, MemberAccess getAccess,
                   MemberAccess setAccess, std::uint32_t attributes, const char* description)
    : ClassName(className), PropertyName(propertyName), Type(std::move(type)), GetAccess(getAccess),
      SetAccess(setAccess), Attributes(attributes), Description(textOf(description)) {}
COSPropT::~COSPropT() = default;
InternedName COSPropT::getName() const {
    return PropertyName;
}
std::string COSPropT::getDescription() const {
    return Description;
}
COSDataTypePtr COSPropT::getDataType() const {
    return Type;
}
MemberAccess COSPropT::getGetAccess() const {
    return GetAccess;
}
MemberAccess COSPropT::getSetAccess() const {
    return SetAccess;
}
std::uint32_t COSPropT::getAttributes() const {
    return Attributes;
}

COSClassInfo::~COSClassInfo() = default;
std::string COSClassInfo::getDescription() const {
    return {};
}
std::string COSClassInfo::getDetailedDescription() const {
    return getDescription();
}
MemberAccess COSClassInfo::getAccess() const {
    return MemberAccess::Public;
}
void* COSClassInfo::updateInstance(void* instance) {
    return instance;
}
bool COSClassInfo::isConstructible() const {
    return false;
}
bool COSClassInfo::isHidden() const {
    return false;
}
bool COSClassInfo::isCompatibleInexactProperties() const {
    return false;
}
bool COSClassInfo::isFullNameDisplayed() const {
    return true;
}
bool COSClassInfo::isPropertyNameReservedByThisClass(InternedName) const {
    return false;
}
bool COSClassInfo::canOtherClassContainThisClass(InternedName) const {
    return true;
}
bool COSClassInfo::canThisClassContainOtherClass(InternedName) const {
    return true;
}
bool COSClassInfo::isHandle() const {
    return false;
}
bool COSClassInfo::isHandleCompatible() const {
    return isHandle();
}
bool COSClassInfo::isEnumeration() const {
    return false;
}
MemberAccess COSClassInfo::getConnectAccess() const {
    return MemberAccess::Public;
}
int COSClassInfo::getConnectivity() const {
    return 0;
}
bool COSClassInfo::areChildrenSaved() const {
    return false;
}
bool COSClassInfo::isAbstract() const {
    return false;
}
bool COSClassInfo::useClassDefaultsOnLoad() const {
    return false;
}
bool COSClassInfo::isTransient() const {
    return false;
}
bool COSClassInfo::isPropertyTruncationAllowed() const {
    return false;
}
bool COSClassInfo::isConstructedOnLoad() const {
    return false;
}
bool COSClassInfo::arePropertiesCaseInsensitive() const {
    return false;
}
bool COSClassInfo::isInstanceLeaf() const {
    return true;
}
bool COSClassInfo::isDestructible() const {
    return true;
}
bool COSClassInfo::isLocked() const {
    return false;
}
void COSClassInfo::instanceLoaded(void*) {}
bool COSClassInfo::customSave(void*) {
    return false;
}
bool COSClassInfo::customLoad(void*) {
    return false;
}
std::string COSClassInfo::getModule() const {
    return {};
}
bool COSClassInfo::areClassFunctionsAllowed() const {
    return true;
}
bool COSClassInfo::areExtensionMethodsAllowed() const {
    return false;
}
bool COSClassInfo::usesRootRecords() const {
    return false;
}
bool COSClassInfo::doEventsHaveSeparateNamespace() const {
    return false;
}
bool COSClassInfo::doesInexactPropertyNameIssueWarning() const {
    return false;
}
bool COSClassInfo::usesCustomChildrenList() const {
    return false;
}
int COSClassInfo::getArrayNature() const {
    return 0;
}
std::vector<void*> COSClassInfo::getChildrenOfInstance(void*) {
    return {};
}
bool COSClassInfo::classIsAbstract() const {
    return false;
}
bool COSClassInfo::allowInstanceUpdates() const {
    return false;
}
bool COSClassInfo::isIDConsistent() const {
    return true;
}
void COSClassInfo::copyData(void*, void*) {}
bool COSClassInfo::willAllocateData() const {
    return false;
}

COSClass::~COSClass() = default;
COSPackage::~COSPackage() = default;
COSInterface::~COSInterface() = default;

} // namespace vcos
