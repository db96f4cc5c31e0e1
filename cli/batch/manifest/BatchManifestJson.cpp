// Lines of a manifest that are JSON objects.
#include "cli/batch/manifest/BatchManifest.h"
#include "cli/failures/CliFailure.h"
#include "cli/options/FieldText.h"

#include <netrove/text.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <set>
#include <utility>

namespace netrove::cli {

namespace {

using Json = nlohmann::ordered_json;

constexpr std::size_t kLongestId = 200;
constexpr std::size_t kSha256Digits = 64;
// Writing a body out again recurses for each nested array, and no service needs more.
constexpr int kDeepest = 500;

std::string inQuotes(std::string_view text) {
    return "'" + printable(text) + "'";
}

const std::string& text(const Json& value, const char* key) {
    if (!value.is_string()) {
        failUsage(std::string("the value of \"") + key + "\" is not a string");
    }
    return value.get_ref<const std::string&>();
}

std::string nonEmpty(const Json& value, const char* key) {
    const std::string& result = text(value, key);
    if (result.empty()) {
        failUsage(std::string("the value of \"") + key + "\" is empty");
    }
    return result;
}

void addField(BatchExtras& extras, const std::string& name, const Json& value) {
    if (value.is_array()) {
        for (const Json& one : value) {
            extras.Fields.push_back(parseField(name + ":" + text(one, "fields")));
        }
        return;
    }
    extras.Fields.push_back(parseField(name + ":" + text(value, "fields")));
}

void takeUrl(BatchLine& line, BatchExtras&, const Json& value) {
    line.Url = text(value, "url");
}

void takeTarget(BatchLine& line, BatchExtras&, const Json& value) {
    line.Target.reset();
    if (!value.is_null()) {
        line.Target = nonEmpty(value, "target");
    }
}

void takeMethod(BatchLine&, BatchExtras& extras, const Json& value) {
    extras.Method = text(value, "method");
    checkMethod(extras.Method);
}

// {"Name": "value", "Other": ["one", "two"]} or ["Name: value", ...].
void takeFields(BatchLine&, BatchExtras& extras, const Json& value) {
    if (value.is_object()) {
        for (const auto& [name, content] : value.items()) {
            checkFieldName(name);
            addField(extras, name, content);
        }
    } else if (value.is_array()) {
        for (const Json& one : value) {
            extras.Fields.push_back(parseField(text(one, "fields")));
        }
    } else {
        failUsage("the value of \"fields\" is neither an object nor an array");
    }
}

// An object or an array is sent as JSON.
void takeBody(BatchLine&, BatchExtras& extras, const Json& value) {
    if (value.is_object() || value.is_array()) {
        extras.Body = value.dump();
    } else {
        extras.Body = text(value, "body");
    }
}

void takeBodyFile(BatchLine&, BatchExtras& extras, const Json& value) {
    extras.BodyFile = nonEmpty(value, "body_file");
    if (extras.BodyFile == "-") {
        failUsage("\"body_file\" must name a file; standard input cannot be used");
    }
}

void takeId(BatchLine&, BatchExtras& extras, const Json& value) {
    extras.Id = value.is_number_integer() ? value.dump() : nonEmpty(value, "id");
    if (hasControls(extras.Id) || extras.Id.size() > kLongestId) {
        failUsage("the value of \"id\" has control characters or more than " + std::to_string(kLongestId) + " bytes");
    }
}

void takeSha256(BatchLine&, BatchExtras& extras, const Json& value) {
    extras.Sha256 = text(value, "sha256");
    const auto isDigit = [](char c) {
        return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
    };
    if (extras.Sha256.size() != kSha256Digits || !std::ranges::all_of(extras.Sha256, isDigit)) {
        failUsage("the value of \"sha256\" is not 64 hexadecimal digits");
    }
}

struct KeyRow {
    std::string_view Name;
    void (*Take)(BatchLine& line, BatchExtras& extras, const Json& value);
};
constexpr KeyRow kKeys[] = {
    {"url", takeUrl},   {"target", takeTarget},      {"method", takeMethod}, {"fields", takeFields},
    {"body", takeBody}, {"body_file", takeBodyFile}, {"sha256", takeSha256}, {"id", takeId},
};

bool begins(Json::parse_event_t event) {
    return event == Json::parse_event_t::array_start || event == Json::parse_event_t::object_start;
}

// The parser keeps the last of several equal keys; here they are a mistake.
Json parsed(std::string_view source) {
    std::set<std::string> names;
    std::string twice;
    const auto look = [&](int depth, Json::parse_event_t event, Json& value) {
        if (depth > kDeepest && begins(event)) {
            failUsage("not usable JSON: arrays and objects are nested more than " + std::to_string(kDeepest) + " deep");
        }
        if (event == Json::parse_event_t::key && depth == 1 && !names.insert(value.get<std::string>()).second) {
            twice = value.get<std::string>();
        }
        return true;
    };
    Json object;
    try {
        object = Json::parse(source, look);
    } catch (const Json::exception& failure) {
        // The bracketed part at the start names the parser's own classes, and what was read last may be a secret.
        std::string reason = failure.what();
        reason.erase(0, std::min(reason.find("] "), reason.size() - 2) + 2);
        failUsage("not valid JSON: " + printable(reason.substr(0, reason.find("; last read"))));
    }
    if (!twice.empty()) {
        failUsage("the key " + inQuotes(twice) + " is given twice");
    }
    return object;
}

bool named(const std::vector<Field>& fields, std::string_view name) {
    return std::any_of(fields.begin(), fields.end(),
                       [&](const Field& field) { return equalsIgnoringCase(field.name, name); });
}

void checkBody(const BatchLine& line, BatchExtras& extras, const Json& object) {
    if (extras.Body && !extras.BodyFile.empty()) {
        failUsage("only one of \"body\" and \"body_file\" can be given");
    }
    if (!extras.hasBody()) {
        return;
    }
    const std::string method = line.method();
    if (equalsIgnoringCase(method, "GET") || equalsIgnoringCase(method, "HEAD")) {
        failUsage("a request with the method GET or HEAD has no body; name another as \"method\"");
    }
    const bool structured = extras.Body && !object["body"].is_string();
    if (structured && !named(extras.Fields, "Content-Type")) {
        extras.Fields.push_back({"Content-Type", "application/json"});
    }
}

} // namespace

BatchLine parseBatchJson(std::string_view source) {
    Json object = parsed(source);
    BatchLine line;
    line.Target = ""; // unless it says otherwise: the name comes from the URL
    line.Extras = std::make_unique<BatchExtras>();
    for (const auto& [name, value] : object.items()) {
        const auto* row = std::find_if(std::begin(kKeys), std::end(kKeys),
                                       [&name = name](const KeyRow& known) { return known.Name == name; });
        if (row == std::end(kKeys)) {
            failUsage("unknown key " + inQuotes(name) +
                      "; the keys are url, target, method, fields, body, body_file, sha256 and id");
        }
        row->Take(line, *line.Extras, value);
    }
    if (!object.contains("url")) {
        failUsage("the key 'url' is missing");
    }
    checkBody(line, *line.Extras, object);
    if (!line.Target && !line.Extras->Sha256.empty()) {
        failUsage("\"sha256\" is of a file; the line has no target");
    }
    return line;
}

} // namespace netrove::cli
