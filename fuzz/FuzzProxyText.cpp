// A proxy as a setting or the command line names it: what is accepted can be connected to and reads the same after it
// is written again, and a refusal repeats nothing of a text that may hold a password.
#include "embedded/proxy/ProxyText.h"
#include "fuzz/FuzzInput.h"

#include <algorithm>
#include <stdexcept>
#include <string>

using vantik::detail::ProxyText;
using vantik::detail::readProxy;

namespace {

bool isPlain(std::string_view text) {
    return std::none_of(text.begin(), text.end(), [](unsigned char c) { return c <= 0x20 || c == 0x7F; });
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(textOf(data, size));
    try {
        const std::string question = vantik::detail::proxyQuestion(text);
        require(question.size() <= text.size() + 1, "a question holds no more than the URL and a slash");
    } catch (const std::invalid_argument&) { // refused, which is an answer
    }
    try {
        const ProxyText proxy = readProxy(text);
        require(!proxy.Host.empty() && isPlain(proxy.Host), "a proxy has a host");
        require(proxy.Port != 0, "a proxy has a port");
        require(proxy.HasCredentials || (proxy.Username.empty() && proxy.Password.empty()),
                "credentials that are not there are empty");
        const ProxyText again = readProxy(proxy.Host + ":" + std::to_string(proxy.Port));
        require(again.Host == proxy.Host && again.Port == proxy.Port && !again.HasCredentials,
                "a proxy is read as it was written");
    } catch (const std::invalid_argument& refusal) {
        require(size < 12 || std::string(refusal.what()).find(text) == std::string::npos,
                "a refusal repeats nothing of the text");
    }
    return 0;
}
