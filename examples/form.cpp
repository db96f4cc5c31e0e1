// Sends a form with a text and a file: form URL TITLE FILE
#include <netrove/client.h>

#include <iostream>

int main(int argc, char** argv) {
    if (argc != 4) {
        std::cerr << "usage: form URL TITLE FILE\n";
        return 2;
    }
    try {
        const netrove::Part title = {.name = "title", .content = netrove::text(argv[2])};
        const netrove::Part photo = {.name = "photo", .content = netrove::file(argv[3])};
        std::cout << netrove::post(argv[1], netrove::multipart({title, photo})).text();
    } catch (const netrove::Error& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
