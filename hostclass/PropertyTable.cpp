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

namespace netrove {

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

template <std::u16string RequestSettings::*Stored>
Text storedText(Adapter& adapter) {
    return &(adapter.Connection.Settings.*Stored);
}

void setUrl(Adapter& adapter, Text value) {
    try {
        adapter.Connection.setURL(textOrEmpty(value));
    } catch (const webservices::HTTPURLException& failure) {
        VANTIK::raise<VANTIK::webservices::MalformedURL>(failure.Message);
    } catch (const webservices::HTTPDNSException& failure) {
        VANTIK::raise<VANTIK::webservices::UnknownHost>(failure.Message);
    }
}

// Keeps the host's text and gives the connection its narrow form. The text is kept even if it cannot be encoded.
void setEncoded(Adapter& adapter, Text value, std::u16string Adapter::*kept, std::string& stored,
                const char* encoding) {
    adapter.*kept = textOrEmpty(value);
    if ((adapter.*kept).empty()) { // in every encoding
        stored.clear();
        return;
    }
    stored = toNarrow(adapter.*kept, encoding);
}

template <std::u16string Adapter::*Kept, std::string RequestSettings::*Stored>
void setFileName(Adapter& adapter, Text value) {
    setEncoded(adapter, value, Kept, adapter.Connection.Settings.*Stored, kFileNameEncoding);
}

template <std::u16string Adapter::*Kept, std::string RequestSettings::*Stored>
void setCredential(Adapter& adapter, Text value) {
    setEncoded(adapter, value, Kept, adapter.Connection.Settings.*Stored, kCredentialEncoding);
}

template <std::u16string Adapter::*Kept, std::string ResponseMetadata::*Stored>
void setResponseText(Adapter& adapter, Text value) {
    setEncoded(adapter, value, Kept, adapter.Connection.Metadata.*Stored, kFieldEncoding);
}

// A text of the response. Reading it sends the request if that is due, and replaces what the host had set.
template <std::u16string Adapter::*Kept, const std::string& (HTTPConnection::*Read)()>
Text responseText(Adapter& adapter) {
    return acrossTransferBoundary(adapter, [&] {
        adapter.*Kept = fl::i18n::to_ustring((adapter.Connection.*Read)());
        return Text(&(adapter.*Kept));
    });
}

// Takes effect on the next read only, as the target that the connection made of it.
void setRedirectUrl(Adapter& adapter, Text value) {
    adapter.Connection.setRedirectURL(toNarrow(textOrEmpty(value), kFieldEncoding));
}

void setRequestMethod(Adapter& adapter, Text value) {
    adapter.RequestMethod = textOrEmpty(value);
    adapter.Connection.setRequestMethod(toNarrow(adapter.RequestMethod, kFieldEncoding));
}

void setPostData(Adapter& adapter, Text value) {
    adapter.Connection.Settings.PostData = textOrEmpty(value);
}

// Numbers and flags

double getResponseCode(Adapter& adapter) {
    return acrossTransferBoundary(adapter, [&] { return static_cast<double>(adapter.Connection.getResponseCode()); });
}

void setResponseCode(Adapter& adapter, double value) {
    adapter.setResponseCode(value);
}

template <auto Stored>
auto storedSetting(Adapter& adapter) {
    return adapter.Connection.Settings.*Stored;
}

template <auto Stored, class T>
void storeSetting(Adapter& adapter, T value) {
    adapter.Connection.Settings.*Stored = value;
}

bool getSent(Adapter& adapter) {
    return adapter.Connection.SentHead.Sent;
}

unsigned long long getProviderBufferSize(Adapter& adapter) {
    return adapter.Connection.Settings.ProviderBufferSize;
}

void setProviderBufferSize(Adapter& adapter, unsigned long long value) {
    adapter.Connection.Settings.ProviderBufferSize = value;
}

// Arrays

vxArray_tag* getPayload(Adapter& adapter) {
    return makeByteArray(adapter.Connection.Settings.payload()).release();
}

void setPayload(Adapter& adapter, vxArray_tag* array) {
    std::vector<std::uint8_t> payload;
    if (array != nullptr) {
        const auto bytes = bytesOf(array);
        payload.assign(bytes.begin(), bytes.end());
    }
    adapter.Connection.Settings.setPayload(std::move(payload));
}

vxArray_tag* getResponsePayload(Adapter& adapter) {
    return adapter.ResponseBuffer.copy().release();
}

void setResponsePayload(Adapter& adapter, vxArray_tag* array) {
    if (array == nullptr) {
        // Kept on purpose: null clears the request's content and leaves the response's bytes.
        adapter.Connection.Settings.setPayload({});
        return;
    }
    const auto bytes = bytesOf(array);
    adapter.ResponseBuffer.write(reinterpret_cast<const char*>(bytes.data()),
                                 static_cast<std::streamsize>(bytes.size()));
}

vxArray_tag* getTimeouts(Adapter& adapter) {
    return makeDoubleArray(adapter.Connection.getTimeouts()).release();
}

void setTimeouts(Adapter& adapter, vxArray_tag* array) {
    if (array == nullptr || matrix::detail::noninlined::vx_array_api::vxIsEmpty(array)) {
        return;
    }
    const auto values = doublesOf(array);
    adapter.Connection.setTimeouts({values.begin(), values.end()});
}

void destroyGiven(Adapter&, vxArray_tag* array) {
    matrix::destroyArray(array);
}

// Host objects. The getter returns the connection's own handle, so there is nothing to release.

template <SharedHostArray RequestSettings::*Kept>
vxArray_tag* keptObject(Adapter& adapter) {
    return (adapter.Connection.Settings.*Kept).get();
}

void setProgressReporter(Adapter& adapter, vxArray_tag* array) {
    adapter.adoptHostObject(&RequestSettings::ProgressReporter, array, kProgressReporterClassName);
}

void setProvider(Adapter& adapter, vxArray_tag* array) {
    adapter.adoptHostObject(&RequestSettings::Provider, array, kProviderClassName);
}

void setConsumer(Adapter& adapter, vxArray_tag* array) {
    adapter.adoptHostObject(&RequestSettings::Consumer, array, kConsumerClassName);
}

// The two attribute words that occur. Only Sent and VerifyServerName have the second, although VerifyServerName can be
// set and Sent cannot: kept on purpose, the class system knows them that way.
constexpr std::uint32_t kUsual = 0x0BCE;
constexpr std::uint32_t kFlagged = 0x2820;

using Texts = Accessors<Text>;
using Doubles = Accessors<double>;
using Arrays = Accessors<vxArray_tag*>;
using Flags = Accessors<bool>;
using Sizes = Accessors<unsigned long long>;
using Ints = Accessors<int>;
using C = HTTPConnection;
using S = RequestSettings;
using M = ResponseMetadata;
using A = HTTPConnectionAdapter;

// clang-format off Order is the order of registration, and the host sees it. Only Payload and ResponsePayload have a
// releaser: the array of TimeoutInMilliseconds belongs to the host from the start.
constexpr PropertyRow kValueProperties[] = {
    {"URL", "unicodeString", kUsual, "string for URL", Texts{storedText<&S::URL>, setUrl}},
    {"CertificateFilename", "unicodeString", kUsual, "string for CertificateFilename",
     Texts{keptText<&A::CertificateFilename>, setFileName<&A::CertificateFilename, &S::CertificateFilename>}},
    {"ContentType", "unicodeString", kUsual, "string for ContentType",
     Texts{responseText<&A::ContentType, &C::getContentType>, setResponseText<&A::ContentType, &M::ContentType>}},
    {"ContentEncoding", "unicodeString", kUsual, "string for ContentEncoding",
     Texts{responseText<&A::ContentEncoding, &C::getContentEncoding>,
           setResponseText<&A::ContentEncoding, &M::ContentEncoding>}},
    {"ProxyUsername", "unicodeString", kUsual, "string for ProxyUsername",
     Texts{keptText<&A::ProxyUsername>, setCredential<&A::ProxyUsername, &S::ProxyUsername>}},
    {"ProxyPassword", "unicodeString", kUsual, "string for ProxyPassword",
     Texts{keptText<&A::ProxyPassword>, setCredential<&A::ProxyPassword, &S::ProxyPassword>}},
    {"Username", "unicodeString", kUsual, "string for Username",
     Texts{keptText<&A::Username>, setCredential<&A::Username, &S::Username>}},
    {"Password", "unicodeString", kUsual, "string for Password",
     Texts{keptText<&A::Password>, setCredential<&A::Password, &S::Password>}},
    {"ResponseCode", "double scalar", kUsual, "double scalar for ResponseCode",
     Doubles{getResponseCode, setResponseCode}},
    {"RedirectURL", "unicodeString", kUsual, "string for RedirectURL",
     Texts{responseText<&A::RedirectUrl, &C::getRedirectURL>, setRedirectUrl}},
    {"RequestMethod", "unicodeString", kUsual, "string for RequestMethod",
     Texts{keptText<&A::RequestMethod>, setRequestMethod}},
    {"PostData", "unicodeString", kUsual, "string for PostData", Texts{storedText<&S::PostData>, setPostData}},
    {"Payload", "uint8 vector", kUsual, "uint8 vector for Payload", Arrays{getPayload, setPayload, destroyGiven}},
    {"ResponsePayload", "uint8 vector", kUsual, "uint8 vector for ResponsePayload",
     Arrays{getResponsePayload, setResponsePayload, destroyGiven}},
    {"TimeoutInMilliseconds", "double vector", kUsual, "double vector for TimeoutInMilliseconds",
     Arrays{getTimeouts, setTimeouts}},
    {"Sent", "logical scalar", kFlagged, "logical scalar for Sent", Flags{getSent, nullptr}},
    {"VerifyServerName", "logical scalar", kFlagged, "logical scalar for VerifyServerName",
     Flags{storedSetting<&S::VerifyServerName>, storeSetting<&S::VerifyServerName>}},
    {"Decode", "logical scalar", kUsual, "logical scalar for Decode",
     Flags{storedSetting<&S::Decode>, storeSetting<&S::Decode>}},
    {"ProviderBufferSize", "uint64 scalar", kUsual, "uint64 scalar for ProviderBufferSize",
     Sizes{getProviderBufferSize, setProviderBufferSize}},
    {"Chunked", "logical scalar", kUsual, "logical scalar for Chunked",
     Flags{storedSetting<&S::Chunked>, storeSetting<&S::Chunked>}},
    {"Debug", "int32 scalar", kUsual, "int32 scalar for Debug",
     Ints{storedSetting<&S::Debug>, storeSetting<&S::Debug>}},
};

constexpr PropertyRow kObjectProperties[] = {
    {"ProgressReporter", "any", kUsual, kProgressReporterClassName,
     Arrays{keptObject<&S::ProgressReporter>, setProgressReporter}},
    {"Provider", "any", kUsual, kProviderClassName, Arrays{keptObject<&S::Provider>, setProvider}},
    {"Consumer", "any", kUsual, kConsumerClassName, Arrays{keptObject<&S::Consumer>, setConsumer}},
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
    static_cast<void>(block.release()); // the property's own operator delete frees it from here on
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

} // namespace netrove
