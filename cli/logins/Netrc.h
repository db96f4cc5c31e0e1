// Logins from a netrc file: the entries "machine NAME login USER password SECRET", one for each server, and "default"
// for all others.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace netrove::cli {

class Netrc {
public:
    struct Login {
        std::string User;
        std::string Password;
    };

    // A word may be in double quotes, in which '\' escapes: \" \\ \n \r \t. "account" and its word are skipped, and
    // "macdef" up to the next empty line; '#' in place of a keyword begins a comment. Raises a usage failure that names
    // `file` and the line, and never repeats a word of it.
    Netrc(std::string_view text, const std::string& file);

    // The first entry for the host, or "default"; with `user` the first that is for this user or for any.
    std::optional<Login> find(std::string_view host, const std::optional<std::string>& user = std::nullopt) const;

    std::vector<std::string> passwords() const;

private:
    struct Entry {
        std::optional<std::string> Host; // none: default
        std::optional<std::string> User;
        std::string Password;
    };
    std::vector<Entry> Entries;
};

// True if users other than the owner may read the file, which need not be there.
bool othersMayRead(const std::string& file);

} // namespace netrove::cli
