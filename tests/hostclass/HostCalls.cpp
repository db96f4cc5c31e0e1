#include "tests/hostclass/HostCalls.h"

#include "transfer/HTTPConnection.h"

#include <cerrno>
#include <cstddef>
#include <new>
#include <pthread.h>
#include <stdexcept>

using namespace netrove;

namespace {

HostCalls* gCurrent = nullptr;

// True for the call that is to fail.
bool takesTurn(int HostCalls::*failing) noexcept {
    return gCurrent != nullptr && gCurrent->*failing > 0 && --(gCurrent->*failing) == 0;
}

std::string textOf(vcos::InternedName name) {
    return name == nullptr ? std::string() : *name;
}

} // namespace

HostCalls::HostCalls() {
    if (gCurrent != nullptr) {
        throw std::logic_error("one at a time");
    }
    gCurrent = this;
}

HostCalls::~HostCalls() {
    gCurrent = nullptr;
}

HostCalls* HostCalls::current() noexcept {
    return gCurrent;
}

// The names are the linker's: a call of `name` comes to `__wrap_name`, and `__real_name` is the function itself.
#define GET_NAMESPACE(prefix)                                                                                          \
    prefix##_ZN4vcos10COSPackage12getNamespaceEPKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE
#define ADD_NAMESPACE(prefix) prefix##_ZN4vcos10COSPackage12addNamespaceEPNS_16COSNamespaceInfoE
#define GET_CLASS(prefix) prefix##_ZN4vcos8COSClass8getClassEPKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE
#define LEGACY_ERROR(prefix) prefix##_ZN6matrix6detail18do_legacy_vx_errorERKN10foundation4core6except14IUserExceptionE
#define SET_URL(prefix)                                                                                                \
    prefix##_ZN7netrove14HTTPConnection6setURLERKNSt7__cxx1112basic_stringIDsSt11char_traitsIDsESaIDsEEE
#define NEW_CLASS_INFO(prefix) prefix##_ZN4vcos12COSClassInfonwEm
#define NEW_METHOD_INFO(prefix) prefix##_ZN4vcos13COSMethodInfonwEm
#define NEW_OR_NULL(prefix) prefix##_ZnwmRKSt9nothrow_t

// Visible, since the sanitizers' own library refers to these functions as well, and the linker takes that for a
// reference to the wrapper.
#define WRAPPER_OF_LIBRARIES __attribute__((visibility("default")))

extern "C" {

vcos::COSPackage* GET_NAMESPACE(__real_)(vcos::InternedName name);
vcos::COSPackage* GET_NAMESPACE(__wrap_)(vcos::InternedName name) {
    return gCurrent != nullptr && gCurrent->OnGetNamespace ? gCurrent->OnGetNamespace(textOf(name))
                                                           : GET_NAMESPACE(__real_)(name);
}

void ADD_NAMESPACE(__real_)(vcos::COSNamespaceInfo* description);
void ADD_NAMESPACE(__wrap_)(vcos::COSNamespaceInfo* description) {
    if (gCurrent != nullptr && gCurrent->OnAddNamespace) {
        gCurrent->OnAddNamespace(description);
    } else {
        ADD_NAMESPACE(__real_)(description);
    }
}

vcos::COSClass* GET_CLASS(__real_)(vcos::InternedName name);
vcos::COSClass* GET_CLASS(__wrap_)(vcos::InternedName name) {
    return gCurrent != nullptr && gCurrent->OnGetClass ? gCurrent->OnGetClass(textOf(name)) : GET_CLASS(__real_)(name);
}

void LEGACY_ERROR(__real_)(const foundation::core::except::IUserException& failure);
void LEGACY_ERROR(__wrap_)(const foundation::core::except::IUserException& failure) {
    if (gCurrent != nullptr && gCurrent->OnLegacyError) {
        gCurrent->OnLegacyError(failure);
    } else {
        LEGACY_ERROR(__real_)(failure);
    }
}

void SET_URL(__real_)(HTTPConnection* connection, const std::u16string& url);
void SET_URL(__wrap_)(HTTPConnection* connection, const std::u16string& url) {
    if (gCurrent != nullptr && gCurrent->OnSetUrl) {
        gCurrent->OnSetUrl(url);
    } else {
        SET_URL(__real_)(connection, url);
    }
}

void* NEW_CLASS_INFO(__real_)(std::size_t size) noexcept;
void* NEW_CLASS_INFO(__wrap_)(std::size_t size) noexcept {
    return takesTurn(&HostCalls::FailingClassInfo) ? nullptr : NEW_CLASS_INFO(__real_)(size);
}

void* NEW_METHOD_INFO(__real_)(std::size_t size) noexcept;
void* NEW_METHOD_INFO(__wrap_)(std::size_t size) noexcept {
    return takesTurn(&HostCalls::FailingMethodInfo) ? nullptr : NEW_METHOD_INFO(__real_)(size);
}

void* NEW_OR_NULL(__real_)(std::size_t size, const std::nothrow_t& tag) noexcept;
WRAPPER_OF_LIBRARIES void* NEW_OR_NULL(__wrap_)(std::size_t size, const std::nothrow_t& tag) noexcept {
    return takesTurn(&HostCalls::FailingInstance) ? nullptr : NEW_OR_NULL(__real_)(size, tag);
}

void* __real_calloc(std::size_t count, std::size_t size);
WRAPPER_OF_LIBRARIES void* __wrap_calloc(std::size_t count, std::size_t size) {
    return takesTurn(&HostCalls::FailingPropertyBlock) ? nullptr : __real_calloc(count, size);
}

int __real_pthread_once(pthread_once_t* flag, void (*routine)());
WRAPPER_OF_LIBRARIES int __wrap_pthread_once(pthread_once_t* flag, void (*routine)()) {
    return gCurrent != nullptr && gCurrent->OncePrimitiveFails ? EAGAIN : __real_pthread_once(flag, routine);
}

} // extern "C"

vcos::COSPackage* HostCalls::hostNamespace(const std::string& fullName) {
    return GET_NAMESPACE(__real_)(vcos::internal::makeInterned(std::string(fullName)));
}
