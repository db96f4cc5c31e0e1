// What -v shows on standard error: "* " what is decided and what libcurl reports, "> " heads as sent, "< " heads as
// received. Credentials are masked, and no text of a server controls a terminal.
#pragma once

#include "cli/terminal/Output.h"

#include <netrove/request.h>

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
    // `everything`: all that libcurl says, not only what matters to most. `times`: the time of day before each line.
    WireTrace(const Console& console, bool everything, bool times);
    ~WireTrace();
    WireTrace(const WireTrace&) = delete;
    WireTrace& operator=(const WireTrace&) = delete;

    // Of any thread.
    void line(const netrove::TraceLine& line);

private:
    class Words;

    void said(std::string_view text);
    void put(char mark, std::string_view text);
    void write(char mark, std::string_view text) const;

    const Console& TheConsole;
    bool Everything;
    bool Times;
    std::mutex Guard;
    char Open = 0; // the mark of the head whose last line has not come
    std::unique_ptr<Words> Buffer;
    std::streambuf* Previous;
};

// True for what -v shows of libcurl's words: the connection, who the server is, logins, and nothing of cookies.
bool matters(std::string_view words);

} // namespace netrove::cli
