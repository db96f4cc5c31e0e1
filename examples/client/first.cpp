// The first example of the README.
#include <cstddef>
#include <iostream>
#include <span>

namespace {

bool use(std::span<const std::byte> piece) {
    std::cout << piece.size() << " bytes\n";
    return true; // false: that was enough
}

} // namespace

// [first]
#include <netrove/client.h>

int main() {
    netrove::Client client; // verifies servers, follows redirects, sane limits
    std::cout << client.get("https://example.org/").text();
    client.save("https://example.org/data.bin", "data.bin", {.resume = true, .retry = {.attempts = 5}});
    client.put("https://example.org/items/1", netrove::json(R"({"name":"x"})"));
    client.stream("https://example.org/log", [](std::span<const std::byte> piece) { return use(piece); });
}
// [/first]
