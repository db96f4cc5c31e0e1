// Gets a URL through the proxy that this machine's settings name for it, until Ctrl-C: through_proxy URL SECONDS
// SECONDS limits how long the server may be silent. Exit status: 0 done, 1 failed or refused, 2 wrong usage, 130
// interrupted.
#include <vantik/Host.h>
#include <vantik/Http.h>

#include <csignal>
#include <cstdlib>
#include <iostream>
#include <thread>

int get(vantik::Host& host, const char* url, std::chrono::duration<double> silence) {
    host.load("netrove");
    host.treatAsFailure(vantik::kIncompleteContent);
    const vantik::Object connection = host.create(vantik::kHttpConnectionClass, {true});
    connection.set("URL", url);
    connection.set("CertificateFilename", "default");
    connection.set("TimeoutInMilliseconds", vantik::httpTimeouts({.Response = silence, .Data = silence}));

    const vantik::Array proxy = host.callBuiltin(vantik::kProxyLookup, {connection.get("URL")});
    const std::string name = proxy.field("Host").text();
    std::cerr << (name.empty() ? "no proxy" : "proxy " + name) << '\n';
    connection.set("ProxyUsername", proxy.field("Username"));
    connection.set("ProxyPassword", proxy.field("Password"));
    connection.call("openProxyConnection", {proxy}); // without a host it opens a direct connection
    connection.call("setAuthenticationSchemes",
                    {vantik::Array::enumeration(vantik::kAuthenticationSchemeClass, {"Basic", "Digest"}), true});
    std::cout << connection.call("copyContentToByteArray", {true}).byteText();
    connection.call("closeConnection");
    return connection.get("ResponseCode").number() < 400 ? 0 : 1;
}

int main(int argc, char** argv) {
    char* end = nullptr;
    const double seconds = argc == 3 ? std::strtod(argv[2], &end) : 0;
    if (!(seconds > 0) || *end != '\0') {
        std::cerr << "usage: through_proxy URL SECONDS\n";
        return 2;
    }
    sigset_t signals; // blocked before any thread starts, so that the one below gets them
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    vantik::Host host;
    const std::jthread watcher([&](const std::stop_token& over) {
        const timespec pause{0, 100'000'000};
        while (!over.stop_requested()) {
            if (sigtimedwait(&signals, nullptr, &pause) == SIGINT) {
                host.interrupt(); // one of the few operations for any thread
            }
        }
    });
    try {
        return get(host, argv[1], std::chrono::duration<double>(seconds));
    } catch (const vantik::Failure& failure) {
        std::cerr << failure.identifier() << ": " << vantik::withoutSecrets(failure.what()) << '\n';
        return host.wasInterrupted() ? 130 : 1; // before the response an interrupt is a failed connection
    }
}
