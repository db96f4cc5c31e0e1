#include "tests/hostclass/HostCalls.h"

#include <cerrno>
#include <cstddef>
#include <new>
#include <pthread.h>
#include <stdexcept>

namespace {

HostCalls* gCurrent = nullptr;

// What the test has put in the place of a function, or else the function itself.
template <class Replacement, class Real, class... Arguments>
auto replaced(Replacement HostCalls::*replacement, Real* real, Arguments&... arguments) {
    return gCurrent != nullptr && gCurrent->*replacement ? (gCurrent->*replacement)(arguments...) : real(arguments...);
}

// Null for the call that is to fail.
template <class Real, class... Arguments>
void* allocated(int HostCalls::*failing, Real* real, Arguments... arguments) noexcept {
    const bool fails = gCurrent != nullptr && gCurrent->*failing > 0 && --(gCurrent->*failing) == 0;
    return fails ? nullptr : real(arguments...);
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

// The names are the linker's: a call of `name` comes to `__wrap_name`, and `__real_name` is the function itself.
// Visible, since the sanitizers' own library refers to some of these functions as well, and the linker takes that for a
// reference to the wrapper.
#define STAND_IN(Result, name, parameters, result)                                                                     \
    Result __real_##name parameters;                                                                                   \
    __attribute__((visibility("default"))) Result __wrap_##name parameters {                                           \
        constexpr auto real = __real_##name;                                                                           \
        return result;                                                                                                 \
    }

extern "C" {

STAND_IN(vcos::COSPackage*, _ZN4vcos10COSPackage12getNamespaceEPKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE,
         (vcos::InternedName name), replaced(&HostCalls::OnGetNamespace, real, name))
STAND_IN(void, _ZN4vcos10COSPackage12addNamespaceEPNS_16COSNamespaceInfoE, (vcos::COSNamespaceInfo * description),
         replaced(&HostCalls::OnAddNamespace, real, description))
STAND_IN(vcos::COSClass*, _ZN4vcos8COSClass8getClassEPKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE,
         (vcos::InternedName name), replaced(&HostCalls::OnGetClass, real, name))
STAND_IN(void, _ZN6matrix6detail18do_legacy_vx_errorERKN10foundation4core6except14IUserExceptionE,
         (const foundation::core::except::IUserException& failure), replaced(&HostCalls::OnLegacyError, real, failure))
STAND_IN(void, _ZN7netrove14HTTPConnection6setURLERKNSt7__cxx1112basic_stringIDsSt11char_traitsIDsESaIDsEEE,
         (netrove::HTTPConnection * connection, const std::u16string& url),
         replaced(&HostCalls::OnSetUrl, real, connection, url))

STAND_IN(void*, _ZN4vcos12COSClassInfonwEm, (std::size_t size) noexcept,
         allocated(&HostCalls::FailingClassInfo, real, size))
STAND_IN(void*, _ZN4vcos13COSMethodInfonwEm, (std::size_t size) noexcept,
         allocated(&HostCalls::FailingMethodInfo, real, size))
STAND_IN(void*, _ZnwmRKSt9nothrow_t, (std::size_t size, const std::nothrow_t& tag) noexcept,
         allocated(&HostCalls::FailingInstance, real, size, tag))
STAND_IN(void*, calloc, (std::size_t count, std::size_t size),
         allocated(&HostCalls::FailingPropertyBlock, real, count, size))

STAND_IN(int, pthread_once, (pthread_once_t * flag, void (*routine)()),
         gCurrent != nullptr && gCurrent->OncePrimitiveFails ? EAGAIN : real(flag, routine))

} // extern "C"

vcos::COSPackage* HostCalls::hostNamespace(vcos::InternedName fullName) {
    return __real__ZN4vcos10COSPackage12getNamespaceEPKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE(fullName);
}
