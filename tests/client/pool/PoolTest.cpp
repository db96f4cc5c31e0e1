#include "tests/support/server/ScriptedServer.h"
#include "tests/support/server/WireText.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netrove/pool.h>
#include <netrove/testing.h>

#include <atomic>
#include <latch>
#include <map>
#include <mutex>
#include <utility>

using namespace netrove;
using netrove::testing::Fault;
namespace step = testsupport::step;
using testsupport::Script;
using testsupport::ScriptedServer;

namespace {

TEST(Pool, ResultsComeInTheOrderInWhichTheyEnd) {
    netrove::testing::Script script{{.content = "a", .url = "http://a/"},
                                    {.status = 404, .url = "http://b/"},
                                    {.fault = Fault::Refused, .url = "http://c/"}};
    Pool pool({.jobs = 3}, {.retry = {.attempts = 1}}, [&] { return script.transport(); });
    std::map<std::string, std::string> seen;
    for (const Result& result : pool.getAll({"http://a/", "http://b/", "http://c/"})) {
        seen[result.url] = result ? result.value().text() : result.error();
    }
    ASSERT_EQ(seen.size(), 3u);
    EXPECT_EQ(seen["http://a/"], "a");
    EXPECT_THAT(seen["http://b/"], ::testing::HasSubstr("404"));
    EXPECT_THAT(seen["http://c/"], ::testing::HasSubstr("no connection"));
}

TEST(Pool, FuturesHoldResponsesAndErrors) {
    netrove::testing::Script script{{.content = "a", .url = "http://a/"}, {.status = 500, .url = "http://b/"}};
    Pool pool({.jobs = 2}, {}, [&] { return script.transport(); });
    auto good = pool.get("http://a/");
    auto bad = pool.request({.url = "http://b/"});
    EXPECT_EQ(good.get().text(), "a");
    EXPECT_THROW(bad.get(), Error);
    EXPECT_EQ(pool.submit("http://c/", [](Client&) { return 7; }).get(), 7);
}

// Tasks that meet: as many at a time as are allowed, from every host, and no more.
TEST(Pool, LimitsRequestsToOneHost) {
    netrove::testing::Script script{};
    Pool pool({.jobs = 6, .perHost = 2}, {}, [&] { return script.transport(); });
    std::latch bothHosts(4); // two of each: a host with too few would hang here
    std::mutex guard;
    std::map<std::string, int> now;
    std::map<std::string, int> most;
    std::vector<std::future<void>> futures;
    for (int i = 0; i < 12; ++i) {
        const std::string host = i % 2 == 0 ? "http://a/" : "http://b:81/";
        futures.push_back(pool.submit(host, [&, host, i](Client&) {
            {
                const std::lock_guard lock(guard);
                most[host] = std::max(most[host], ++now[host]);
            }
            if (i < 4) {
                bothHosts.arrive_and_wait();
            }
            const std::lock_guard lock(guard);
            --now[host];
        }));
    }
    for (auto& future : futures) {
        future.get();
    }
    EXPECT_EQ(most, (std::map<std::string, int>{{"http://a/", 2}, {"http://b:81/", 2}}));
}

TEST(Pool, ItsEndStopsWhatRunsAndDropsWhatWaits) {
    ScriptedServer server(Script{step::expectHead(), step::signal("asked")});
    std::future<Response> running;
    std::future<Response> waiting;
    {
        Pool pool({.jobs = 1}, {.proxy = Proxy::none(), .retry = {.attempts = 1}});
        running = pool.get(server.url());
        waiting = pool.get(server.url());
        server.waitFor("asked");
    }
    for (auto* future : {&running, &waiting}) {
        try {
            future->get();
            ADD_FAILURE() << "no error";
        } catch (const Error& error) {
            EXPECT_EQ(error.kind(), ErrorKind::Interrupted) << error.what();
        }
    }
}

TEST(Pool, ResultsThatAreDroppedStopTheirRequests) {
    ScriptedServer server({Script{step::expectHead(), step::signal("asked")},
                           Script{step::expectHead(), step::send(testsupport::response("next"))}});
    Pool pool({.jobs = 1}, {.proxy = Proxy::none(), .retry = {.attempts = 1}});
    {
        const Results dropped = pool.getAll({server.url(), server.url()});
        server.waitFor("asked");
    }
    EXPECT_EQ(pool.get(server.url()).get().text(), "next");
}

TEST(Pool, AFullQueueMakesTheProgramWait) {
    netrove::testing::Script script{};
    Pool pool({.jobs = 1, .queue = 1}, {}, [&] { return script.transport(); });
    std::latch held(1);
    std::atomic<int> submitted = 0;
    std::vector<std::future<void>> futures;
    std::thread feeder([&] {
        for (int i = 0; i < 4; ++i) {
            futures.push_back(pool.submit("http://a/", [&](Client&) { held.wait(); }));
            ++submitted;
        }
    });
    while (submitted < 2) {
        std::this_thread::yield();
    }
    EXPECT_LE(submitted, 2) << "one runs and one waits";
    held.count_down();
    feeder.join();
    for (auto& future : futures) {
        future.get();
    }
}

TEST(Pool, AClientThatCannotBeMadeFailsItsTasksWithTheReason) {
    struct Own {};
    Pool pool({.jobs = 1}, {}, []() -> std::unique_ptr<Transport> { throw Own(); });
    EXPECT_THROW(pool.get("http://a/").get(), Own);
    Pool empty({.jobs = 1}, {}, [] { return std::unique_ptr<Transport>(); });
    EXPECT_THAT(empty.getAll({"http://a/"}).next()->error(), ::testing::HasSubstr("transport"));
}

TEST(Pool, AnInterruptThatATaskDoesNotNoticeStopsNoOther) {
    netrove::testing::Script script{{.content = "next"}};
    Pool pool({.jobs = 1}, {}, [&] { return script.transport(); });
    std::latch running(1);
    std::latch interrupted(1);
    auto first = pool.submit("http://a/", [&](Client&) {
        running.count_down();
        interrupted.wait();
    });
    running.wait();
    pool.interrupt();
    interrupted.count_down();
    first.get();
    EXPECT_EQ(pool.get("http://a/").get().text(), "next");
}

// Taken from the queue, but not yet running: its client is being made.
TEST(Pool, AnInterruptStopsATaskThatIsAboutToBegin) {
    netrove::testing::Script script{{.content = "a"}};
    Pool* own = nullptr;
    std::latch known(1);
    Pool pool({.jobs = 1}, {}, [&] {
        known.wait();
        std::exchange(own, nullptr)->interrupt();
        return script.transport();
    });
    own = &pool;
    auto first = pool.get("http://a/");
    known.count_down();
    EXPECT_THROW(first.get(), Error);
}

// A task that waits for room in the queue when the pool ends.
TEST(Pool, ItsEndDropsWhatWaitsToBeQueued) {
    netrove::testing::Script script{};
    std::vector<std::future<void>> futures;
    std::latch filled(1);
    {
        Pool pool({.jobs = 1, .queue = 1}, {}, [&] { return script.transport(); });
        pool.submit("http://a/", [&](Client&) {
            futures.push_back(pool.submit("http://a/", [](Client&) {}));
            filled.count_down();
            futures.push_back(pool.submit("http://a/", [](Client&) {}));
        });
        filled.wait();
    }
    ASSERT_EQ(futures.size(), 2u);
    for (auto& future : futures) {
        EXPECT_THROW(future.get(), Error);
    }
}

TEST(Pool, TasksMayHoldWhatCannotBeCopied) {
    netrove::testing::Script script{};
    Pool pool({.jobs = 1}, {}, [&] { return script.transport(); });
    auto value = std::make_unique<int>(7);
    EXPECT_EQ(pool.submit("http://a/", [value = std::move(value)](Client&) { return *value; }).get(), 7);
}

TEST(Pool, RelativeUrlsCountForTheirHost) {
    netrove::testing::Script script{};
    Pool pool({.jobs = 4, .perHost = 1}, {.url = "http://a/"}, [&] { return script.transport(); });
    std::atomic<int> now = 0;
    std::atomic<bool> together = false;
    std::vector<std::future<void>> futures;
    for (int i = 0; i < 100; ++i) {
        futures.push_back(pool.submit(i % 2 == 0 ? "x" : "http://a:80/x", [&](Client&) {
            if (++now > 1) {
                together = true;
            }
            std::this_thread::yield();
            --now;
        }));
    }
    for (auto& future : futures) {
        future.get();
    }
    EXPECT_FALSE(together);
}

TEST(Pool, DroppedResultsStopRequestsThatHaveAStopOfTheirOwn) {
    ScriptedServer server(Script{step::expectHead(), step::signal("asked")});
    std::stop_source own;
    Pool pool({.jobs = 1}, {.proxy = Proxy::none(), .retry = {.attempts = 1}});
    {
        const Results dropped = pool.getAll({server.url()}, {.stop = own.get_token()});
        server.waitFor("asked");
    }
    EXPECT_EQ(pool.submit(server.url(), [](Client&) { return 7; }).get(), 7) << "the thread is free again";
}

TEST(Pool, TheStopOfItsDefaultsHoldsForAll) {
    netrove::testing::Script script{{.content = "x"}};
    std::stop_source stop;
    stop.request_stop();
    Pool pool({.jobs = 1}, {.stop = stop.get_token()}, [&] { return script.transport(); });
    EXPECT_FALSE(*pool.getAll({"http://a/"}).next());
    EXPECT_EQ(script.left(), 1u);
}

TEST(Pool, RefusesSettingsThatMakeNoSense) {
    EXPECT_THROW(Pool({.jobs = 0}), Error);
    EXPECT_THROW(Pool({.perHost = 0}), Error);
    EXPECT_THROW(Pool({}, {.method = "PUT"}), Error);
}

} // namespace
