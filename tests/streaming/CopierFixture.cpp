#include "tests/streaming/CopierFixture.h"

#include "tests/support/process/StandardOutputCapture.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <memory>

namespace streamingtest {

using namespace matrix::detail::noninlined::vx_array_api;

vxArray_tag* handleOf(const vantik::Array& value) {
    return const_cast<vxArray_tag*>(value.handle());
}

SharedHostArray sharedOf(const vantik::Array& value) {
    const auto kept = std::make_shared<vantik::Array>(value);
    return {kept, handleOf(*kept)};
}

vantik::Array zeros(std::size_t rows, std::size_t columns, vxClassID classId) {
    return vantik::Array::adopt(vxCreateNumericMatrix(rows, columns, classId, vxREAL));
}

vantik::Array byteMatrix(std::size_t rows, std::size_t columns, const std::string& bytes) {
    vantik::Array array = zeros(rows, columns, vxUINT8_CLASS);
    std::memcpy(array.writableBytes().data(), bytes.data(), std::min(bytes.size(), rows * columns));
    return array;
}

CopierFixture::CopierFixture() {
    Curl.setClock(1'000'000'000'000);
    Curl.OnWait = [this](int, int& ready) {
        ready = 1;
        if (!Waits.empty()) {
            ready = Waits.front();
            Waits.pop_front();
        }
        return CURLM_OK;
    };
    Curl.OnInfoRead = [](int& remaining) -> CURLMsg* {
        remaining = 0;
        return nullptr;
    };
    willPerform({});
    Connection.Transfer.begin(Connection.Handles->Generation);
}

void CopierFixture::willPerform(std::vector<Perform> performs) {
    Performs.assign(performs.begin(), performs.end());
    Curl.OnPerform = [this](int& running) {
        if (Performs.empty()) {
            ADD_FAILURE() << "more performs than the test has foreseen";
            return CURLM_INTERNAL_ERROR;
        }
        const Perform perform = std::move(Performs.front());
        Performs.pop_front();
        running = perform();
        return CURLM_OK;
    };
}

CopierFixture::Perform CopierFixture::receives(std::string bytes, int running) {
    return [this, bytes = std::move(bytes), running] {
        EXPECT_EQ(Curl.callWrite(bytes), bytes.size());
        return running;
    };
}

CopierFixture::Perform CopierFixture::sends(std::size_t room, int running) {
    return [this, room, running] {
        std::string given;
        Curl.callRead(given, room);
        Uploaded += given;
        return running;
    };
}

std::string CopierFixture::read(std::size_t room) {
    std::string given;
    const std::size_t answer = Curl.callRead(given, room);
    return answer == CURL_READFUNC_PAUSE   ? "pause"
           : answer == CURL_READFUNC_ABORT ? "abort"
           : answer == 0                   ? "end"
                                           : std::to_string(answer) + ' ' + given;
}

void CopierFixture::note(const std::string& text) {
    Notes.emplace_back(Curl.calls().size(), text);
}

std::string CopierFixture::pumpJournal() const {
    static const std::map<CurlFunction, std::pair<std::string, std::string>> steps = {
        {CurlFunction::MultiWait, {"curl_multi_wait 1000", "wait"}},
        {CurlFunction::Pause, {"pause 100000000", "pause"}},
        {CurlFunction::MultiPerform, {"curl_multi_perform", "perform"}},
        {CurlFunction::MultiInfoRead, {"curl_multi_info_read", "message"}},
        {CurlFunction::InterruptPoll, {"interrupt poll", "poll"}},
        {CurlFunction::EasyPause, {"curl_easy_pause 0", "resume"}},
    };
    std::string text;
    const auto add = [&](const std::string& step) { text += (text.empty() ? "" : ", ") + step; };
    auto next = Notes.begin();
    const auto& calls = Curl.calls();
    for (std::size_t i = 0; i <= calls.size(); ++i) {
        for (; next != Notes.end() && next->first == i; ++next) {
            add(next->second);
        }
        const auto step = i < calls.size() ? steps.find(calls[i].Function) : steps.end();
        if (step != steps.end()) {
            const auto& [usual, word] = step->second;
            add(calls[i].text() == usual ? word : calls[i].text());
        }
    }
    return text;
}

std::string CopierFixture::traceOf(int level, const std::function<void()>& action) {
    const testsupport::StandardOutputCapture output;
    Connection.Settings.Debug = level;
    action();
    Connection.Settings.Debug = 0;
    return output.text();
}

testsupport::ScriptedProvider CopierFixture::provide(std::string content, const testsupport::Missing& missing) {
    auto provider = testsupport::makeScriptedProvider(host(), std::move(content), missing);
    provider->OnStart = [this](int) { note("start"); };
    testsupport::ProviderState* state = provider.operator->();
    provider->OnRead = [this, state](int, std::uint64_t wanted) {
        note("get " + std::to_string(wanted));
        const std::string piece = state->Content.substr(state->Position, wanted);
        state->Position += piece.size();
        return vantik::Array::bytes(std::string_view(piece));
    };
    Connection.Settings.Provider = sharedOf(provider);
    return provider;
}

testsupport::ScriptedConsumer CopierFixture::consume(const testsupport::Missing& missing) {
    auto consumer = testsupport::makeScriptedConsumer(host(), missing);
    consumer->OnStart = [this] {
        note("start");
        return vantik::Array();
    };
    consumer->OnPut = [this](int, const std::string& piece) {
        note("put " + std::to_string(piece.size()));
        return vantik::Array(static_cast<double>(piece.size()));
    };
    consumer->OnClose = [this] { note("close"); };
    Connection.Settings.Consumer = sharedOf(consumer);
    return consumer;
}

testsupport::ScriptedReporter CopierFixture::report(const testsupport::Missing& missing) {
    auto reporter = testsupport::makeScriptedReporter(host(), missing);
    reporter->OnUpdate = [this](int, std::uint64_t bytes) {
        note("update " + std::to_string(bytes));
        return vantik::Array(true);
    };
    Connection.Settings.ProgressReporter = sharedOf(reporter);
    return reporter;
}

void CopierFixture::letDeadlinePass() {
    Connection.ReceivedHead.HeadersComplete = true;
    Connection.Limits.DataTimeout = 1000.0;
    Connection.Limits.DataTimeoutMs = 1000;
    Connection.updateDeadline();
    Curl.advanceClock(1'000'000'001);
    Curl.giveInfo(CURLINFO_CONNECT_TIME, 0.25);
}

} // namespace streamingtest
