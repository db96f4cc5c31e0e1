// Why a transfer failed, in so few words that failures can be counted by them.
#pragma once

#include "cli/failures/ExitStatus.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace netrove::cli {

struct FailureCause {
    std::string Kind;   // "connection refused": one of a few hundred at most, whatever servers say
    std::string Joiner; // between kind and host: " by "; empty where the host has no part in it
    std::string Host;   // "example.org:443"; empty likewise

    std::string text() const { return Kind + Joiner + Host; }
    bool operator<(const FailureCause& other) const {
        return Kind != other.Kind ? Kind < other.Kind : Host < other.Host;
    }
};

// "example.org:443" of a URL.
std::string hostOf(std::string_view url);

// Of a transfer of this URL.
FailureCause causeOf(const vantik::Message& message, std::string_view url);

// Failures by cause. Takes a bounded amount of memory: after so many causes those of further hosts are counted
// together.
class CauseCounts {
public:
    struct Counted {
        std::string Text;
        std::size_t Count = 0;
        std::size_t FirstLine = 0; // the first line that failed so
    };

    // The number of failures with this cause, this one included.
    std::size_t add(const FailureCause& cause, std::size_t line);
    // The commonest first.
    std::vector<Counted> sorted() const;
    std::map<std::string, std::size_t> byKind() const;

private:
    struct Entry {
        std::size_t Count = 0;
        std::size_t FirstLine = 0;
    };
    std::map<FailureCause, Entry> Counts;
};

// "2 x the server answered 404 Not Found, 1 x connection refused by HOST:PORT and 3 more causes".
std::string causesText(const std::vector<CauseCounts::Counted>& causes, std::size_t most);

} // namespace netrove::cli
