// What the caller has set for its requests. It lives as long as the connection; only an open clears the fields.
#pragma once

#include "host/Iri.h"
#include "hostcalls/HostArray.h"
#include "transfer/CurlSlist.h"

#include <cstdint>
#include <list>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace netrove {

struct RequestSettings {
    using Bytes = std::vector<std::uint8_t>;

    void setPayload(Bytes bytes) { Payload = std::make_shared<const Bytes>(std::move(bytes)); }
    std::span<const std::uint8_t> payload() const {
        return Payload ? std::span(*Payload) : std::span<const std::uint8_t>();
    }

    std::u16string GivenURL;              // what URL and ParsedURL were made of; empty: not known
    std::u16string URL;                   // request URL in ASCII, any fragment still in it
    foundation::network::IRI ParsedURL;   // the same without fragment
    std::string InitialURL;               // copy of URL, written while RedirectURL is empty; nothing reads it
    std::string CertificateFilename;      // CA file; empty: peers are not verified; "default": libcurl's own store
    std::string RequestMethod;            // method as set
    std::u16string PostData;              // text body while HTTPOptionsMode is false
    std::shared_ptr<const Bytes> Payload; // request body in memory, shared with the transfer that sends it; null: none
    SharedHostArray ProgressReporter;     // shared with the pump that calls it; null: none
    SharedHostArray Consumer;             // shared with the pump that calls it; null: none
    SharedHostArray Provider;             // shared with the transfer that sends it; null: none
    std::uint32_t HostAuthSchemes = 0;    // CURLAUTH_ bits for the server
    std::uint32_t ProxyAuthSchemes = 0;   // CURLAUTH_ bits for the proxy
    bool Decode = false;                  // libcurl decodes the response's content
    CurlSlist CookieList;                 // nothing fills it; kept for the step that would send it
    std::list<std::pair<std::string, std::string>> RequestFields; // caller's fields in order, duplicates allowed
    std::string Username;
    std::string Password;
    std::string ProxyHost; // empty: no proxy, not even one from the environment
    std::uint16_t ProxyPort = 80;
    std::string ProxyUsername;
    std::string ProxyPassword;
    bool HTTPOptionsMode = false; // driven by the HTTP interface; false: by the older web-options interface
    bool VerifyServerName = true;
    std::uint64_t ProviderBufferSize = 0; // bytes requested from the provider at a time; 0: 16384
    bool Chunked = false;                 // stored and returned only
    std::int32_t Debug = 0;               // trace level
};

} // namespace netrove
