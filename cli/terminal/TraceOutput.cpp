#include "cli/terminal/TraceOutput.h"

#include "cli/terminal/Output.h"

#include <netrove/text.h>

#include <iostream>
#include <string>
#include <unistd.h>

namespace netrove::cli {

namespace {

// Collects until the library flushes, which it does after every write.
class TraceBuffer : public std::streambuf {
public:
    explicit TraceBuffer(bool terminal) : Terminal(terminal) {}
    ~TraceBuffer() override { pass(); }

protected:
    int_type overflow(int_type c) override {
        if (!traits_type::eq_int_type(c, traits_type::eof())) {
            Pending += traits_type::to_char_type(c);
        }
        return traits_type::not_eof(c);
    }

    std::streamsize xsputn(const char* text, std::streamsize count) override {
        Pending.append(text, static_cast<std::size_t>(count));
        return count;
    }

    int sync() override {
        pass();
        return 0;
    }

private:
    void pass() {
        [[maybe_unused]] const bool written = writeAll(STDERR_FILENO, Terminal ? printableLines(Pending) : Pending);
        Pending.clear();
    }

    bool Terminal;
    std::string Pending;
};

} // namespace

TraceOutput::TraceOutput(bool terminal)
    : Buffer(std::make_unique<TraceBuffer>(terminal)), Previous(std::cout.rdbuf(Buffer.get())) {}

TraceOutput::~TraceOutput() {
    std::cout.flush();
    std::cout.rdbuf(Previous);
}

} // namespace netrove::cli
