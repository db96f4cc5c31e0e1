#include "tests/recorded/HostOperations.h"

#include "host/ArrayApi.h"
#include "host/ClassSystem.h"
#include "host/Iri.h"
#include "host/Messages.h"
#include "host/Services.h"
#include "host/SingletonStore.h"
#include "host/State.h"
#include "host/Text.h"

#include <memory>
#include <new>
#include <string>
#include <typeinfo>
#include <utility>

namespace testsupport {
namespace {

thread_local HostOperations* theOperations = nullptr; // servers of a test run on threads of their own

struct Injected : resource_core::BaseMsgID {
    Injected() : BaseMsgID({}, "VANTIK:test", "Injected") {}
};

[[noreturn]] void fail(HostFault fault) {
    switch (fault) {
    case HostFault::OutOfMemory:
        throw std::bad_alloc();
    case HostFault::UnknownException:
        throw 42;
    default:
        throw foundation::core::except::Exception<Injected, std::exception, void>(Injected());
    }
}

} // namespace

HostOperations::HostOperations() {
    theOperations = this;
}

HostOperations::~HostOperations() {
    theOperations = nullptr;
}

void HostOperations::start(std::size_t nth, HostFault fault) {
    Calls.clear();
    Failed = false;
    FailAt = nth;
    Fault = fault;
    Recording = true;
}

void HostOperations::enter(const char* name) {
    HostOperations* self = theOperations;
    if (self == nullptr || !self->Recording) {
        return;
    }
    self->Calls.emplace_back(name);
    if (self->Calls.size() == self->FailAt) {
        self->Failed = true;
        fail(self->Fault);
    }
}

} // namespace testsupport

// The wrapped operations. Their names are the linker's: a call of an operation comes to `__wrap_` and its mangled name,
// and `__real_` and that name is the operation itself. The build reads the names from these rows.
using HostString = std::unique_ptr<vxArray_tag, matrix::vxDestroy_deleter>;
using HostFramework = std::shared_ptr<cppmicroservices::Framework>;

#define HOST_OPERATION(name, symbol, Result, parameters, arguments)                                                    \
    Result real_##symbol parameters __asm__("__real_" #symbol);                                                        \
    Result wrap_##symbol parameters __asm__("__wrap_" #symbol);                                                        \
    Result wrap_##symbol parameters {                                                                                  \
        testsupport::HostOperations::enter(name);                                                                      \
        return real_##symbol arguments;                                                                                \
    }

