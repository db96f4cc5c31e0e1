// Saves a URL to a file and shows how far it is: download URL FILE
// The file is whole or not there. What a broken transfer leaves in FILE.part is used by the next run.
#include <netrove/client.h>

#include <iostream>

void show(const netrove::Progress& now) {
    std::cerr << now.received << " of " << (now.toReceive ? std::to_string(*now.toReceive) : "unknown") << " bytes\r";
}

int main(int argc, char** argv) {
    if (argc != 3) {
        std::cerr << "usage: download URL FILE\n";
        return 2;
    }
    try {
        const netrove::Response saved = netrove::save(argv[1], argv[2], {.resume = true, .progress = show});
        std::cerr << saved.file.string() << ": " << saved.resumedAt + saved.received << " bytes saved\n";
    } catch (const netrove::Error& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
