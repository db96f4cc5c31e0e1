// The native instance behind one host object: the connection, and everything that the host reads back as it wrote it.
// The class information makes and destroys it.
#pragma once

#include "host/ArrayApi.h"
#include "streaming/ContentBuffer.h"
#include "transfer/HTTPConnection.h"

#include <string>

namespace netrove {

// Full class name of the progress reporters that an adapter takes; those of the content objects are with the calls into
// them.
inline constexpr const char* kProgressReporterClassName = "vantik.net.http.internal.ProgressReporter";

} // namespace netrove

// The wide texts are kept here because a getter returns a pointer to its text, which must outlive the call, while the
// connection keeps only a narrow form.
class HTTPConnectionAdapter {
public:
    // Raises what building a connection raises.
    HTTPConnectionAdapter();
    // Releases the progress reporter, the consumer and the provider, in this order, before any other field.
    ~HTTPConnectionAdapter();
    HTTPConnectionAdapter(const HTTPConnectionAdapter&) = delete;
    HTTPConnectionAdapter& operator=(const HTTPConnectionAdapter&) = delete;

    // Narrows as host numbers are narrowed; raises an overflow before anything changes.
    void setResponseCode(double code);

    // Keeps a persistent handle on `array` in the connection's field. Null and an empty array clear it. An array of
    // another class raises VANTIK:legacy_two_part:UnableToConvert, and the previous object stays.
    void adoptHostObject(netrove::SharedHostArray netrove::RequestSettings::*field, const vxArray_tag* array,
                         const char* className);

    // Removes from ResponseBuffer what an interrupted copy has left there. What the host itself has put there stays.
    void dropReceived();

    // Takes what has been collected of the response, as bytes in a column.
    netrove::HostArray takeResponse();
    // Drops it, frees its memory, and clears the stream's error state.
    void emptyResponseBuffer();

    netrove::ContentBuffer ResponseBuffer; // response bytes for copyContentToByteArray and ResponsePayload
    netrove::HTTPConnection Connection;
    std::u16string ContentEncoding;     // overwritten by the first read of the property
    std::u16string ContentType;         // overwritten by the first read of the property
    std::u16string CertificateFilename; // as set by the host
    std::u16string Username;            // as set by the host
    std::u16string Password;            // as set by the host
    std::u16string ProxyUsername;       // as set by the host
    std::u16string ProxyPassword;       // as set by the host
    std::u16string RequestMethod;       // as set by the host, not the method in effect
    std::u16string RedirectUrl;         // written by reading the property only
};
