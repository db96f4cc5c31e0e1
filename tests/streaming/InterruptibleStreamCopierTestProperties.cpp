// For any sizes: an upload arrives whole and in order however the provider cuts it and libcurl reads it, and a consumer
// and a stream get the content whole however it comes in and is cut.
#include "streaming/InterruptibleStreamCopier.h"
#include "tests/streaming/CopierFixture.h"

#include <rapidcheck/gtest.h>

#include <algorithm>
#include <numeric>
#include <sstream>
#include <string>
#include <vector>

using namespace streamingtest;

namespace {

std::string patterned(std::size_t length, std::size_t from = 0) {
    std::string bytes(length, '\0');
    for (std::size_t i = 0; i < length; ++i) {
        bytes[i] = static_cast<char>(((from + i) * 131) >> 3);
    }
    return bytes;
}

class CopierProperties : public CopierFixture {
protected:
    CopierProperties() {
        Curl.OnEasyPause = [](int) { return CURLE_OK; };
    }

    // libcurl reads with these rooms in turn, several times in one perform as it likes, until it is told the end.
    void readLikeLibcurl(std::vector<std::size_t> rooms, std::vector<int> readsEach) {
        NextRoom = NextReads = 0;
        AtEnd = false;
        Uploaded.clear();
        Curl.OnPerform = [this, rooms = std::move(rooms), readsEach = std::move(readsEach)](int& running) {
            const int reads = readsEach[NextReads++ % readsEach.size()];
            for (int i = 0; i < reads && !AtEnd; ++i) {
                std::string given;
                const std::size_t answer = Curl.callRead(given, rooms[NextRoom++ % rooms.size()]);
                if (answer == CURL_READFUNC_PAUSE) {
                    break;
                }
                Uploaded += given;
                AtEnd = answer == 0;
            }
            running = 1;
            return CURLM_OK;
        };
    }
    // The loop after the pump.
    void readToTheEnd() {
        while (!AtEnd) {
            Connection.perform("");
        }
    }

    std::size_t NextRoom = 0;
    std::size_t NextReads = 0;
    bool AtEnd = false;
};

rc::Gen<std::vector<std::size_t>> sizes(std::size_t least, std::size_t most) {
    return rc::gen::nonEmpty(rc::gen::container<std::vector<std::size_t>>(rc::gen::inRange(least, most + 1)));
}

RC_GTEST_FIXTURE_PROP(CopierProperties, UploadOfAProviderArrivesWhole, ()) {
    const auto pieces = *sizes(1, 40'000);
    const auto rooms = *sizes(1, 70'000);
    const auto reads = *rc::gen::nonEmpty(rc::gen::container<std::vector<int>>(rc::gen::inRange(1, 4)));
    const auto provider = provide("");
    std::size_t given = 0;
    provider->OnRead = [&](int call, std::uint64_t) {
        const auto index = static_cast<std::size_t>(call - 1);
        const std::string piece = index < pieces.size() ? patterned(pieces[index], given) : std::string();
        given += piece.size();
        return vantik::Array::bytes(std::string_view(piece));
    };
    readLikeLibcurl(rooms, reads);
    InterruptibleStreamCopier copier(Connection);
    copier.sendRequest();
    RC_ASSERT(!copier.ReadPaused);
    readToTheEnd();
    RC_ASSERT(Uploaded.size() == given);
    RC_ASSERT(Uploaded == patterned(given));
    RC_ASSERT(copier.TotalSent == given);
    RC_ASSERT(provider->Wanted.size() == pieces.size() + 1);
}

RC_GTEST_FIXTURE_PROP(CopierProperties, UploadFromMemoryArrivesWholeAfterEachRewind, ()) {
    const std::string body = patterned(*rc::gen::inRange<std::size_t>(1, 200'000));
    const auto rooms = *sizes(1, 70'000);
    const auto rewinds = *rc::gen::container<std::vector<std::size_t>>(rc::gen::inRange<std::size_t>(0, body.size()));
    setPayload(body);
    InterruptibleStreamCopier copier(Connection);
    std::size_t room = 0;
    for (const std::size_t offset : rewinds) {
        std::string given;
        Curl.callRead(given, rooms[room++ % rooms.size()]);
        RC_ASSERT(Curl.callSeek(static_cast<curl_off_t>(offset)) == CURL_SEEKFUNC_OK);
        RC_ASSERT(copier.TotalSent == offset);
    }
    const std::size_t from = rewinds.empty() ? 0 : rewinds.back();
    std::string rest;
    for (std::string given; Curl.callRead(given, rooms[room++ % rooms.size()]) != 0;) {
        rest += given;
    }
    RC_ASSERT(rest == body.substr(from));
    RC_ASSERT(copier.TotalSent == body.size());
}

// However the content comes in, and wherever the consumer stops taking it.
RC_GTEST_FIXTURE_PROP(CopierProperties, ConsumerAndStreamGetTheContentUpToWhereItStops, ()) {
    const auto writes = *sizes(1, 40'000);
    const auto wanted = *rc::gen::inRange<std::size_t>(1, 20'000);
    const auto stopsIn = *rc::gen::inRange<std::size_t>(0, 40);   // the piece that is not taken whole
    const auto keeps = *rc::gen::inRange<std::size_t>(0, 20'000); // of that piece
    const std::size_t total = std::accumulate(writes.begin(), writes.end(), std::size_t{0});
    const auto consumer = consume();
    const auto reporter = report();
    std::string offered;
    std::size_t taken = 0;
    std::size_t pieces = 0;
    bool stopped = false;
    consumer->OnStart = [&] { return vantik::Array(static_cast<double>(wanted)); };
    consumer->OnPut = [&](int, const std::string& piece) {
        EXPECT_FALSE(stopped) << "a piece after the stop";
        EXPECT_LE(piece.size(), std::min<std::size_t>(wanted, 16384));
        offered += piece;
        const std::size_t count = pieces++ == stopsIn ? std::min(keeps, piece.size()) : piece.size();
        taken += count;
        stopped = count < piece.size();
        return vantik::Array(static_cast<double>(count));
    };
    InterruptibleStreamCopier copier(Connection);
    std::size_t next = 0;
    std::size_t from = 0;
    Curl.OnPerform = [&](int& running) {
        if (next < writes.size()) {
            Curl.callWrite(patterned(writes[next], from));
            from += writes[next++];
        }
        running = next < writes.size() ? 1 : 0;
        return CURLM_OK;
    };
    std::ostringstream saved;
    copier.receiveResponse(&saved);
    RC_ASSERT(offered == patterned(offered.size()));
    RC_ASSERT(saved.str() == offered);
    RC_ASSERT(stopped || offered.size() == total);
    RC_ASSERT(!reporter->Counts.empty());
    RC_ASSERT(reporter->Counts.back() == taken);
    RC_ASSERT(std::is_sorted(reporter->Counts.begin(), reporter->Counts.end()));
    RC_ASSERT(consumer->Calls.back() == "close");
    RC_ASSERT(copier.ReceiveBuffer.empty());
}

} // namespace
