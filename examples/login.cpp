// Gets a URL that wants a login: login URL USER PASSWORD
#include <netrove/client.h>

#include <iostream>

int main(int argc, char** argv) {
    if (argc != 4) {
        std::cerr << "usage: login URL USER PASSWORD\n";
        return 2;
    }
    try {
        std::cout << netrove::get(argv[1], {.login = {.user = argv[2], .password = argv[3]}}).text();
    } catch (const netrove::Error& error) {
        const bool refused = error.response().status == 401;
        std::cerr << (refused ? "user name or password is wrong: " : "") << error.what() << '\n';
        return 1;
    }
}