// clang-format off
HOST_OPERATION("get_string", _ZN6matrix10get_stringB5cxx11EPK11vxArray_tag, std::string, (const vxArray_tag* array), (array))
HOST_OPERATION("get_ustring", _ZN6matrix11get_ustringB5cxx11EPK11vxArray_tag, std::u16string, (const vxArray_tag* array), (array))
HOST_OPERATION("create", _ZN6matrix6createEPKcm, HostString, (const char* text, std::size_t length), (text, length))
HOST_OPERATION("vxGetField", _ZN6matrix6detail10noninlined12vx_array_api10vxGetFieldEPK11vxArray_tagmPKc, vxArray_tag*, (const vxArray_tag* array, std::size_t index, const char* field), (array, index, field))
HOST_OPERATION("vxGetScalar", _ZN6matrix6detail10noninlined12vx_array_api11vxGetScalarEPK11vxArray_tag, double, (const vxArray_tag* array), (array))
HOST_OPERATION("vxCreateString", _ZN6matrix6detail10noninlined12vx_array_api14vxCreateStringEPKc, vxArray_tag*, (const char* text), (text))
HOST_OPERATION("vxSetArrayScope", _ZN6matrix6detail10noninlined12vx_array_api15vxSetArrayScopeEP11vxArray_tag15vxVariableScope, void, (vxArray_tag* array, vxVariableScope scope), (array, scope))
HOST_OPERATION("vxCreateDoubleScalar", _ZN6matrix6detail10noninlined12vx_array_api20vxCreateDoubleScalarEd, vxArray_tag*, (double value), (value))
HOST_OPERATION("vxCreateStructMatrix", _ZN6matrix6detail10noninlined12vx_array_api20vxCreateStructMatrixEmmiPKPKc, vxArray_tag*, (std::size_t rows, std::size_t columns, int count, const char* const* names), (rows, columns, count, names))
HOST_OPERATION("vxCreateNumericMatrix", _ZN6matrix6detail10noninlined12vx_array_api21vxCreateNumericMatrixEmm9vxClassID12vxComplexity, vxArray_tag*, (std::size_t rows, std::size_t columns, vxClassID id, vxComplexity complexity), (rows, columns, id, complexity))
HOST_OPERATION("vxCreateSharedDataCopy", _ZN6matrix6detail10noninlined12vx_array_api22vxCreateSharedDataCopyEPK11vxArray_tag, vxArray_tag*, (const vxArray_tag* array), (array))
HOST_OPERATION("vxCreateEmptyUnknownArrayNotOnArrayList", _ZN6matrix6detail10noninlined12vx_array_api39vxCreateEmptyUnknownArrayNotOnArrayListEv, vxArray_tag*, (), ())
HOST_OPERATION("vxIsA", _ZN6matrix6detail10noninlined12vx_array_api5vxIsAEPK11vxArray_tagPKc, bool, (const vxArray_tag* array, const char* className), (array, className))
HOST_OPERATION("vxWarningMsgId", _ZN6matrix6detail10noninlined12vx_array_api14vxWarningMsgIdERKN13resource_core9BaseMsgIDE, void, (const resource_core::BaseMsgID& id), (id))
HOST_OPERATION("omCallMethod", _Z12omCallMethodPKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEES6_PN4vcos9COSClientEiPP11vxArray_tagiSC_b, bool, (vcos::InternedName className, vcos::InternedName method, vcos::COSClient* client, int resultCount, vxArray_tag** results, int inputCount, vxArray_tag** inputs, bool flag), (className, method, client, resultCount, results, inputCount, inputs, flag))
HOST_OPERATION("omGetNumberOfElementsInUnderlyingArray", _Z38omGetNumberOfElementsInUnderlyingArrayPK11vxArray_tag, std::size_t, (const vxArray_tag* array), (array))
HOST_OPERATION("omGetEnumerationID", _Z18omGetEnumerationIDB5cxx11PK11vxArray_tagm, vcos::InternedName, (const vxArray_tag* array, std::size_t index), (array, index))
HOST_OPERATION("makeInterned", _ZN4vcos8internal12makeInternedEONSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE, vcos::InternedName, (std::string&& text), (std::move(text)))
HOST_OPERATION("getFramework", _ZN10foundation16cppmicroservices12getFrameworkEv, HostFramework, (), ())
HOST_OPERATION("find", _ZN10foundation3usm6DetailINS0_5scope3VvmEE4findEmRKSt9type_info, foundation::usm::Holder*, (std::size_t key, const std::type_info& type), (key, type))
HOST_OPERATION("findOrInsert", _ZN10foundation3usm6DetailINS0_5scope3VvmEE12findOrInsertEmRKSt9type_infoOSt10unique_ptrIvPFvPvEE, foundation::usm::Holder*, (std::size_t key, const std::type_info& type, foundation::usm::Holder&& holder), (key, type, std::move(holder)))
HOST_OPERATION("IRI", _ZN10foundation7network3IRIC1ERKNSt7__cxx1112basic_stringIDsSt11char_traitsIDsESaIDsEEE, void, (foundation::network::IRI* self, const std::u16string& text), (self, text))
HOST_OPERATION("IRI from IRIArgs", _ZN10foundation7network3IRIC1ERKNS0_7IRIArgsE, void, (foundation::network::IRI* self, const foundation::network::IRIArgs& parts), (self, parts))
HOST_OPERATION("toAsciiString", _ZNK10foundation7network3IRI13toAsciiStringB5cxx11Eb, std::u16string, (const foundation::network::IRI* self, bool flag), (self, flag))
HOST_OPERATION("resolveAgainst", _ZNK10foundation7network3IRI14resolveAgainstERKS1_, foundation::network::IRI, (const foundation::network::IRI* self, const foundation::network::IRI& base), (self, base))
HOST_OPERATION("getHost", _ZNK10foundation7network3IRI7getHostB5cxx11ENS1_8EncodingE, std::u16string, (const foundation::network::IRI* self, foundation::network::IRI::Encoding encoding), (self, encoding))
HOST_OPERATION("getPath", _ZNK10foundation7network3IRI7getPathB5cxx11Ev, std::u16string, (const foundation::network::IRI* self), (self))
HOST_OPERATION("getQuery", _ZNK10foundation7network3IRI8getQueryB5cxx11Ev, std::u16string, (const foundation::network::IRI* self), (self))
HOST_OPERATION("getScheme", _ZNK10foundation7network3IRI9getSchemeB5cxx11Ev, std::u16string, (const foundation::network::IRI* self), (self))
HOST_OPERATION("to_ustring", _ZN2fl4i18n10to_ustringERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE, std::u16string, (const std::string& text), (text))
HOST_OPERATION("to_string", _ZN2fl4i18n9to_stringERKNSt7__cxx1112basic_stringIDsSt11char_traitsIDsESaIDsEEE, std::string, (const std::u16string& text), (text))
HOST_OPERATION("to_string by a converter", _ZN2fl4i18n9to_stringERKNSt7__cxx1112basic_stringIDsSt11char_traitsIDsESaIDsEEERKNS0_17ustring_converterE, std::string, (const std::u16string& text, const fl::i18n::ustring_converter& converter), (text, converter))
HOST_OPERATION("make_native_access_form_with_cleanup_i18n", _ZN2fl10filesystem6detail41make_native_access_form_with_cleanup_i18nERKNSt7__cxx1112basic_stringIDsSt11char_traitsIDsESaIDsEEE, std::u16string, (const std::u16string& name), (name))
HOST_OPERATION("ImpersonationGuard", _ZN8services5state18ImpersonationGuardC1Ev, void, (services::state::ImpersonationGuard* self), (self))
HOST_OPERATION("vcosGetScalarObjectValue", _ZN4vcos24vcosGetScalarObjectValueEPKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEERKNS_8COSValueE, void*, (vcos::InternedName key, const vcos::COSValue& value), (key, value))
HOST_OPERATION("omGetArrayElement", _Z17omGetArrayElementPK11vxArray_tagm, vcos::COSInterfacePtr, (const vxArray_tag* array, std::size_t index), (array, index))

// Takes ownership of the value, also when it raises.
extern "C" void __real__ZN6matrix6detail10noninlined12vx_array_api10vxSetFieldEP11vxArray_tagmPKcS4_(vxArray_tag* array, std::size_t index, const char* field, vxArray_tag* value);
extern "C" void __wrap__ZN6matrix6detail10noninlined12vx_array_api10vxSetFieldEP11vxArray_tagmPKcS4_(vxArray_tag* array, std::size_t index, const char* field, vxArray_tag* value) {
    HostString owner(value);
    testsupport::HostOperations::enter("vxSetField");
    __real__ZN6matrix6detail10noninlined12vx_array_api10vxSetFieldEP11vxArray_tagmPKcS4_(array, index, field, owner.release());
}
// clang-format on
