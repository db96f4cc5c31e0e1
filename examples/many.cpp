// Gets the URLs of standard input, many at a time, and counts what became of them: many < URLS
#include <netrove/pool.h>

#include <iostream>
#include <map>

std::string_view outcomeOf(const netrove::Result& result) {
    try {
        result.value();
        return "got";
    } catch (const netrove::Error& error) {
        return netrove::nameOf(error.kind()); // "name", "connect", "timeout", "status", …
    }
}

int main() {
    const std::vector<std::string> urls(std::istream_iterator<std::string>(std::cin), {});
    std::map<std::string_view, int> counts;
    netrove::Pool pool({.jobs = 16});
    for (const netrove::Result& result : pool.getAll(urls)) {
        const std::string outcome = result ? std::to_string(result.value().received) + " bytes" : result.error();
        std::cout << result.url << ": " << outcome << std::endl; // as they come
        ++counts[outcomeOf(result)];
    }
    for (const auto& [outcome, count] : counts) {
        std::cerr << outcome << ": " << count << '\n';
    }
    return counts["got"] == std::ssize(urls) ? 0 : 1;
}
