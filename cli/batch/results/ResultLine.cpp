#include "cli/batch/results/ResultLine.h"

#include "cli/options/FieldText.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <string_view>

namespace netrove::cli {

namespace {

using Json = nlohmann::ordered_json;

constexpr std::size_t kUsualRest = 160; // of a line: all but its URL and target

// Most texts are as they stand in JSON.
void addText(std::string& to, std::string_view text) {
    const bool plain =
        std::all_of(text.begin(), text.end(), [](char c) { return c >= ' ' && c <= '~' && c != '"' && c != '\\'; });
    if (plain) {
        to.append(1, '"').append(text).append(1, '"');
    } else {
        to += Json(text).dump(-1, ' ', true, Json::error_handler_t::replace);
    }
}

void addStatus(std::string& to, int status) {
    to += status == 0 ? "null" : std::to_string(status);
}

// To the millisecond: 1.0, 0.25.
void addSeconds(std::string& to, double seconds) {
    const auto all = static_cast<std::uint64_t>(std::round(std::max(seconds, 0.0) * 1000));
    std::string part = std::to_string(1000 + all % 1000).substr(1);
    part.erase(std::max<std::size_t>(part.find_last_not_of('0') + 1, 1));
    to += std::to_string(all / 1000) + '.' + part;
}

std::string beginning(const BatchLine& line) {
    std::string text;
    text.reserve(kUsualRest + line.Url.size() + (line.Target ? line.Target->size() : 0));
    text += "{\"id\":";
    addText(text, line.id());
    text += ",\"line\":" + std::to_string(line.Number) + ",\"url\":";
    addText(text, line.Url);
    text += ",\"target\":";
    line.Target ? addText(text, *line.Target) : void(text += "null");
    text += ",\"status\":";
    return text;
}

} // namespace

Console consoleFor(const BatchLine& line, const Console& console) {
    Console result = console;
    if (!line.Extras) {
        return result;
    }
    result.hide(line.Extras->Password.value_or(""));
    for (const Field& field : line.Extras->Fields) {
        if (isSecretField(field.name)) {
            result.hide(field.value);
        }
    }
    return result;
}

std::string resultLine(const BatchLine& line, const BatchOutcome& outcome, const Console& console) {
    std::string text = beginning(line);
    addStatus(text, outcome.Status);
    text += ",\"bytes\":" + std::to_string(outcome.Bytes) + ",\"seconds\":";
    addSeconds(text, outcome.Time.count());
    text += ",\"attempts\":" + std::to_string(outcome.Attempts) + ",\"result\":";
    if (!outcome.Failed) {
        text += "\"done\"}";
        return text;
    }
    Console json = consoleFor(line, console);
    json.configure(ColorChoice::Never, true);
    return text + "\"failed\"," + json.failureText(*outcome.Failed).substr(1);
}

std::string plainLine(const BatchLine& line, const std::string& result, const BatchHistory::Ended* ended) {
    std::string text = beginning(line);
    addStatus(text, ended == nullptr ? 0 : ended->Status);
    text += ",\"bytes\":" + std::to_string(ended == nullptr ? 0 : ended->Bytes) +
            R"(,"seconds":0.0,"attempts":0,"result":)";
    addText(text, result);
    return text + '}';
}

} // namespace netrove::cli
