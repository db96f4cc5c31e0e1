#include "cli/logins/Netrc.h"

#include "cli/failures/CliFailure.h"

#include <netrove/text.h>

#include <algorithm>
#include <sys/stat.h>
#include <utility>

namespace netrove::cli {

namespace {

constexpr std::string_view kBetweenWords = " \t\r\n";

char unescaped(char c) {
    switch (c) {
    case 'n':
        return '\n';
    case 'r':
        return '\r';
    case 't':
        return '\t';
    default:
        return c;
    }
}

class Words {
public:
    Words(std::string_view text, const std::string& file) : Text(text), File(file) {}

    // The next keyword; empty at the end.
    std::string keyword() {
        while (skipBlanks() && Text[At] == '#') {
            At = std::min(Text.find('\n', At), Text.size());
        }
        return At == Text.size() ? std::string() : word();
    }

    std::string valueOf(const std::string& keyword) {
        if (!skipBlanks()) {
            refuse("ends after '" + keyword + "'");
        }
        return word();
    }

    // To the empty line that ends a macro.
    void skipMacro() {
        const auto end = std::min(Text.find("\n\n", At), Text.find("\n\r\n", At));
        At = std::min(end, Text.size());
    }

    [[noreturn]] void refuse(const std::string& problem) const {
        const auto line = 1 + std::count(Text.begin(), Text.begin() + static_cast<std::ptrdiff_t>(At), '\n');
        failUsage(printable(File) + ":" + std::to_string(line) + ": the netrc file " + problem);
    }

private:
    bool skipBlanks() {
        At = std::min(Text.find_first_not_of(kBetweenWords, At), Text.size());
        return At != Text.size();
    }

    std::string word() {
        if (Text[At] == '"') {
            return quoted();
        }
        const auto end = std::min(Text.find_first_of(kBetweenWords, At), Text.size());
        return std::string(Text.substr(std::exchange(At, end), end - At));
    }

    std::string quoted() {
        std::string value;
        for (std::size_t i = At + 1; i < Text.size(); ++i) {
            if (Text[i] == '"') {
                At = i + 1;
                return value;
            }
            if (Text[i] == '\\' && i + 1 < Text.size()) {
                value += unescaped(Text[++i]);
            } else {
                value += Text[i];
            }
        }
        refuse("has a double quote that nothing closes");
    }

    std::string_view Text;
    const std::string& File;
    std::size_t At = 0;
};

} // namespace

Netrc::Netrc(std::string_view text, const std::string& file) {
    Words words(text, file);
    const auto current = [&]() -> Entry& {
        if (Entries.empty()) {
            words.refuse("does not begin with 'machine' or 'default'");
        }
        return Entries.back();
    };
    for (std::string word = words.keyword(); !word.empty(); word = words.keyword()) {
        if (word == "machine") {
            Entries.push_back({words.valueOf(word), {}, {}});
        } else if (word == "default") {
            Entries.emplace_back();
        } else if (word == "login") {
            current().User = words.valueOf(word);
        } else if (word == "password") {
            current().Password = words.valueOf(word);
        } else if (word == "account") {
            words.valueOf(word);
        } else if (word == "macdef") {
            words.skipMacro();
        } else {
            words.refuse("has a word that is not machine, default, login, password, account or macdef; a value with "
                         "blanks is put into double quotes");
        }
    }
}

std::optional<Netrc::Login> Netrc::find(std::string_view host, const std::optional<std::string>& user) const {
    if (host.starts_with('[') && host.ends_with(']')) {
        host = host.substr(1, host.size() - 2);
    }
    for (const Entry& entry : Entries) {
        const bool forHost = !entry.Host || equalsIgnoringCase(*entry.Host, host);
        const bool forUser = user ? !entry.User || *entry.User == *user : entry.User.has_value();
        if (forHost && forUser) {
            return Login{user ? *user : *entry.User, entry.Password};
        }
    }
    return std::nullopt;
}

std::vector<std::string> Netrc::passwords() const {
    std::vector<std::string> all;
    for (const Entry& entry : Entries) {
        all.push_back(entry.Password);
    }
    return all;
}

bool othersMayRead(const std::string& file) {
    struct stat facts {};
    return stat(file.c_str(), &facts) == 0 && S_ISREG(facts.st_mode) && (facts.st_mode & (S_IRGRP | S_IROTH)) != 0;
}

} // namespace netrove::cli
