#include "cli/options/FormText.h"

#include "cli/failures/CliFailure.h"
#include "cli/options/Trimmed.h"

#include <netrove/text.h>

#include <algorithm>
#include <string_view>
#include <utility>

namespace netrove::cli {

namespace {

constexpr std::string_view kSpaces = " \t";

// Reads values that ';' ends, and ',' between files.
class Reader {
public:
    Reader(std::string_view name, std::string_view text) : Name(name), Text(text) {}

    bool take(char wanted) {
        skipBlanks();
        if (At == Text.size() || Text[At] != wanted) {
            return false;
        }
        ++At;
        return true;
    }

    std::string word(std::string_view ends) {
        skipBlanks();
        if (At < Text.size() && Text[At] == '"' && closingQuote() != Text.npos) {
            return quoted(ends);
        }
        return std::string(trimmed(upTo(ends), kSpaces));
    }

    // ";type=T" and ";filename=N"; what follows a type without being either belongs to it ("text/html;charset=utf-8").
    void parameters(FormField& field, std::string_view ends) {
        bool afterType = false;
        while (take(';')) {
            skipBlanks();
            if (takeKey("type=")) {
                field.Type = trimmed(upTo(ends), kSpaces);
                if (field.Type.find('/') == field.Type.npos || hasControls(field.Type)) {
                    failUsage("the type of the part '" + printable(Name) + "' is not written TYPE/SUBTYPE");
                }
                afterType = true;
            } else if (takeKey("filename=")) {
                field.FileName = word(ends);
                afterType = false;
            } else if (afterType) {
                field.Type += ";" + std::string(trimmed(upTo(ends), kSpaces));
            } else {
                failUsage("the part '" + printable(Name) +
                          "' goes on after ';' with neither type= nor filename=; to send a ';' itself put the "
                          "value into double quotes, or use --form-string");
            }
        }
    }

private:
    void skipBlanks() { At = std::min(Text.find_first_not_of(kSpaces, At), Text.size()); }

    std::string_view upTo(std::string_view ends) {
        const auto end = std::min(Text.find_first_of(ends, At), Text.size());
        return Text.substr(std::exchange(At, end), end - At);
    }

    bool takeKey(std::string_view key) {
        if (!equalsIgnoringCase(Text.substr(At, key.size()), key)) {
            return false;
        }
        At += key.size();
        return true;
    }

    std::size_t closingQuote() const {
        for (std::size_t i = At + 1; i < Text.size(); ++i) {
            if (Text[i] == '"') {
                return i;
            }
            i += Text[i] == '\\' ? 1 : 0;
        }
        return Text.npos;
    }

    std::string quoted(std::string_view ends) {
        const auto end = closingQuote();
        std::string value;
        for (++At; At < end; ++At) {
            const bool escape = Text[At] == '\\' && (Text[At + 1] == '"' || Text[At + 1] == '\\');
            At += escape ? 1 : 0;
            value += Text[At];
        }
        ++At;
        if (!trimmed(upTo(ends), kSpaces).empty()) {
            failUsage("the part '" + printable(Name) + "' goes on after its closing '\"'");
        }
        return value;
    }

    std::string_view Name;
    std::string_view Text;
    std::size_t At = 0;
};

std::pair<std::string, std::string> nameAndValue(const std::string& text, const char* option) {
    const auto sign = text.find('=');
    if (sign == text.npos || sign == 0) {
        failUsage(std::string("a part for ") + option + " is written NAME=VALUE"); // the text may be a secret
    }
    return {text.substr(0, sign), text.substr(sign + 1)};
}

} // namespace

std::vector<FormField> parseFormField(const std::string& text) {
    const auto [name, value] = nameAndValue(text, "--form");
    Reader reader(name, value);
    std::vector<FormField> fields;
    if (reader.take('@')) {
        do {
            FormField field{name, FormField::Kind::Upload, reader.word(",;"), "", ""};
            reader.parameters(field, ",;");
            fields.push_back(std::move(field));
        } while (reader.take(','));
    } else {
        const auto kind = reader.take('<') ? FormField::Kind::TextOfFile : FormField::Kind::Text;
        FormField field{name, kind, reader.word(";"), "", ""};
        reader.parameters(field, ";");
        fields.push_back(std::move(field));
    }
    for (const FormField& field : fields) {
        if (field.ContentKind != FormField::Kind::Text && field.Value.empty()) {
            failUsage("the part '" + printable(name) + "' names no file");
        }
    }
    return fields;
}

FormField literalFormField(const std::string& text) {
    const auto [name, value] = nameAndValue(text, "--form-string");
    return {name, FormField::Kind::Text, value, "", ""};
}

} // namespace netrove::cli
