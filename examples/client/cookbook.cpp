// The recipes of docs/cookbook.md: cookbook PART
#include "Steps.h"

#include <netrove/client.h>
#include <netrove/pool.h>
#include <netrove/testing.h>

#include <filesystem>
#include <future>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono_literals;

void login() {
    // [login]
    netrove::Client client(
        {.login = {.user = "alice", .password = "wonderland", .schemes = {netrove::Scheme::Digest}}});
    try {
        std::cout << client.get("https://example.org/digest").text();
        std::cout << client.get("https://example.org/digest", {.login = {.user = "alice", .password = "wrong"}}).text();
    } catch (const netrove::Error& error) {
        std::cout << error.what() << '\n';
    }
    // [/login]
}

void token() {
    // [token]
    netrove::Client client({.url = "https://example.org/api/", .login = {.bearer = "t0ken"}});
    std::cout << client.get("token").text();
    // [/token]
}

void proxy() {
    // [proxy]
    netrove::Client client(
        {.proxy = {.url = "http://proxy.example.org:3128", .login = {.user = "alice", .password = "wonderland"}}});
    std::cout << client.get("http://intranet.example/").text();
    std::cout << client.get("https://example.org/hello", {.proxy = netrove::Proxy::none()}).text();
    // [/proxy]
}

void form() {
    // [form]
    netrove::Client client;
    const auto answer = client.post("https://example.org/form", netrove::form({{"name", "Zoë & Co"}, {"size", "10"}}));
    std::cout << answer.text() << '\n';
    // [/form]
}

void upload() {
    // [upload]
    netrove::Client client;
    const auto answer = client.post("https://example.org/photos",
                                    netrove::multipart({{.name = "title", .content = netrove::text("Summer")},
                                                        {.name = "photo", .content = netrove::file("photo.jpg")}}));
    std::cout << answer.text();
    // [/upload]
}

void resume() {
    // [resume]
    netrove::Client client;
    const auto saved = client.save("https://example.org/broken-off.bin", "big.bin",
                                   {.resume = true, .retry = {.attempts = 5, .wait = 100ms}});
    std::cout << std::filesystem::file_size(saved.file) << " bytes after " << saved.attempts << " attempts\n";
    // [/resume]
}

void retries() {
    // [retries]
    netrove::Client client({.limits = {.total = 2min}, .retry = {.attempts = 5, .wait = 100ms, .longestWait = 10s}});
    const auto response = client.get("https://example.org/busy");
    for (const netrove::Hop& hop : response.hops) {
        std::cout << hop.status << '\n';
    }
    std::cout << response.attempts << " attempts: " << response.text();
    // [/retries]
}

void many() {
    // [many]
    netrove::Pool pool({.jobs = 4, .perHost = 2});
    std::vector<std::future<netrove::Response>> files;
    for (const std::string name : {"a.csv", "missing", "b.csv"}) {
        files.push_back(pool.save("https://example.org/" + name, name));
    }
    for (auto& file : files) {
        try {
            std::cout << file.get().file.string() << '\n';
        } catch (const netrove::Error& error) {
            std::cout << error.what() << '\n';
        }
    }
    // [/many]
}

void cancel() {
    // [cancel]
    std::jthread worker([](std::stop_token stop) {
        try {
            netrove::get("https://example.org/endless", {.stop = stop});
        } catch (const netrove::Error& error) {
            std::cout << (error.kind() == netrove::ErrorKind::Interrupted ? "stopped" : error.what()) << '\n';
        }
    });
    worker.request_stop(); // when somebody presses the button; the destructor does it too
    // [/cancel]
}

// [double]
// A function of yours that takes the client it uses …
std::string greeting(netrove::Client& client) {
    return client.get("https://example.org/hello").text();
}

// … and its test: the answers come from a list, and no server runs.
void testDouble() {
    netrove::testing::Script script{{.content = "Hello"}, {.fault = netrove::testing::Fault::Timeout}};
    netrove::Client client({.retry = {.attempts = 1}}, script.transport());
    std::cout << greeting(client) << ", asked at " << script.requests().at(0).url << '\n';
    try {
        greeting(client);
    } catch (const netrove::Error& error) {
        std::cout << nameOf(error.kind()) << '\n';
    }
}
// [/double]

void charset() {
    // [charset]
    netrove::Client client;
    const auto page = client.get("https://example.org/latin1");
    std::cout << page.fields["Content-Type"] << ": " << page.bytes().size() << " bytes\n";
    std::cout << page.text() << '\n';
    try {
        client.get("https://example.org/bad-utf8").exactText(); // text() would show U+FFFD
    } catch (const netrove::Error& error) {
        std::cout << error.what() << '\n';
    }
    // [/charset]
}

} // namespace

int main(int argc, char** argv) {
    return runStep(argc, argv,
                   {{"login", login},
                    {"token", token},
                    {"proxy", proxy},
                    {"form", form},
                    {"upload", upload},
                    {"resume", resume},
                    {"retries", retries},
                    {"many", many},
                    {"cancel", cancel},
                    {"double", testDouble},
                    {"charset", charset}});
}
