#include "client/response/Parameters.h"

#include "client/text/Ascii.h"

#include <utility>

namespace netrove {

namespace {

constexpr std::string_view kBlanks = " \t";

std::string_view trimmed(std::string_view text) {
    const auto begin = text.find_first_not_of(kBlanks);
    return begin == text.npos ? std::string_view() : text.substr(begin, text.find_last_not_of(kBlanks) + 1 - begin);
}

// What a list of parameters is cut from.
class Reader {
public:
    explicit Reader(std::string_view field) : Rest(field) {}

    // True if it stops at a delimiter, which is consumed; false at the end.
    std::string_view until(std::string_view delimiters, char& stoppedAt) {
        const auto end = Rest.find_first_of(delimiters);
        const std::string_view text = trimmed(Rest.substr(0, end));
        stoppedAt = end == Rest.npos ? '\0' : Rest[end];
        Rest.remove_prefix(end == Rest.npos ? Rest.size() : end + 1);
        return text;
    }

    bool takeQuote() {
        Rest.remove_prefix(std::min(Rest.find_first_not_of(kBlanks), Rest.size()));
        if (!Rest.starts_with('"')) {
            return false;
        }
        Rest.remove_prefix(1);
        return true;
    }

    // The rest of a quoted string; false if its end is missing.
    bool quoted(std::string& value) {
        while (!Rest.empty()) {
            char c = Rest.front();
            Rest.remove_prefix(1);
            if (c == '"') {
                return true;
            }
            if (c == '\\' && !Rest.empty()) {
                c = Rest.front();
                Rest.remove_prefix(1);
            }
            value += c;
        }
        return false;
    }

private:
    std::string_view Rest;
};

} // namespace

Parameters parseParameters(std::string_view field) {
    Reader reader(field);
    Parameters result;
    char stop = '\0';
    result.Main = reader.until(";", stop);
    while (stop == ';') {
        Parameter parameter{lowered(reader.until("=;", stop)), {}};
        if (stop != '=') {
            // Nothing between two semicolons, or after the last, does no harm.
            result.Valid = result.Valid && parameter.Name.empty();
            continue;
        }
        if (reader.takeQuote()) {
            const bool closed = reader.quoted(parameter.Value);
            const bool alone = reader.until(";", stop).empty();
            result.Valid = result.Valid && closed && alone;
        } else {
            parameter.Value = reader.until(";", stop);
            result.Valid = result.Valid && parameter.Value.find('"') == std::string::npos;
        }
        result.Valid = result.Valid && !parameter.Name.empty();
        result.List.push_back(std::move(parameter));
    }
    return result;
}

} // namespace netrove
