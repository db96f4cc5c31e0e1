// Scopes of one process that run side by side on threads of their own.
#include "tests/integration/nginx/Nginx.h"
#include "tests/support/crypto/Digest.h"
#include "tests/support/host/HostFixture.h"
#include "tests/support/host/LeakCheck.h"
#include "tests/support/host/ScriptedObjects.h"
#include "vantik/Host.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

namespace {

using namespace integrationtest;
using testsupport::generated;
using testsupport::readFile;
using testsupport::receiveBytes;
using vantik::Array;
using vantik::Host;
using vantik::Object;

constexpr int kRounds = 100;

// One thread's work: a scope of its own, and exchanges of all kinds in turn.
class Worker {
public:
    Worker(const Nginx& server, std::string name) : Server(server), Name(std::move(name)) {}

    void run() {
        try {
            Host host;
            host.load(testsupport::modulePath());
            for (int number = 0; number < kRounds; ++number) {
                goRound(host, number);
            }
        } catch (const std::exception& failure) {
            ADD_FAILURE() << Name << ": " << failure.what();
        }
    }
    int done() const { return Done; }

private:
    const Nginx& Server;
    std::string Name;
    int Done = 0;
    const std::string Small = generated(200);
    const std::string Piece = generated(16384);

    Object open(Host& host, const std::string& path, bool tls) {
        Object connection = host.create(testsupport::kAdapterClass, {true});
        connection.set("URL", tls ? Server.http2Url(path) : Server.url(path));
        connection.set("CertificateFilename", Server.certificateFile());
        connection.call("openConnection");
        return connection;
    }

    void goRound(Host& host, int number) {
        // Now and then everything begins anew, TLS included, while the other thread goes on.
        if (number % 25 == 24) {
            host.create(testsupport::kAdapterClass, {true}).call("closeAllConnections");
        }
        const bool tls = number % 2 == 1;
        get(open(host, number % 4 < 2 ? "/files/small" : "/files/piece", tls), 200, number % 4 < 2 ? Small : Piece);
        put(host, open(host, "/put/" + Name, tls), number);
        get(open(host, "/files/missing-" + Name, tls), 404, "");
        ++Done;
    }

    static void get(const Object& connection, int status, const std::string& content) {
        const std::string received = receiveBytes(connection);
        EXPECT_EQ(connection.get("ResponseCode").number(), status);
        if (!content.empty()) {
            EXPECT_EQ(received, content);
        }
        connection.call("closeConnection");
    }

    void put(Host& host, const Object& connection, int number) {
        const std::string content = Name + std::to_string(number) + Piece;
        connection.set("RequestMethod", "PUT");
        if (number % 8 < 4) {
            connection.set("Payload", Array::bytes(std::string_view(content)));
        } else {
            connection.set("Provider", testsupport::makeScriptedProvider(host, content));
        }
        EXPECT_EQ(receiveBytes(connection), "");
        const double status = connection.get("ResponseCode").number();
        EXPECT_TRUE(status == 201.0 || status == 204.0) << status;
        EXPECT_EQ(readFile(Server.storedFile(Name)), content);
        connection.call("closeConnection");
    }
};

TEST(TwoScopes, RunSideBySideOnTwoThreads) {
    const testsupport::LeakCheck leaks;
    const Nginx server;
    testsupport::writeFile(server.documentFile("small"), generated(200));
    testsupport::writeFile(server.documentFile("piece"), generated(16384));
    Worker first(server, "first");
    Worker second(server, "second");
    std::thread thread([&] { first.run(); });
    std::thread another([&] { second.run(); });
    thread.join();
    another.join();
    EXPECT_EQ(first.done(), kRounds);
    EXPECT_EQ(second.done(), kRounds);
}

// The first scope of a process starts libcurl and the last drops it; both can happen at the same time as the other's.
TEST(TwoScopes, ComeAndGoOnTwoThreads) {
    const testsupport::LeakCheck leaks;
    const Nginx server;
    testsupport::writeFile(server.documentFile("small"), generated(200));
    const auto comeAndGo = [&server] {
        try {
            for (int round = 0; round < 20; ++round) {
                Host host;
                host.load(testsupport::modulePath());
                const Object connection = host.create(testsupport::kAdapterClass, {true});
                connection.set("URL", round % 2 == 0 ? server.url("/files/small") : server.http2Url("/files/small"));
                connection.call("openConnection");
                EXPECT_EQ(receiveBytes(connection), generated(200));
                connection.call("closeConnection");
            }
        } catch (const std::exception& failure) {
            ADD_FAILURE() << failure.what();
        }
    };
    std::thread thread(comeAndGo);
    std::thread another(comeAndGo);
    thread.join();
    another.join();
}

// An interrupt from elsewhere stops the scope that it names, and no other.
TEST(TwoScopes, AreInterruptedOneByOne) {
    const testsupport::LeakCheck leaks;
    testsupport::ScriptedServer silent(
        {testsupport::step::expectHead(), testsupport::step::signal("asked"), testsupport::step::awaitPeerEnd()});
    const Nginx server;
    testsupport::writeFile(server.documentFile("small"), generated(200));
    Host waiting;
    std::thread thread([&] {
        waiting.load(testsupport::modulePath());
        const Object connection = waiting.create(testsupport::kAdapterClass, {true});
        connection.set("URL", silent.url("/"));
        connection.call("openConnection");
        EXPECT_EQ(testsupport::failureOf([&] { receiveBytes(connection); }).identifier(),
                  "VANTIK:webservices:ConnectionFailed");
        connection.call("closeConnection");
    });
    silent.waitFor("asked");
    std::thread another([&] {
        Host host;
        host.load(testsupport::modulePath());
        const Object connection = host.create(testsupport::kAdapterClass, {true});
        connection.set("URL", server.url("/files/small"));
        connection.call("openConnection");
        waiting.interrupt();
        EXPECT_EQ(receiveBytes(connection), generated(200));
        connection.call("closeConnection");
    });
    thread.join();
    another.join();
}

} // namespace
