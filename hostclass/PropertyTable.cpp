#include "hostclass/PropertyTable.h"

#include "errors/MessageIdentifiers.h"
#include "host/Heap.h"
#include "host/Messages.h"
#include "host/Text.h"
#include "hostcalls/HostObjectCall.h"
#include "hostcalls/TextEncoding.h"
#include "hostclass/HTTPConnectionAdapter.h"
#include "hostclass/TransferBoundary.h"
#include "hostclass/ValueConversion.h"

#include <cstdlib>
#include <memory>
#include <new>

namespace {

using Adapter = HTTPConnectionAdapter;

// Encodings of the texts that go to the wire. They differ on purpose; the empty name means ASCII.
constexpr const char* kFileNameEncoding = "utf-8";
constexpr const char* kCredentialEncoding = "windows-1252";
constexpr const char* kFieldEncoding = "";

std::u16string textOrEmpty(Text value) {
    return value != nullptr ? *value : std::u16string();
}

// Texts

template <std::u16string Adapter::*Kept>
Text keptText(Adapter& adapter) {
    return &(adapter.*Kept);
}

template <std::u16string HTTPConnection::*Stored>
Text storedText(Adapter& adapter) {
    return &(adapter.connection.*Stored);
}

void setUrl(Adapter& adapter, Text value) {
    try {
        adapter.connection.setURL(textOrEmpty(value));
    } catch (const webservices::HTTPURLException& failure) {
        VANTIK::raise<VANTIK::webservices::MalformedURL>(failure.Message);
    } catch (const webservices::HTTPDNSException& failure) {
        VANTIK::raise<VANTIK::webservices::UnknownHost>(failure.Message);
    }
}

// Keeps the host's text and gives the connection its narrow form. The text is kept also where it cannot be encoded.
void setEncoded(Adapter& adapter, Text value, std::u16string Adapter::*kept, std::string HTTPConnection::*stored,
                const char* encoding) {
    adapter.*kept = textOrEmpty(value);
    adapter.connection.*stored = toNarrow(adapter.*kept, encoding);
}

template <std::u16string Adapter::*Kept, std::string HTTPConnection::*Stored>
void setFileName(Adapter& adapter, Text value) {
    setEncoded(adapter, value, Kept, Stored, kFileNameEncoding);
}

template <std::u16string Adapter::*Kept, std::string HTTPConnection::*Stored>
void setCredential(Adapter& adapter, Text value) {
    setEncoded(adapter, value, Kept, Stored, kCredentialEncoding);
}

template <std::u16string Adapter::*Kept, std::string HTTPConnection::*Stored>
void setFieldText(Adapter& adapter, Text value) {
    setEncoded(adapter, value, Kept, Stored, kFieldEncoding);
}

// A text of the response. Reading it sends the request where that is due, and replaces what the host had set.
template <std::u16string Adapter::*Kept, const std::string& (HTTPConnection::*Read)()>
Text responseText(Adapter& adapter) {
    return acrossTransferBoundary(adapter, [&] {
        adapter.*Kept = fl::i18n::to_ustring((adapter.connection.*Read)());
        return Text(&(adapter.*Kept));
    });
}

// Shows on the next read only, as the target that the connection made of it.
void setRedirectUrl(Adapter& adapter, Text value) {
    adapter.connection.setRedirectURL(toNarrow(textOrEmpty(value), kFieldEncoding));
}

void setRequestMethod(Adapter& adapter, Text value) {
    adapter.requestMethod = textOrEmpty(value);
    adapter.connection.setRequestMethod(toNarrow(adapter.requestMethod, kFieldEncoding));
}

void setPostData(Adapter& adapter, Text value) {
    adapter.connection.PostData = textOrEmpty(value);
}

// Numbers and flags

double getResponseCode(Adapter& adapter) {
    return acrossTransferBoundary(adapter, [&] { return static_cast<double>(adapter.connection.getResponseCode()); });
}

void setResponseCode(Adapter& adapter, double value) {
    adapter.setResponseCode(value);
}

template <auto Stored>
auto storedFlag(Adapter& adapter) {
    return adapter.connection.*Stored;
}

template <auto Stored, class T>
void storeFlag(Adapter& adapter, T value) {
    adapter.connection.*Stored = value;
}

unsigned long long getProviderBufferSize(Adapter& adapter) {
    return adapter.connection.ProviderBufferSize;
}

void setProviderBufferSize(Adapter& adapter, unsigned long long value) {
    adapter.connection.ProviderBufferSize = value;
}

// Arrays

vxArray_tag* getPayload(Adapter& adapter) {
    return makeByteArray(adapter.connection.Payload).release();
}

void setPayload(Adapter& adapter, vxArray_tag* array) {
    std::vector<std::uint8_t> payload;
    if (array != nullptr) {
        const auto bytes = bytesOf(array);
        payload.assign(bytes.begin(), bytes.end());
    }
    adapter.setPayload(std::move(payload));
}

vxArray_tag* getResponsePayload(Adapter& adapter) {
    return makeByteColumn(adapter.responseBytes()).release();
}

void setResponsePayload(Adapter& adapter, vxArray_tag* array) {
    if (array == nullptr) {
        // Kept on purpose: null clears the request's content and leaves the response's bytes.
        adapter.setPayload({});
        return;
    }
    const auto bytes = bytesOf(array);
    adapter.responseBuffer.write(reinterpret_cast<const char*>(bytes.data()),
                                 static_cast<std::streamsize>(bytes.size()));
}

vxArray_tag* getTimeouts(Adapter& adapter) {
    return makeDoubleArray(adapter.connection.getTimeouts()).release();
}

void setTimeouts(Adapter& adapter, vxArray_tag* array) {
    if (array == nullptr || matrix::detail::noninlined::vx_array_api::vxIsEmpty(array)) {
        return;
    }
    const auto values = doublesOf(array);
    adapter.connection.setTimeouts({values.begin(), values.end()});
}

void destroyGiven(Adapter&, vxArray_tag* array) {
    matrix::destroyArray(array);
}

// Host objects. The getter gives the adapter's own handle, so there is nothing to release.

template <HostArray Adapter::*Kept>
vxArray_tag* keptObject(Adapter& adapter) {
    return (adapter.*Kept).get();
}

void setProgressReporter(Adapter& adapter, vxArray_tag* array) {
    adapter.adoptHostObject(&Adapter::progressReporter, array, ProgressReporterClassName,
                            &HTTPConnection::ProgressReporter);
}

void setProvider(Adapter& adapter, vxArray_tag* array) {
    adapter.adoptHostObject(&Adapter::provider, array, ProviderClassName, &HTTPConnection::Provider);
}

void setConsumer(Adapter& adapter, vxArray_tag* array) {
    adapter.adoptHostObject(&Adapter::consumer, array, ConsumerClassName, &HTTPConnection::Consumer);
}

// The two attribute words that occur. Only Sent and VerifyServerName have the second, although VerifyServerName can be
// set and Sent cannot: kept on purpose, the class system knows them so.
constexpr std::uint32_t kUsual = 0x0BCE;
constexpr std::uint32_t kFlagged = 0x2820;

using Texts = Accessors<Text>;
using Doubles = Accessors<double>;
using Arrays = Accessors<vxArray_tag*>;
using Flags = Accessors<bool>;
using Sizes = Accessors<unsigned long long>;
using Ints = Accessors<int>;
using C = HTTPConnection;
using A = HTTPConnectionAdapter;

// clang-format off
// Order is the order of registration, and the host sees it. Only Payload and ResponsePayload have a releaser: the array
// of TimeoutInMilliseconds is the host's from the start.
constexpr PropertyRow kValueProperties[] = {
    {"URL", "unicodeString", kUsual, "string for URL",
     Texts{storedText<&C::URL>, setUrl}},
    {"CertificateFilename", "unicodeString", kUsual, "string for CertificateFilename",
     Texts{keptText<&A::certificateFilename>, setFileName<&A::certificateFilename, &C::CertificateFilename>}},
    {"ContentType", "unicodeString", kUsual, "string for ContentType",
     Texts{responseText<&A::contentType, &C::getContentType>, setFieldText<&A::contentType, &C::ContentType>}},
    {"ContentEncoding", "unicodeString", kUsual, "string for ContentEncoding",
     Texts{responseText<&A::contentEncoding, &C::getContentEncoding>, setFieldText<&A::contentEncoding, &C::ContentEncoding>}},
    {"ProxyUsername", "unicodeString", kUsual, "string for ProxyUsername",
     Texts{keptText<&A::proxyUsername>, setCredential<&A::proxyUsername, &C::ProxyUsername>}},
    {"ProxyPassword", "unicodeString", kUsual, "string for ProxyPassword",
     Texts{keptText<&A::proxyPassword>, setCredential<&A::proxyPassword, &C::ProxyPassword>}},
    {"Username", "unicodeString", kUsual, "string for Username",
     Texts{keptText<&A::username>, setCredential<&A::username, &C::Username>}},
    {"Password", "unicodeString", kUsual, "string for Password",
     Texts{keptText<&A::password>, setCredential<&A::password, &C::Password>}},
    {"ResponseCode", "double scalar", kUsual, "double scalar for ResponseCode",
     Doubles{getResponseCode, setResponseCode}},
    {"RedirectURL", "unicodeString", kUsual, "string for RedirectURL",
     Texts{responseText<&A::redirectUrl, &C::getRedirectURL>, setRedirectUrl}},
    {"RequestMethod", "unicodeString", kUsual, "string for RequestMethod",
     Texts{keptText<&A::requestMethod>, setRequestMethod}},
    {"PostData", "unicodeString", kUsual, "string for PostData",
     Texts{storedText<&C::PostData>, setPostData}},
    {"Payload", "uint8 vector", kUsual, "uint8 vector for Payload",
     Arrays{getPayload, setPayload, destroyGiven}},
    {"ResponsePayload", "uint8 vector", kUsual, "uint8 vector for ResponsePayload",
     Arrays{getResponsePayload, setResponsePayload, destroyGiven}},
    {"TimeoutInMilliseconds", "double vector", kUsual, "double vector for TimeoutInMilliseconds",
     Arrays{getTimeouts, setTimeouts}},
    {"Sent", "logical scalar", kFlagged, "logical scalar for Sent",
     Flags{storedFlag<&C::Sent>, nullptr}},
    {"VerifyServerName", "logical scalar", kFlagged, "logical scalar for VerifyServerName",
     Flags{storedFlag<&C::VerifyServerName>, storeFlag<&C::VerifyServerName>}},
    {"Decode", "logical scalar", kUsual, "logical scalar for Decode",
     Flags{storedFlag<&C::Decode>, storeFlag<&C::Decode>}},
    {"ProviderBufferSize", "uint64 scalar", kUsual, "uint64 scalar for ProviderBufferSize",
     Sizes{getProviderBufferSize, setProviderBufferSize}},
    {"Chunked", "logical scalar", kUsual, "logical scalar for Chunked",
     Flags{storedFlag<&C::Chunked>, storeFlag<&C::Chunked>}},
    {"Debug", "int32 scalar", kUsual, "int32 scalar for Debug",
     Ints{storedFlag<&C::Debug>, storeFlag<&C::Debug>}},
};

constexpr PropertyRow kObjectProperties[] = {
    {"ProgressReporter", "any", kUsual, ProgressReporterClassName,
     Arrays{keptObject<&A::progressReporter>, setProgressReporter}},
    {"Provider", "any", kUsual, ProviderClassName,
     Arrays{keptObject<&A::provider>, setProvider}},
    {"Consumer", "any", kUsual, ConsumerClassName,
     Arrays{keptObject<&A::consumer>, setConsumer}},
};
// clang-format on

// A property object for one value type. The block is from calloc, because the class system frees it with `utFree`.
template <class T>
std::unique_ptr<vcos::COSPropT> makeProperty(vcos::COSClass& definition, vcos::InternedName name,
                                             vcos::COSDataTypePtr type, const PropertyRow& row,
                                             const Accessors<T>& accessors) {
    using Property = COSPropCPPT<Adapter, T>;
    struct FreeBlock {
        void operator()(void* block) const noexcept { utFree(block); }
    };
    std::unique_ptr<void, FreeBlock> block(std::calloc(1, sizeof(Property)));
    if (!block) {
        throw foundation::core::except::bad_alloc();
    }
    std::unique_ptr<vcos::COSPropT> property(new (block.get()) Property(definition.getFullName(), name, std::move(type),
                                                                        row.Attributes, row.Description, accessors));
    block.release(); // the property's own operator delete frees it from here on
    return property;
}

} // namespace

std::span<const PropertyRow> valueProperties() {
    return kValueProperties;
}

std::span<const PropertyRow> objectProperties() {
    return kObjectProperties;
}

void addPropertyEntry(vcos::COSClass& definition, const PropertyRow& row) {
    const vcos::InternedName name = vcos::internal::makeInterned(row.Name);
    vcos::COSDataTypePtr type = definition.validatePropertyType(name, vcos::internal::makeInterned(row.TypeWord));
    auto property = std::visit(
        [&](const auto& accessors) { return makeProperty(definition, name, std::move(type), row, accessors); },
        row.Access);
    definition.addProperty(property.release());
}
