// Scopes of one process that run side by side on threads of their own.
#include "tests/integration/nginx/Nginx.h"
#include "tests/integration/support/IntegrationFixture.h"
#include "tests/support/host/LeakCheck.h"

#include <functional>
#include <thread>

namespace {

using namespace integrationtest;
using vantik::Host;

constexpr int kRounds = 100;
const std::string kSmall = generated(200);
const std::string kPiece = generated(16384);

class TwoScopes : public testing::Test {
protected:
    TwoScopes() {
        writeFile(Server.documentFile("small"), kSmall);
        writeFile(Server.documentFile("piece"), kPiece);
    }

    // Runs `work` with a scope of its own. What it raises fails the test.
    static void inScope(const std::function<void(Host&)>& work) {
        try {
            Host host;
            host.load(modulePath());
            work(host);
        } catch (const std::exception& failure) {
            ADD_FAILURE() << failure.what();
        }
    }

    static Object openUrl(Host& host, const std::string& url, const std::string& certificateFile = {}) {
        Object connection = host.create(kAdapterClass, {true});
        connection.set("URL", url);
        connection.set("CertificateFilename", certificateFile);
        connection.call("openConnection");
        return connection;
    }
    Object openPath(Host& host, const std::string& path, bool http2) const {
        return openUrl(host, http2 ? Server.http2Url(path) : Server.url(path), Server.certificateFile());
    }

    static void expectContent(const Object& connection, const std::string& content) {
        EXPECT_EQ(receiveBytes(connection), content);
        EXPECT_EQ(connection.get("ResponseCode").number(), 200);
        connection.call("closeConnection");
    }

    const LeakCheck Leaks;
    const Nginx Server;
};

TEST_F(TwoScopes, MakeExchangesOfAllKindsOnTwoThreads) {
    const auto work = [this](const std::string& name) {
        inScope([&](Host& host) {
            for (int round = 0; round < kRounds; ++round) {
                if (round % 25 == 24) { // everything begins anew, TLS included, while the other thread goes on
                    host.create(kAdapterClass, {true}).call("closeAllConnections");
                }
                const bool http2 = round % 2 == 1;
                const bool small = round % 4 < 2;
                expectContent(openPath(host, small ? "/files/small" : "/files/piece", http2), small ? kSmall : kPiece);

                const std::string content = name + std::to_string(round) + kPiece;
                const Object upload = openPath(host, "/put/" + name, http2);
                upload.set("RequestMethod", "PUT");
                if (round % 8 < 4) {
                    upload.set("Payload", Array::bytes(std::string_view(content)));
                } else {
                    upload.set("Provider", makeScriptedProvider(host, content));
                }
                EXPECT_EQ(receiveBytes(upload), "");
                EXPECT_EQ(upload.get("ResponseCode").number(), round == 0 ? 201 : 204);
                EXPECT_EQ(readFile(Server.storedFile(name)), content);
                upload.call("closeConnection");

                const Object missing = openPath(host, "/files/missing-" + name, http2);
                receiveBytes(missing);
                EXPECT_EQ(missing.get("ResponseCode").number(), 404);
                missing.call("closeConnection");
            }
        });
    };
    std::thread first(work, "first");
    std::thread second(work, "second");
    first.join();
    second.join();
}

// The first scope of a process starts libcurl and the last drops it; both can happen at the same time as the other's.
TEST_F(TwoScopes, ComeAndGoOnTwoThreads) {
    const auto work = [this] {
        for (int round = 0; round < 20; ++round) {
            inScope([&](Host& host) { expectContent(openPath(host, "/files/small", round % 2 == 1), kSmall); });
        }
    };
    std::thread first(work);
    std::thread second(work);
    first.join();
    second.join();
}

// An interrupt from elsewhere stops the scope that it names, and no other.
TEST_F(TwoScopes, AreInterruptedOneByOne) {
    ScriptedServer silent({step::expectHead(), step::signal("asked"), step::awaitPeerEnd()});
    Host waiting;
    std::thread stopped([&] {
        waiting.load(modulePath());
        const Object connection = openUrl(waiting, silent.url("/"));
        EXPECT_EQ(failureOf([&] { receiveBytes(connection); }).identifier(), "VANTIK:webservices:ConnectionFailed");
        connection.call("closeConnection");
    });
    silent.waitFor("asked");
    std::thread other([&] {
        inScope([&](Host& host) {
            const Object connection = openPath(host, "/files/small", false);
            waiting.interrupt();
            expectContent(connection, kSmall);
        });
    });
    stopped.join();
    other.join();
}

} // namespace
