// The native instance behind one host object: the connection, and beside it everything that the host reads back as it
// wrote it. The class information makes and destroys it.
#pragma once

#include "host/ArrayApi.h"
#include "hostcalls/HostArray.h"
#include "transfer/HTTPConnection.h"

#include <cstdint>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

// Full class name of the progress reporters that an adapter takes; those of the content objects stand with the calls
// into them.
inline constexpr const char* ProgressReporterClassName = "vantik.net.http.internal.ProgressReporter";

// The wide texts stand here because a getter gives the host a pointer to its text, which must outlive the call, while
// the connection keeps a narrow derivative.
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

    // Replaces the request's content in memory.
    void setPayload(std::vector<std::uint8_t> payload);

    // Keeps a persistent handle on `array` in the field and lends it to the connection. Null and an empty array clear
    // both. An array of another class raises VANTIK:legacy_two_part:UnableToConvert, and the previous object stays.
    void adoptHostObject(HostArray HTTPConnectionAdapter::*field, const vxArray_tag* array, const char* className,
                         vxArray_tag* HTTPConnection::*borrowed);

    // What has been collected of the response.
    std::string_view responseBytes() const noexcept { return responseBuffer.view(); }
    // Forgets it, gives its memory back, and clears the stream's error state.
    void emptyResponseBuffer();

    // While one lives, host objects and content that a callback of the running transfer replaces stay alive, because
    // the transfer still points to them. The last one releases them.
    class Transfer {
    public:
        explicit Transfer(HTTPConnectionAdapter& adapter) noexcept : Adapter(adapter) { ++Adapter.runningTransfers; }
        ~Transfer();
        Transfer(const Transfer&) = delete;
        Transfer& operator=(const Transfer&) = delete;

    private:
        HTTPConnectionAdapter& Adapter;
    };

    std::ostringstream responseBuffer; // response bytes for copyContentToByteArray and ResponsePayload
    HTTPConnection connection;
    std::u16string contentEncoding;     // overwritten by the first read of the property
    std::u16string contentType;         // overwritten by the first read of the property
    std::u16string certificateFilename; // as set by the host
    std::u16string username;            // as set by the host
    std::u16string password;            // as set by the host
    std::u16string proxyUsername;       // as set by the host
    std::u16string proxyPassword;       // as set by the host
    std::u16string requestMethod;       // as set by the host, not the method in effect
    std::u16string redirectUrl;         // written by reading the property only
    HostArray progressReporter;         // persistent; the connection borrows it
    HostArray provider;                 // persistent; the connection borrows it
    HostArray consumer;                 // persistent; the connection borrows it

private:
    int runningTransfers = 0;                                // nested calls that may be moving content
    std::vector<HostArray> replacedObjects;                  // empty while no transfer runs
    std::vector<std::vector<std::uint8_t>> replacedPayloads; // empty while no transfer runs
};
