#include "cli/exchange/ResponseJson.h"

#include <Poco/Base64Encoder.h>
#include <netrove/text.h>
#include <nlohmann/json.hpp>

#include <cmath>
#include <sstream>

namespace netrove::cli {

namespace {

std::string base64(const std::string& bytes) {
    std::ostringstream text;
    Poco::Base64Encoder encoder(text);
    encoder.rdbuf()->setLineLength(0);
    encoder << bytes;
    encoder.close();
    return text.str();
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
