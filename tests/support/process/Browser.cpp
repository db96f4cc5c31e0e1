#include "tests/support/process/Browser.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <system_error>
#include <unistd.h>

namespace testsupport {

namespace {

using nlohmann::json;

std::string browserFile() {
    for (const char* name : {"/usr/bin/chromium-headless-shell", "/usr/bin/chromium"}) {
        if (std::filesystem::exists(name)) {
            return name;
        }
    }
    throw std::runtime_error("no browser: install chromium-headless-shell");
}

struct Pipe {
    SocketHandle Read;
    SocketHandle Write;
};

Pipe makePipe() {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
        throw std::system_error(errno, std::generic_category(), "pipe");
    }
    return {SocketHandle(ends[0]), SocketHandle(ends[1])};
}

// The bytes of base64, which the browser wraps pictures in.
std::string decoded(const std::string& base64) {
    constexpr std::string_view letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string bytes;
    unsigned bits = 0;
    int count = 0;
    for (const char letter : base64) {
        const std::size_t value = letters.find(letter);
        if (value == std::string_view::npos) {
            break;
        }
        bits = (bits << 6U | static_cast<unsigned>(value)) & 0xFFFFU;
        count += 6;
        if (count >= 8) {
            count -= 8;
            bytes += static_cast<char>(bits >> static_cast<unsigned>(count) & 0xFFU);
        }
    }
    return bytes;
}

} // namespace

Browser::Browser() {
    Pipe calls = makePipe();
    Pipe answers = makePipe();
    const SocketHandle log(::open(Folder.file("log").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    // It takes calls on the descriptor 3 and answers on 4. Names resolve to nothing, and what it would ask of its maker
    // is left out.
    const std::string command =
        "exec " + browserFile() +
        " --headless --no-sandbox --disable-gpu --disable-dev-shm-usage --remote-debugging-pipe --no-first-run "
        "--disable-background-networking --disable-component-update --disable-sync --hide-scrollbars "
        "--host-resolver-rules='MAP * ~NOTFOUND' --no-proxy-server --user-data-dir=\"$HOME\" 3<&0 4>&1 >&2";
    Process.emplace(ProcessStart{.File = "/bin/sh",
                                 .Arguments = {"sh", "-c", command},
                                 .Environment = {"PATH=/usr/bin:/bin", "HOME=" + Folder.path(), "LANG=C.UTF-8"},
                                 .Folder = Folder.path(),
                                 .Streams = {calls.Read.get(), answers.Write.get(), log.get()}});
    ToBrowser = std::move(calls.Write);
    FromBrowser = std::move(answers.Read);
    calls.Read.reset();
    answers.Write.reset();
    const json target = call("Target.createTarget", {{"url", "about:blank"}});
    Session = call("Target.attachToTarget", {{"targetId", target["targetId"]}, {"flatten", true}})["sessionId"];
    for (const char* domain : {"Page", "Log", "Runtime", "Network"}) {
        call(std::string(domain) + ".enable");
    }
}

json Browser::receive() {
    std::size_t end = 0;
    while ((end = Buffer.find('\0')) == std::string::npos) {
        std::array<char, 65536> piece{};
        const ssize_t count = ::read(FromBrowser.get(), piece.data(), piece.size());
        if (count <= 0 && errno != EINTR) {
            throw std::runtime_error("the browser has ended:\n" + readFile(Folder.file("log")));
        }
        Buffer.append(piece.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    }
    const json message = json::parse(Buffer.substr(0, end));
    Buffer.erase(0, end + 1);
    return message;
}

json Browser::call(const std::string& method, const json& parameters) {
    json message = {{"id", ++LastCall}, {"method", method}, {"params", parameters}};
    if (!Session.empty()) {
        message["sessionId"] = Session;
    }
    const std::string text = message.dump() + '\0';
    for (std::size_t written = 0; written < text.size();) {
        const ssize_t count = ::write(ToBrowser.get(), text.data() + written, text.size() - written);
        if (count < 0) {
            throw std::system_error(errno, std::generic_category(), "the browser takes no call");
        }
        written += static_cast<std::size_t>(count);
    }
    for (;;) {
        const json answer = receive();
        if (answer.value("id", 0) != LastCall) {
            take(answer);
        } else if (answer.contains("error")) {
            throw std::runtime_error(method + ": " + answer["error"].dump());
        } else {
            return answer["result"];
        }
    }
}

void Browser::take(const json& event) {
    const std::string method = event.value("method", "");
    if (method == "Page.loadEventFired") {
        Loaded = true;
    } else if (method == "Network.requestWillBeSent") {
        const std::string url = event["params"]["request"]["url"];
        if (url != Page) {
            Complaints.push_back("asked for " + url);
        }
    } else if (method == "Log.entryAdded") {
        Complaints.push_back(event["params"]["entry"]["text"]);
    } else if (method == "Runtime.consoleAPICalled" || method == "Runtime.exceptionThrown") {
        Complaints.push_back(event["params"].dump());
    }
}

void Browser::open(const std::string& file) {
    Complaints.clear();
    Loaded = false;
    Page = "file://" + file;
    call("Page.navigate", {{"url", Page}});
    while (!Loaded) {
        take(receive());
    }
}

void Browser::show(int width, bool dark, bool paper) {
    constexpr int height = 900;
    call("Emulation.setDeviceMetricsOverride",
         {{"width", width}, {"height", height}, {"deviceScaleFactor", 1}, {"mobile", false}});
    const json scheme = {{"name", "prefers-color-scheme"}, {"value", dark ? "dark" : "light"}};
    call("Emulation.setEmulatedMedia", {{"media", paper ? "print" : "screen"}, {"features", json::array({scheme})}});
}

json Browser::evaluate(const std::string& expression) {
    const json result = call("Runtime.evaluate", {{"expression", expression}, {"returnByValue", true}});
    if (result.contains("exceptionDetails")) {
        throw std::runtime_error(result["exceptionDetails"].dump());
    }
    return result["result"].value("value", json());
}

void Browser::savePicture(const std::string& file, int height) {
    json parameters = {{"format", "png"}, {"captureBeyondViewport", true}};
    if (height != 0) {
        parameters["clip"] = {{"x", 0}, {"y", 0}, {"width", evaluate("innerWidth")}, {"height", height}, {"scale", 1}};
    }
    writeFile(file, decoded(call("Page.captureScreenshot", parameters)["data"]));
}

std::vector<std::string> Browser::complaints() {
    evaluate("0"); // what came before its answer has been taken
    return Complaints;
}

} // namespace testsupport
