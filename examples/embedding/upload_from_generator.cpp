// Uploads lines that are made while they are sent, never all in memory: upload_from_generator URL COUNT
// Exit status: 0 taken by the server, 1 failed or refused, 2 wrong usage.
#include <vantik/Host.h>
#include <vantik/HostClass.h>
#include <vantik/Http.h>

#include <charconv>
#include <iostream>

int main(int argc, char** argv) {
    const std::string_view number = argc == 3 ? argv[2] : "";
    std::uint64_t count = 0;
    const auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), count);
    if (error != std::errc() || end != number.data() + number.size()) {
        std::cerr << "usage: upload_from_generator URL COUNT\n";
        return 2;
    }
    try {
        vantik::Host host;
        host.load("netrove");
        host.treatAsFailure(vantik::kIncompleteContent);
        const vantik::Object connection = host.create(vantik::kHttpConnectionClass, {true});
        connection.set("URL", argv[1]);
        connection.set("CertificateFilename", "default");
        connection.set("TimeoutInMilliseconds", vantik::httpTimeouts());
        connection.call("openConnection");

        // Method, fields and content come after the open, which clears those of the previous request.
        connection.set("RequestMethod", "PUT");
        connection.call("setFields", {vantik::httpFields({{"Content-Type", "text/csv"}, {"Accept", "text/plain"}})});
        std::uint64_t next = 0;
        vantik::ContentProvider lines;
        lines.rewind = [&] { next = 0; }; // before the first line, and if the server asks for everything again
        lines.read = [&](std::uint64_t wanted) {
            std::string piece;
            for (; next < count && piece.size() < wanted; ++next) {
                piece += std::to_string(next) + "," + std::to_string(next * next) + "\n";
            }
            return vantik::Array::bytes(piece); // no bytes: that was all
        };
        connection.set("Provider", makeProvider(host, lines));

        const std::string answer = connection.call("copyContentToByteArray", {true}).byteText();
        const double status = connection.get("ResponseCode").number();
        connection.call("closeConnection");
        std::cout << answer;
        std::cerr << "sent " << next << " lines, the server answered " << status << '\n';
        return status >= 200 && status < 300 ? 0 : 1;
    } catch (const vantik::Failure& failure) {
        std::cerr << failure.identifier() << ": " << vantik::withoutSecrets(failure.what()) << '\n';
        return 1;
    }
}
