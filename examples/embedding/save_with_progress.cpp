// Saves a URL to a file and shows progress: save_with_progress URL FILE
// The file is complete or not there at all. Exit status: 0 saved, 1 failed, 2 wrong usage.
#include <vantik/Host.h>
#include <vantik/HostClass.h>
#include <vantik/Http.h>

#include <filesystem>
#include <iostream>

void save(const std::string& url, const std::string& part) {
    vantik::Host host;
    host.load("netrove");
    host.treatAsFailure(vantik::kIncompleteContent);
    const vantik::Object connection = host.create(vantik::kHttpConnectionClass, {true});
    connection.set("URL", url);
    connection.set("CertificateFilename", "default");
    connection.set("TimeoutInMilliseconds", vantik::httpTimeouts()); // 10 s to connect, 60 s of silence
    connection.call("openConnection");

    // Asking for the status sends the request and waits for the head of the response.
    if (const double status = connection.get("ResponseCode").number(); status != 200) {
        throw std::runtime_error("the server answered " + std::to_string(static_cast<int>(status)));
    }
    const std::string total = connection.call("getResponseField", {"Content-Length"}).textOr("unknown");

    std::uint64_t received = 0;
    connection.set("ProgressReporter", makeProgressReporter(host, [&](std::uint64_t bytes) {
                       received = bytes;
                       std::cerr << bytes << " of " << total << " bytes\r" << std::flush;
                       return true; // false would stop the transfer
                   }));
    connection.call("copyContentToFile", {part});
    connection.call("closeConnection");
    std::cerr << '\n';
    if (std::filesystem::file_size(part) != received) { // a full disk may show only when the file is closed
        throw std::runtime_error("the file could not be written");
    }
}

int main(int argc, char** argv) {
    if (argc != 3) {
        std::cerr << "usage: save_with_progress URL FILE\n";
        return 2;
    }
    const std::string part = std::string(argv[2]) + ".part";
    try {
        save(argv[1], part);
        std::filesystem::rename(part, argv[2]);
        return 0;
    } catch (const vantik::Failure& failure) {
        std::cerr << failure.identifier() << ": " << vantik::withoutSecrets(failure.what()) << '\n';
    } catch (const std::exception& failure) {
        std::cerr << failure.what() << '\n';
    }
    std::error_code ignored;
    std::filesystem::remove(part, ignored);
    return 1;
}
