#include "cli/commands/Commands.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

namespace netrove::cli {

namespace {

std::string joined(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words) {
        text += (text.empty() ? "" : ", ") + word;
    }
    return text;
}

struct MeaningRow {
    std::string_view Property;
    std::string_view Meaning;
};

// The class describes its properties by their types only; JSON has what it says.
constexpr MeaningRow kMeanings[] = {
    {"URL", "what is asked for"},
    {"CertificateFilename", "PEM file of trusted certificates; default: those of libcurl, empty: any is accepted"},
    {"ContentType", "Content-Type of the response"},
    {"ContentEncoding", "Content-Encoding of the response"},
    {"ProxyUsername", "user name for the proxy"},
    {"ProxyPassword", "password for the proxy"},
    {"Username", "user name for the server"},
    {"Password", "password for the server"},
    {"ResponseCode", "status of the response"},
    {"RedirectURL", "where the response redirects to"},
    {"RequestMethod", "method of the request"},
    {"PostData", "content of the request as text"},
    {"Payload", "content of the request as bytes"},
    {"ResponsePayload", "content of the response as bytes"},
    {"TimeoutInMilliseconds", "limits of waiting: for a connection, for the response, for data"},
    {"Sent", "whether the request has gone out"},
    {"VerifyServerName", "whether the certificate must be for the server's name"},
    {"Decode", "whether content is decompressed"},
    {"ProviderBufferSize", "bytes to ask the provider for at a time"},
    {"Chunked", "whether the length of the content is left out"},
    {"Debug", "level of the trace: 0 none, 1 heads, 2 content too"},
    {"ProgressReporter", "object that is told of progress"},
    {"Provider", "object that provides the content of the request"},
    {"Consumer", "object that takes the content of the response"},
};

std::string_view meaningOf(const vantik::PropertyDescription& property) {
    const auto row = std::ranges::find(kMeanings, property.Name, &MeaningRow::Property);
    return row == std::end(kMeanings) ? std::string_view(property.Description) : row->Meaning;
}

// Rows as columns of equal width; the first row is the heading.
std::string table(const Console& console, const std::vector<std::vector<std::string>>& rows) {
    std::vector<std::size_t> widths(rows.front().size(), 0);
    for (const auto& row : rows) {
        for (std::size_t i = 0; i < row.size(); ++i) {
            widths[i] = std::max(widths[i], row[i].size());
        }
    }
    std::string text;
    for (const auto& row : rows) {
        std::string line = "  ";
        for (std::size_t i = 0; i < row.size(); ++i) {
            line += row[i] + std::string(i + 1 < row.size() ? widths[i] - row[i].size() + 2 : 0, ' ');
        }
        line.erase(line.find_last_not_of(' ') + 1);
        text += &row == &rows.front() ? console.styled(Style::Faint, line) : line;
        text += "\n";
    }
    return text;
}

// The inputs that a caller passes, the optional ones in brackets. The object itself is the first input of every method
// but the constructor, and is not worth a column.
std::string signature(const vantik::MethodDescription& method, bool constructor) {
    if (!method.Declared) {
        return "(not declared)";
    }
    const auto optional = static_cast<std::size_t>(std::max(0, method.OptionalInputs));
    std::vector<std::string> inputs;
    for (std::size_t i = constructor ? 0 : 1; i < method.Inputs.size(); ++i) {
        inputs.push_back(i + optional >= method.Inputs.size() ? "[" + method.Inputs[i] + "]" : method.Inputs[i]);
    }
    return "(" + joined(inputs) + ")";
}

nlohmann::ordered_json asJson(const vantik::ClassDescription& description) {
    nlohmann::ordered_json properties = nlohmann::ordered_json::array();
    for (const vantik::PropertyDescription& property : description.Properties) {
        properties.push_back({{"name", property.Name},
                              {"type", property.Type},
                              {"description", property.Description},
                              {"settable", property.Settable},
                              {"attributes", property.Attributes}});
    }
    nlohmann::ordered_json methods = nlohmann::ordered_json::array();
    for (const vantik::MethodDescription& method : description.Methods) {
        methods.push_back({{"name", method.Name},
                           {"declared", method.Declared},
                           {"inputs", method.Inputs},
                           {"optionalInputs", method.OptionalInputs},
                           {"outputs", method.Outputs}});
    }
    return {{"name", description.Name},
            {"baseClasses", description.BaseClasses},
            {"properties", properties},
            {"methods", methods}};
}

} // namespace

int runDescribe(Session& session, const Settings& settings, const Console& console) {
    const vantik::ClassDescription description = session.Host.describe(vantik::kHttpConnectionClass);
    if (settings.json()) {
        console.print(asJson(description).dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n");
        return kExitDone;
    }
    std::vector<std::vector<std::string>> properties = {{"property", "type", "", "description"}};
    for (const vantik::PropertyDescription& property : description.Properties) {
        properties.push_back(
            {property.Name, property.Type, property.Settable ? "" : "read only", std::string(meaningOf(property))});
    }
    std::vector<std::vector<std::string>> methods = {{"method", "inputs after the object", "outputs"}};
    for (const vantik::MethodDescription& method : description.Methods) {
        methods.push_back(
            {method.Name, signature(method, &method == &description.Methods.front()), joined(method.Outputs)});
    }
    std::string text = console.styled(Style::Bold, description.Name);
    if (!description.BaseClasses.empty()) {
        text += " < " + joined(description.BaseClasses);
    }
    text += "\n\n" + std::to_string(description.Properties.size()) + " properties\n" + table(console, properties);
    text +=
        "\nConstructor and " + std::to_string(description.Methods.size() - 1) + " methods\n" + table(console, methods);
    console.print(text);
    return kExitDone;
}

} // namespace netrove::cli
