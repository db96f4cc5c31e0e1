#include "cli/exchange/WriteOut.h"

#include "cli/failures/CliFailure.h"
#include "cli/failures/Hints.h"

#include <netrove/text.h>
#include <netrove/url.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <string_view>
#include <unistd.h>
#include <utility>
#include <vector>

namespace netrove::cli {

namespace {

using Json = nlohmann::ordered_json;
using Facts = const TransferFacts&;

double seconds(std::chrono::duration<double> time) {
    return time.count();
}

double untilHead(Facts facts) {
    const auto& hops = facts.Response.hops;
    double time = 0;
    for (std::size_t i = 0; i + 1 < hops.size(); ++i) {
        time += seconds(hops[i].time);
    }
    return hops.empty() ? 0 : time + seconds(hops.back().untilHead);
}

double inRedirects(Facts facts) {
    double time = 0;
    for (const netrove::Hop& hop : facts.Response.redirects()) {
        time += seconds(hop.time);
    }
    return time;
}

// "1.1" of "HTTP/1.1".
std::string versionOf(Facts facts) {
    const std::string& version = facts.Response.version;
    return version.find('/') == version.npos ? "0" : version.substr(version.find('/') + 1);
}

std::string effectiveUrl(Facts facts) {
    return facts.Response.url.empty() ? facts.Asked.Url : facts.Response.url;
}

struct NameRow {
    std::string_view Name;
    Json (*Value)(Facts facts);
};

// In the order of the alphabet, which is that of %{json}.
constexpr NameRow kNames[] = {
    {"content_type", [](Facts f) { return Json(f.Response.fields["Content-Type"]); }},
    {"errormsg", [](Facts f) { return f.Failure.empty() ? Json(nullptr) : Json(f.Failure); }},
    {"exitcode", [](Facts f) { return Json(f.ExitStatus); }},
    {"filename_effective", [](Facts f) { return Json(f.File); }},
    {"http_code", [](Facts f) { return Json(f.Response.status); }},
    {"http_version", [](Facts f) { return Json(versionOf(f)); }},
    {"method", [](Facts f) { return Json(f.Asked.effectiveMethod()); }},
    {"num_headers", [](Facts f) { return Json(f.Response.fields.size()); }},
    {"num_redirects", [](Facts f) { return Json(f.Response.redirects().size()); }},
    {"num_retries", [](Facts f) { return Json(std::max(0, f.Response.attempts - 1)); }},
    {"response_code", [](Facts f) { return Json(f.Response.status); }},
    {"scheme", [](Facts f) { return Json(splitUrl(effectiveUrl(f)).Scheme); }},
    {"size_download", [](Facts f) { return Json(f.Response.received); }},
    {"speed_download",
     [](Facts f) {
         const double time = seconds(f.Time);
         return Json(time > 0 ? static_cast<std::uint64_t>(static_cast<double>(f.Response.received) / time) : 0);
     }},
    {"time_redirect", [](Facts f) { return Json(inRedirects(f)); }},
    {"time_starttransfer", [](Facts f) { return Json(untilHead(f)); }},
    {"time_total", [](Facts f) { return Json(seconds(f.Time)); }},
    {"url", [](Facts f) { return Json(f.Asked.Url); }},
    {"url_effective", [](Facts f) { return Json(effectiveUrl(f)); }},
    {"urlnum", [](Facts f) { return Json(f.Asked.UrlNumber); }},
};

// What is not a value.
constexpr std::string_view kJson = "json";
constexpr std::string_view kHeaderJson = "header_json";
constexpr std::string_view kStdout = "stdout";
constexpr std::string_view kStderr = "stderr";
constexpr std::string_view kOnError = "onerror";
constexpr std::string_view kOutsideTheTable[] = {kJson, kHeaderJson, kStdout, kStderr, kOnError};

const NameRow* rowOf(std::string_view name) {
    const auto* found =
        std::find_if(std::begin(kNames), std::end(kNames), [&](const NameRow& row) { return row.Name == name; });
    return found == std::end(kNames) ? nullptr : found;
}

std::string dumped(const Json& value) {
    return value.dump(-1, ' ', true, Json::error_handler_t::replace);
}

// Numbers as curl shows them: a status of three digits, times to the microsecond.
std::string shown(const NameRow& row, Facts facts) {
    const Json value = row.Value(facts);
    char text[64];
    if (value.is_null()) {
        return "";
    }
    if (value.is_string()) {
        return value.get<std::string>();
    }
    if (value.is_number_float()) {
        std::snprintf(text, sizeof text, "%.6f", value.get<double>());
        return text;
    }
    if (row.Name == "http_code" || row.Name == "response_code") {
        std::snprintf(text, sizeof text, "%03d", value.get<int>());
        return text;
    }
    return dumped(value);
}

std::string valueOf(const Field& field) {
    return isSecretField(field.name) ? "***" : field.value;
}

std::string headerJson(Facts facts) {
    Json object = Json::object();
    for (const Field& field : facts.Response.fields) {
        std::string name = field.name;
        std::transform(name.begin(), name.end(), name.begin(),
                       [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
        object[name].push_back(valueOf(field));
    }
    return dumped(object);
}

std::string allJson(Facts facts) {
    Json object;
    for (const NameRow& row : kNames) {
        object[std::string(row.Name)] = row.Value(facts);
    }
    return dumped(object);
}

// Walks over the format: `onText` gets text as it is, `onName` what is in %{…}, `onField` what is in %header{…}.
void walk(std::string_view format, const std::function<void(std::string_view)>& onText,
          const std::function<void(std::string_view)>& onName, const std::function<void(std::string_view)>& onField) {
    constexpr std::string_view kField = "header{";
    constexpr std::pair<char, std::string_view> kEscapes[] = {{'n', "\n"}, {'r', "\r"}, {'t', "\t"}};
    while (!format.empty()) {
        const auto end = format.find('}');
        if (format.starts_with("%%")) {
            onText("%");
            format.remove_prefix(2);
        } else if (format.starts_with("%{") && end != format.npos) {
            onName(format.substr(2, end - 2));
            format.remove_prefix(end + 1);
        } else if (format.substr(1).starts_with(kField) && format.front() == '%' && end != format.npos) {
            onField(format.substr(1 + kField.size(), end - 1 - kField.size()));
            format.remove_prefix(end + 1);
        } else if (format.front() == '\\' && format.size() > 1) {
            const auto* escape = std::find_if(std::begin(kEscapes), std::end(kEscapes),
                                              [&](const auto& row) { return row.first == format[1]; });
            onText(escape == std::end(kEscapes) ? format.substr(0, 2) : escape->second);
            format.remove_prefix(2);
        } else {
            onText(format.substr(0, 1));
            format.remove_prefix(1);
        }
    }
}

// What is for standard output, and what is for standard error.
std::pair<std::string, std::string> texts(const std::string& format, Facts facts) {
    std::string out;
    std::string err;
    std::string* to = &out;
    bool muted = false;
    const auto add = [&](std::string_view text) {
        if (!muted) {
            *to += text;
        }
    };
    const auto addName = [&](std::string_view name) {
        if (name == kOnError) {
            muted = facts.ExitStatus == 0;
        } else if (name == kStdout || name == kStderr) {
            to = name == kStderr ? &err : &out;
        } else if (name == kJson) {
            add(allJson(facts));
        } else if (name == kHeaderJson) {
            add(headerJson(facts));
        } else if (const NameRow* row = rowOf(name)) {
            add(shown(*row, facts));
        }
    };
    const auto addField = [&](std::string_view name) {
        add(isSecretField(name) && facts.Response.fields.contains(name) ? "***" : facts.Response.fields[name]);
    };
    walk(format, add, addName, addField);
    return {out, err};
}

} // namespace

void checkWriteOut(const std::string& format) {
    const auto ignore = [](std::string_view) {};
    walk(
        format, ignore,
        [](std::string_view name) {
            if (rowOf(name) != nullptr || std::find(std::begin(kOutsideTheTable), std::end(kOutsideTheTable), name) !=
                                              std::end(kOutsideTheTable)) {
                return;
            }
            std::vector<std::string> known(std::begin(kOutsideTheTable), std::end(kOutsideTheTable));
            for (const NameRow& row : kNames) {
                known.emplace_back(row.Name);
            }
            const std::string_view nearest = nearestWord(name, known);
            failUsage("--write-out knows no '%{" + printable(name) + "}'" +
                      (nearest.empty() ? "" : "; did you mean %{" + std::string(nearest) + "}?"));
        },
        ignore);
}

std::string writeOutText(const std::string& format, const TransferFacts& facts) {
    return texts(format, facts).first;
}

void writeOut(const std::string& format, const TransferFacts& facts, const Console& console) {
    const auto [out, err] = texts(format, facts);
    if (!out.empty()) {
        console.print(console.outIsTerminal() ? printableLines(out) : out);
    }
    if (!err.empty()) {
        writeAll(STDERR_FILENO, console.errIsTerminal() ? printableLines(err) : err);
    }
}

} // namespace netrove::cli
