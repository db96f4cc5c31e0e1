// Uploads a table that is made while it is sent, never all in memory: upload URL
#include <netrove/client.h>

#include <iostream>

// Returns one line of the table each time it is called, and nothing after the last.
netrove::Generator squares() {
    return [line = std::string(), next = 0]() mutable {
        line = next < 100'000 ? std::to_string(next) + "," + std::to_string(std::int64_t{next} * next) + "\n" : "";
        ++next;
        return std::as_bytes(std::span(line));
    };
}

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: upload URL\n";
        return 2;
    }
    try {
        // It can begin again, so a redirect or a login on the way does no harm.
        std::cout << netrove::put(argv[1], netrove::generators(squares, {}, "text/csv")).text();
    } catch (const netrove::Error& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
