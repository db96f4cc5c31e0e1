#include "tests/streaming/CopierFixture.h"

#include "tests/support/process/StandardOutputCapture.h"

#include <algorithm>
#include <cstring>
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

Lines CopierFixture::journal(std::initializer_list<CurlFunction> functions) const {
    Lines lines;
    auto next = Notes.begin();
    const auto& calls = Curl.calls();
    for (std::size_t i = 0; i <= calls.size(); ++i) {
        for (; next != Notes.end() && next->first == i; ++next) {
            lines.push_back(next->second);
        }
        if (i < calls.size() && std::find(functions.begin(), functions.end(), calls[i].Function) != functions.end()) {
            lines.push_back(calls[i].text());
        }
    }
    return lines;
}

Lines CopierFixture::pumpJournal() const {
    return journal({CurlFunction::MultiWait, CurlFunction::Pause, CurlFunction::MultiPerform,
                    CurlFunction::MultiInfoRead, CurlFunction::InterruptPoll, CurlFunction::EasyPause});
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
