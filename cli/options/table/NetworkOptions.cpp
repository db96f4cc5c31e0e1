#include "cli/options/ProxyChoice.h"
#include "cli/options/table/OptionGroups.h"
#include "cli/options/table/OptionValues.h"

namespace netrove::cli {

namespace {

void takeProxy(Settings& settings, const std::string& text) {
    if (text != "auto" && text != "none") {
        checkProxy(text); // refuses now what could not be used later
    }
    settings.Proxy = text.empty() ? "none" : text;
}

// clang-format off
const OptionRow kNetworkOptions[] = {
    {"proxy", 'x', "HOST:PORT|auto|none", kTransfers, "proxy to use, with http:// (port 80 by default), https:// (443), socks4://, socks4a://, socks5:// or socks5h:// (1080) in front if needed. auto (the default) uses the environment and the desktop's settings, none connects directly",
     takeProxy, {.Secret = Secrecy::BeforeAt, .OtherNames = "all-proxy", .Common = kTransfers}},
    {"connect-timeout", 0, "MS", kTransfers, "longest wait for a connection in milliseconds, or with a unit (500ms, 10s, 2m, 1h); 0 for no limit (default 30000)",
     [](S& s, V v) { s.ConnectTimeout = limitMs("connect-timeout", v); }},
    {"response-timeout", 0, "MS", kTransfers, "longest silence before the response, 0 for no limit (default 300000)",
     [](S& s, V v) { s.ResponseTimeout = limitMs("response-timeout", v); }},
    {"data-timeout", 0, "MS", kTransfers, "longest silence while content is transferred, 0 for no limit (default 300000)",
     [](S& s, V v) { s.DataTimeout = limitMs("data-timeout", v); }},
    {"max-time", 'm', "S", kTransfers, "longest time in seconds for everything, with batch for each attempt; may have a fraction or a unit (500ms, 2m)",
     [](S& s, V v) { s.MaxTime = seconds("max-time", v, 0.001, kLongestSeconds); }, {.Common = kTransfers}},
    {"limit-rate", 0, "SPEED", kTransfers, "most bytes per second of content, sent and received, of all transfers together; k means 1024, M 1048576, G 1073741824",
     [](S& s, V v) { s.LimitRate = byteSize("limit-rate", v, kLargestSize); }, {.OtherNames = "limit-rate-total", .Common = kSave | kBatch}},
    {"limit-rate-host", 0, "SPEED", kTransfers, "the same of the transfers with one host and port",
     [](S& s, V v) { s.LimitRateHost = byteSize("limit-rate-host", v, kLargestSize); }},
    {"max-filesize", 0, "SIZE", kTransfers, "most bytes of content: a longer response is a failure, before anything is written if it says its length. k means 1024, M 1048576, G 1073741824",
     [](S& s, V v) { s.MaxFileSize = byteSize("max-filesize", v, kLargestSize); }},
};
// clang-format on

} // namespace

std::span<const OptionRow> networkOptions() {
    return kNetworkOptions;
}

} // namespace netrove::cli
