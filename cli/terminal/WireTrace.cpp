#include "cli/terminal/WireTrace.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <iostream>
#include <iterator>
#include <utility>

namespace netrove::cli {

namespace {

// How libcurl begins what is worth a line; versions differ in their words.
constexpr std::string_view kBegins[] = {
    "Trying ",
    "Connected to ",
    "Established connection ",
    "connect to ",
    "Could not resolve ",
    "Re-using existing ",
    "Reusing existing ",
    "Connection died",
    "Establish HTTP proxy tunnel",
    "CONNECT ",
    "Proxy auth using ",
    "Server auth using ",
    "SSL connection using ",
    "ALPN: server accepted ",
    "subject: ",
    "expire date: ",
    "issuer: ",
    "SSL certificate",
    "Issue another request",
    "SOCKS",
};

std::string_view trimmed(std::string_view text) {
    const auto first = text.find_first_not_of(' ');
    return first == text.npos ? std::string_view() : text.substr(first);
}

bool ofCookies(std::string_view words) {
    return words.find("cookie") != words.npos || words.find("Cookie") != words.npos;
}

// What this thread does; 0: the only one.
thread_local std::size_t transferNumber = 0;

std::string timeOfDay() {
    using namespace std::chrono;
    const auto now = system_clock::now();
    const std::time_t seconds = system_clock::to_time_t(now);
    std::tm local{};
    localtime_r(&seconds, &local);
    const auto part = static_cast<int>(duration_cast<milliseconds>(now.time_since_epoch()).count() % 1000);
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%02d:%02d:%02d.%03d ", local.tm_hour, local.tm_min, local.tm_sec, part);
    return text.data();
}

} // namespace

// The class writes a label and then the words that libcurl has said, each by one call; all else that it traces is not
// shown. Without a put area each call arrives as it was made, of whatever thread.
class WireTrace::Words : public std::streambuf {
public:
    explicit Words(WireTrace& trace) : Trace(trace) {}

protected:
    std::streamsize xsputn(const char* data, std::streamsize count) override {
        thread_local bool labelled = false;
        const std::string_view text(data, static_cast<std::size_t>(count));
        if (labelled) {
            Trace.said(text);
        }
        labelled = !labelled && text.starts_with("IN INFO (") && text.ends_with("): ");
        return count;
    }
    int_type overflow(int_type c) override { return traits_type::not_eof(c); }

private:
    WireTrace& Trace;
};

WireTrace::WireTrace(Writer writer, bool everything, bool times)
    : Write(std::move(writer)), Everything(everything), Times(times), Buffer(std::make_unique<Words>(*this)),
      Previous(std::cout.rdbuf(Buffer.get())) {}

WireTrace::~WireTrace() {
    std::cout.rdbuf(Previous);
    endHead();
}

WireTrace::Transfer::Transfer(WireTrace& trace, std::size_t number, const std::string& url) : Trace(trace) {
    transferNumber = number;
    Trace.put('*', url);
}

WireTrace::Transfer::~Transfer() {
    const std::lock_guard guard(Trace.Guard);
    Trace.endHead();
    transferNumber = 0;
}

void WireTrace::line(const netrove::TraceLine& line) {
    using Kind = netrove::TraceLine::Kind;
    put(line.kind == Kind::Sent ? '>' : line.kind == Kind::Received ? '<' : '*', line.text);
}

void WireTrace::said(std::string_view text) {
    if (Everything ? !ofCookies(text) : matters(text)) {
        put('*', trimmed(text));
    }
}

void WireTrace::put(char mark, std::string_view text) {
    const std::lock_guard guard(Guard);
    if (Open[transferNumber] != mark) {
        endHead();
    }
    Open[transferNumber] = mark == '*' ? 0 : mark;
    write(mark, text);
}

// The empty line there.
void WireTrace::endHead() {
    if (const char mark = std::exchange(Open[transferNumber], 0); mark != 0) {
        write(mark, "");
    }
}

void WireTrace::write(char mark, std::string_view text) const {
    std::string start = Times ? timeOfDay() : "";
    start += transferNumber == 0 ? "" : "[" + std::to_string(transferNumber) + "] ";
    start += mark;
    Write(start + (text.empty() ? "" : " "), text);
}

netrove::Request tracedBy(WireTrace* trace) {
    netrove::Request defaults;
    if (trace != nullptr) {
        defaults.trace = [trace](const netrove::TraceLine& line) { trace->line(line); };
    }
    return defaults;
}

bool matters(std::string_view words) {
    const std::string_view text = trimmed(words);
    return !ofCookies(text) && std::any_of(std::begin(kBegins), std::end(kBegins),
                                           [&](std::string_view begin) { return text.starts_with(begin); });
}

} // namespace netrove::cli
