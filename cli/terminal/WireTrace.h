// What -v shows on standard error: "* " what is decided and what libcurl reports, "> " heads as sent, "< " heads as
// received. Credentials are masked, and no text of a server controls a terminal.
#pragma once

#include <netrove/request.h>

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <streambuf>
#include <string>
#include <string_view>

namespace netrove::cli {

// The connections and certificates are known to libcurl alone. Its words are in the trace that the class writes to
// std::cout, which this takes while it lives: the class must trace at level 1.
class WireTrace {
public:
    // Writes a line, of any thread: what it begins with, and a text that may hold anything.
    using Writer = std::function<void(const std::string& start, std::string_view text)>;

    // `everything`: all that libcurl says, not only what matters to most. `times`: the time of day before each line.
    WireTrace(Writer writer, bool everything, bool times);
    ~WireTrace();
    WireTrace(const WireTrace&) = delete;
    WireTrace& operator=(const WireTrace&) = delete;

    // Of any thread.
    void line(const netrove::TraceLine& line);

    // One of several transfers at the same time, which this thread does while it lives: its lines begin with "[1] ".
    class Transfer {
    public:
        Transfer(WireTrace& trace, std::size_t number, const std::string& url);
        ~Transfer();
        Transfer(const Transfer&) = delete;
        Transfer& operator=(const Transfer&) = delete;

    private:
        WireTrace& Trace;
    };

private:
    class Words;

    void said(std::string_view text);
    void put(char mark, std::string_view text);
    void endHead();
    void write(char mark, std::string_view text) const;

    Writer Write;
    bool Everything;
    bool Times;
    std::mutex Guard;
    std::map<std::size_t, char> Open; // by transfer, the mark of the head whose last line has not come
    std::unique_ptr<Words> Buffer;
    std::streambuf* Previous;
};

// The settings of a client whose calls it shows; null: nobody does.
netrove::Request tracedBy(WireTrace* trace);

// True for what -v shows of libcurl's words: the connection, who the server is, logins, and nothing of cookies.
bool matters(std::string_view words);

} // namespace netrove::cli
