// The ten steps of docs/get-started.md: tutorial PART
#include "Steps.h"

#include <netrove/client.h>
#include <netrove/pool.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <iostream>
#include <span>
#include <string>
#include <vector>

namespace {

using namespace std::chrono_literals;

void page() {
    // [page]
    netrove::Client client;
    std::cout << client.get("https://example.org/hello").text();
    // [/page]
}

void head() {
    // [head]
    netrove::Client client;
    const netrove::Response response = client.get("https://example.org/old", {.fields = {{"Accept-Language", "en"}}});
    std::cout << response.status << ' ' << response.fields["Content-Type"] << ", " << response.bytes().size()
              << " bytes\n";
    for (const netrove::Hop& hop : response.hops) {
        std::cout << hop.method << ' ' << hop.url << ": " << hop.status << '\n';
    }
    // [/head]
}

void failure() {
    // [failure]
    netrove::Client client;
    try {
        client.get("https://example.org/missing");
    } catch (const netrove::Error& error) {
        std::cout << error.what() << '\n';
        if (error.kind() == netrove::ErrorKind::Status) {
            std::cout << "The server says: " << error.response().text();
        }
    }
    // [/failure]
}

void json() {
    // [json]
    netrove::Client client;
    const auto item = client.get("https://example.org/items/1").json<nlohmann::json>();
    std::cout << item.at("name") << '\n';
    // [/json]
}

void send() {
    // [send]
    netrove::Client client;
    const nlohmann::json item = {{"name", "lamp"}, {"price", 12}};
    const auto response = client.post("https://example.org/items", netrove::json(item));
    std::cout << response.status << ' ' << response.fields["Location"] << '\n';
    // [/send]
}

void settings() {
    // [settings]
    netrove::Client client({.url = "https://example.org/api/",
                            .login = {.user = "alice", .password = "wonderland"},
                            .limits = {.connect = 5s, .total = 1min}});
    std::cout << client.get("private").text();
    std::cout << client.get("slow-report", {.limits = {.total = 10min}}).status << '\n';
    // [/settings]
}

void save() {
    // [save]
    netrove::Client client;
    const auto saved =
        client.save("https://example.org/data.bin", "data.bin",
                    {.keepTime = true,
                     .sha256 = "bc634ceb27746878af610424e3afd5024f31e06f1f3479deda6cb33a21258bf7",
                     .progress = [](const netrove::Progress& now) { std::clog << '\r' << now.received << " bytes"; }});
    std::cout << saved.file.string() << ": " << saved.received << " bytes\n";
    // [/save]
}

void stream() {
    // [stream]
    netrove::Client client;
    std::size_t lines = 0;
    const auto response = client.stream("https://example.org/log", [&](std::span<const std::byte> piece) {
        lines += static_cast<std::size_t>(std::ranges::count(piece, std::byte{'\n'}));
        return lines < 100; // false: that was enough
    });
    std::cout << lines << " lines, " << (response.whole ? "all of them" : "and there are more") << '\n';
    // [/stream]
}

void upload() {
    // [upload]
    netrove::Client client;
    int row = 0;
    std::string text; // a generator returns the next piece, and an empty one at the end
    const auto table = netrove::generator([&] {
        text = row < 1000 ? std::to_string(row) + "," + std::to_string(row * row) + "\n" : "";
        ++row;
        return std::as_bytes(std::span(text));
    });
    std::cout << client.put("https://example.org/table.csv", table.as("text/csv")).text();
    // [/upload]
}

void many() {
    // [many]
    netrove::Pool pool({.jobs = 8, .perHost = 4});
    std::vector<std::string> urls;
    for (int number = 1; number <= 100; ++number) {
        urls.push_back("https://example.org/pages/" + std::to_string(number));
    }
    urls.push_back("https://example.org/missing");
    int done = 0;
    for (const netrove::Result& result : pool.getAll(urls)) {
        if (result) {
            ++done;
        } else {
            std::cout << result.error() << '\n';
        }
    }
    std::cout << done << " of " << urls.size() << '\n';
    // [/many]
}

} // namespace

int main(int argc, char** argv) {
    return runStep(argc, argv,
                   {{"page", page},
                    {"head", head},
                    {"failure", failure},
                    {"json", json},
                    {"send", send},
                    {"settings", settings},
                    {"save", save},
                    {"stream", stream},
                    {"upload", upload},
                    {"many", many}});
}
