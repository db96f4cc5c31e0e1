// Reads JSON lines as they come and stops at the first one with a value: stream_json_lines URL MEMBER VALUE
// Exit status as for grep: 0 found, 1 not found, 2 failed or wrong usage.
#include <nlohmann/json.hpp>
#include <vantik/Host.h>
#include <vantik/HostClass.h>
#include <vantik/Http.h>

#include <iostream>

int main(int argc, char** argv) {
    if (argc != 4) {
        std::cerr << "usage: stream_json_lines URL MEMBER VALUE\n";
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
        if (const double status = connection.get("ResponseCode").number(); status != 200) {
            throw std::runtime_error("the server answered " + std::to_string(static_cast<int>(status)));
        }

        bool found = false;
        const auto examine = [&](const std::string& line) {
            found = !line.empty() && nlohmann::json::parse(line).value(argv[2], nlohmann::json()) == argv[3];
            if (found) {
                std::cout << line << '\n';
            }
        };
        std::string rest; // the beginning of a line that is not complete yet
        vantik::ContentConsumer consumer;
        consumer.write = [&](std::span<const std::byte> piece) {
            rest += vantik::asText(piece);
            for (std::size_t end; !found && (end = rest.find('\n')) != std::string::npos; rest.erase(0, end + 1)) {
                examine(rest.substr(0, end)); // what it throws leaves copyContentToByteArray as it is
            }
            return found ? 0 : piece.size(); // less than offered: stops without a failure
        };
        connection.set("Consumer", makeConsumer(host, consumer));
        connection.call("copyContentToByteArray", {false}); // false: to the consumer alone
        connection.call("closeConnection");
        if (!found) {
            examine(rest); // the last line may have no line end
        }
        return found ? 0 : 1;
    } catch (const vantik::Failure& failure) {
        std::cerr << failure.identifier() << ": " << vantik::withoutSecrets(failure.what()) << '\n';
    } catch (const std::exception& failure) {
        std::cerr << failure.what() << '\n';
    }
    return 2;
}
