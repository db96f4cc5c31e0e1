// Gets a URL into memory and prints its content: get_to_memory URL
// Exit status: 0 done, 1 failed or refused by the server, 2 wrong usage.
#include <vantik/Host.h>
#include <vantik/Http.h>

#include <iostream>

using namespace std::chrono_literals;

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: get_to_memory URL\n";
        return 2;
    }
    try {
        vantik::Host host; // a scope: classes, connections and cookies of its own
        host.load("netrove");
        host.treatAsFailure(vantik::kIncompleteContent); // otherwise only a warning

        const vantik::Object connection = host.create(vantik::kHttpConnectionClass, {true});
        connection.set("URL", argv[1]);
        connection.set("CertificateFilename", "default"); // verify the server; empty would not
        connection.set("TimeoutInMilliseconds", vantik::httpTimeouts({.Connect = 10s, .Response = 30s, .Data = 30s}));
        connection.call("openConnection");
        const vantik::Array content = connection.call("copyContentToByteArray", {true}); // sends, and receives
        const double status = connection.get("ResponseCode").number();
        connection.call("closeConnection"); // the network connection is kept for the next request

        std::cout << content.byteText();
        if (status >= 400) {
            std::cerr << "the server answered " << status << '\n';
            return 1;
        }
    } catch (const vantik::Failure& failure) {
        std::cerr << failure.identifier() << ": " << vantik::withoutSecrets(failure.what()) << '\n';
        return 1;
    }
}
