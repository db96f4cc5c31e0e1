#include "hostclass/MethodTable.h"

#include "errors/MessageIdentifiers.h"
#include "host/ArrayApi.h"
#include "host/Text.h"
#include "hostcalls/TextEncoding.h"
#include "hostclass/ContentMethods.h"
#include "hostclass/HTTPConnectionAdapter.h"
#include "hostclass/TransferBoundary.h"
#include "hostclass/ValueConversion.h"

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace netrove {

namespace vx = matrix::detail::noninlined::vx_array_api;

namespace {

using Adapter = HTTPConnectionAdapter;
using Slot = vcos::COSValue;

vxArray_tag* arrayAt(const Slot* inputs, std::size_t index) {
    return ValueSlot<vxArray_tag*>::read(inputs[index]);
}

// Open and close

void openConnection(Adapter* adapter, int, Slot*, int, const Slot*) {
    acrossTransferBoundary(*adapter, [&] { adapter->Connection.openConnection(); });
    adapter->dropReceived(); // it is not part of the content to come
}

void openProxyConnection(Adapter* adapter, int, Slot*, int, const Slot* inputs) {
    constexpr double defaultPort = 80.0;
    const vxArray_tag* proxy = arrayAt(inputs, 0);
    const std::string host = fieldString(proxy, 0, "Host");
    const vxArray_tag* portField = vx::vxGetField(proxy, 0, "Port");
    const double port = portField == nullptr || vx::vxIsEmpty(portField) ? defaultPort : vx::vxGetScalar(portField);
    acrossTransferBoundary(*adapter, [&] { adapter->Connection.openProxyConnection(host, port); });
    adapter->dropReceived();
}

void closeConnection(Adapter* adapter, int, Slot*, int, const Slot*) {
    adapter->Connection.closeConnection();
}

// The handles belong to the scope, so the object does not matter.
void closeAllConnections(Adapter*, int, Slot*, int, const Slot*) {
    HTTPConnection::closeAllConnections();
}

// Request

// An empty name is accepted here, unlike in setFields.
void setRequestProperty(Adapter* adapter, int, Slot*, int, const Slot* inputs) {
    const std::string name = matrix::get_string(arrayAt(inputs, 0));
    const std::string value = matrix::get_string(arrayAt(inputs, 1));
    adapter->Connection.addField(name, value);
}

void setFields(Adapter* adapter, int, Slot*, int, const Slot* inputs) {
    const vxArray_tag* fields = arrayAt(inputs, 0);
    const std::size_t count = arrayElementCount(fields);
    for (std::size_t i = 0; i < count; ++i) {
        const std::string name = toNarrow(fieldUString(fields, i, "Name"), "");
        const std::string value = toNarrow(fieldUString(fields, i, "Value"), "");
        if (name.empty()) {
            // Only the value shows the user which element it was. Those before it stay.
            VANTIK::raise<VANTIK::webservices::EmptyName>(value);
        }
        adapter->Connection.addField(name, value);
    }
}

void removeField(Adapter* adapter, int, Slot*, int, const Slot* inputs) {
    adapter->Connection.removeField(matrix::get_string(arrayAt(inputs, 0)));
}

void setAuthenticationSchemes(Adapter* adapter, int, Slot*, int, const Slot* inputs) {
    const vxArray_tag* schemes = arrayAt(inputs, 0);
    const bool forProxy = ValueSlot<bool>::read(inputs[1]);
    const std::size_t count = omGetNumberOfElementsInUnderlyingArray(schemes);
    std::vector<std::string> names;
    for (std::size_t i = 0; i < count; ++i) {
        const vcos::InternedName member = omGetEnumerationID(schemes, i);
        names.push_back(member != nullptr ? *member : std::string());
    }
    adapter->Connection.setAuthenticationSchemes(names, forProxy);
}

// What was sent, and what came back

void getRequestFields(Adapter* adapter, int, Slot* results, int, const Slot*) {
    const auto& lines = adapter->Connection.SentHead.RequestHeaderLines;
    giveResult(results[0], makeFieldStruct(lines.size(), lines.begin(), lines.end()));
}

void getRequestURI(Adapter* adapter, int, Slot* results, int, const Slot*) {
    giveResult(results[0], makeString(fl::i18n::to_string(adapter->Connection.Settings.URL)));
}

void getRequestMethod(Adapter* adapter, int, Slot* results, int, const Slot*) {
    giveResult(results[0], makeString(adapter->Connection.Settings.RequestMethod));
}

void getResponseFields(Adapter* adapter, int, Slot* results, int, const Slot*) {
    const auto& lines = adapter->Connection.ReceivedHead.ResponseHeaderLines;
    const std::size_t statusLines = lines.empty() ? 0 : 1; // the first line is not a field
    giveResult(results[0], makeFieldStruct(lines.size() - statusLines,
                                           lines.begin() + static_cast<std::ptrdiff_t>(statusLines), lines.end()));
}

// An absent field and one with an empty value both yield the array of no class, not an empty text.
void getResponseField(Adapter* adapter, int, Slot* results, int, const Slot* inputs) {
    const std::string value = adapter->Connection.ReceivedHead.getResponseField(matrix::get_string(arrayAt(inputs, 0)));
    giveResult(results[0],
               value.empty() ? HostArray(vx::vxCreateEmptyUnknownArrayNotOnArrayList()) : makeString(value));
}

// Results: method, target, version. The second and third only if they are asked for; nothing is handed over before all
// of them exist.
void getRequestLine(Adapter* adapter, int resultCount, Slot* results, int, const Slot*) {
    HostArray method = makeString(adapter->Connection.Settings.RequestMethod);
    HostArray target;
    HostArray version;
    if (resultCount >= 2) {
        target = makeString(adapter->Connection.requestTarget());
    }
    if (resultCount >= 3) {
        version = makeString(adapter->Connection.httpVersion());
    }
    giveResult(results[0], std::move(method));
    if (target) {
        giveResult(results[1], std::move(target));
    }
    if (version) {
        giveResult(results[2], std::move(version));
    }
}

// Results: version, status, reason phrase. Asking for the status sends the request if that is due, so a caller who
// wants only the version gets it without sending. The version is taken first, kept on purpose: it is that of the
// request line sent so far.
void getStatusLine(Adapter* adapter, int resultCount, Slot* results, int, const Slot*) {
    HostArray version = makeString(adapter->Connection.httpVersion());
    std::int32_t status = 0;
    HostArray reason;
    if (resultCount >= 2) {
        status = acrossTransferBoundary(*adapter, [&] { return adapter->Connection.getResponseCode(); });
    }
    if (resultCount >= 3) {
        reason = makeString(adapter->Connection.ReceivedHead.reasonPhrase());
    }
    giveResult(results[0], std::move(version));
    if (resultCount >= 2) {
        ValueSlot<int>::write(results[1], status);
    }
    if (reason) {
        giveResult(results[2], std::move(reason));
    }
}

// clang-format off
// Order is the order of registration, and the host sees it.
constexpr MethodRow kMethods[] = {
    {"openConnection",           {},                                             {},                              openConnection, false},
    {"openProxyConnection",      {},                                             {"struct scalar"},               openProxyConnection, false},
    {"closeConnection",          {},                                             {},                              closeConnection, false},
    {"copyContentToByteArray",   {"uint8 vector"},                               {"logical scalar"},              copyContentToByteArray, true},
    {"copyContentToFile",        {},                                             {"char vector"},                 copyContentToFile, false},
    {"setRequestProperty",       {},                                             {"char vector", "char vector"},  setRequestProperty, false},
    {"setFields",                {},                                             {"struct vector"},               setFields, false},
    {"removeField",              {},                                             {"char vector"},                 removeField, false},
    {"getRequestFields",         {"struct vector"},                              {},                              getRequestFields, false},
    {"getRequestURI",            {"char vector"},                                {},                              getRequestURI, false},
    {"getRequestMethod",         {"char vector"},                                {},                              getRequestMethod, false},
    {"getResponseFields",        {"struct vector"},                              {},                              getResponseFields, false},
    {"getResponseField",         {"char vector"},                                {"char vector"},                 getResponseField, false},
    {"getRequestLine",           {"char vector", "char vector", "char vector"},  {},                              getRequestLine, false},
    {"getStatusLine",            {"char vector", "int32 scalar", "char vector"}, {},                              getStatusLine, false},
    {"setAuthenticationSchemes", {},                                             {"vantik.net.http.AuthenticationScheme vector", "logical scalar"}, setAuthenticationSchemes, false},
    {"closeAllConnections",      {},                                             {},                              closeAllConnections, false},
};
// clang-format on

// The type word of the object itself, which is every method's first input.
std::string objectTypeWord(vcos::InternedName className) {
    return className != nullptr ? *className + " scalar" : "scalar";
}

std::unique_ptr<vcos::COSMethodSignature> makeSignature(vcos::InternedName className, const MethodRow& row) {
    std::unique_ptr<vcos::COSMethodSignature> signature(vcos::COSMethodSignature::createMethodSignature());
    signature->addInputType(vcos::internal::makeInterned(objectTypeWord(className)));
    for (const char* word : row.Outputs) {
        if (word != nullptr) {
            signature->addOutputType(vcos::internal::makeInterned(word));
        }
    }
    for (const char* word : row.Inputs) {
        if (word != nullptr) {
            signature->addInputType(vcos::internal::makeInterned(word));
        }
    }
    return signature;
}

template <class Method>
vcos::COSMethodInfo* newMethod(vcos::InternedName className, const MethodRow& row) {
    // Null if there is no memory: the class system reports that.
    return new Method(className, vcos::internal::makeInterned(row.Name), vcos::MemberAccess::Public,
                      makeSignature(className, row), row.Handler);
}

} // namespace

std::span<const MethodRow> methodTable() {
    return kMethods;
}

void addMethodEntry(vcos::COSClass& definition, const MethodRow& row) {
    const vcos::InternedName className = definition.getFullName();
    definition.addMethod(row.WithAns ? newMethod<COSMethodWithAnsCLNRN<Adapter*>>(className, row)
                                     : newMethod<COSMethodCLNRN<Adapter*>>(className, row));
}

} // namespace netrove
