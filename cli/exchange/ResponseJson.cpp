#include "cli/exchange/ResponseJson.h"

#include <netrove/text.h>
#include <nlohmann/json.hpp>
#include <openssl/evp.h>

#include <algorithm>
#include <cmath>

namespace netrove::cli {

namespace {

std::string base64(const std::string& bytes) {
    constexpr std::size_t most = 3U << 20U; // OpenSSL counts in int; whole groups of three leave nothing to carry over
    std::string text;
    for (std::size_t start = 0; start < bytes.size(); start += most) {
        const std::size_t size = std::min(most, bytes.size() - start);
        const std::size_t before = text.size();
        text.resize(before + (size + 2) / 3 * 4 + 1); // with a NUL
        const int length =
            EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data() + before),
                            reinterpret_cast<const unsigned char*>(bytes.data() + start), static_cast<int>(size));
        text.resize(before + static_cast<std::size_t>(length));
    }
    return text;
}

// To the microsecond: further digits mean nothing.
double roundedSeconds(std::chrono::duration<double> time) {
    return std::round(time.count() * 1e6) / 1e6;
}

} // namespace

std::string responseJson(const netrove::Response& response, const ResponseFacts& facts) {
    nlohmann::ordered_json fields = nlohmann::ordered_json::array();
    for (const Field& field : response.fields) {
        fields.push_back({{"name", field.name}, {"value", isSecretField(field.name) ? "***" : field.value}});
    }
    nlohmann::ordered_json object = {{"url", response.url},
                                     {"method", response.method},
                                     {"redirects", response.redirects().size()},
                                     {"httpVersion", response.version},
                                     {"status", response.status},
                                     {"reason", response.reason},
                                     {"fields", fields},
                                     {"bytes", facts.Bytes},
                                     {"secondsToHead", roundedSeconds(facts.UntilHead)},
                                     {"seconds", roundedSeconds(facts.UntilEnd)}};
    if (!facts.Content) {
        object["file"] = facts.File;
    } else if (isUtf8(*facts.Content)) {
        object["content"] = *facts.Content;
    } else {
        object["contentBase64"] = base64(*facts.Content);
    }
    return object.dump(-1, ' ', true, nlohmann::json::error_handler_t::replace);
}

} // namespace netrove::cli
