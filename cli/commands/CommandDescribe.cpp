#include "cli/commands/Commands.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <string>
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
            {property.Name, property.Type, property.Settable ? "" : "read only", property.Description});
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
