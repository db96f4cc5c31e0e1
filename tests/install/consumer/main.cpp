// Writes the content of a URL to standard output.
#include <netrove/client.h>

#include <iostream>

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: fetch URL\n";
        return 2;
    }
    try {
        std::cout << netrove::get(argv[1]).content;
    } catch (const netrove::Error& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
