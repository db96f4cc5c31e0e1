// What the tests of saving share: a folder, a client, and the answers that it gets.
#pragma once

#include "tests/client/ErrorOf.h"
#include "tests/support/process/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netrove/client.h>
#include <netrove/testing.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

namespace clienttest {

using namespace netrove;
using netrove::testing::Answer;
using netrove::testing::Fault;
using ::testing::HasSubstr;

namespace fs = std::filesystem;

constexpr const char* kUrl = "http://a.example/data.bin";
constexpr const char* kDigest = "2cf24dba5fb0a30e26e83b2ac5b9e29e1b161e5c1fa7425e73043362938b9824"; // of "hello"

class Save : public ::testing::Test {
protected:
    std::string path(const std::string& name) const { return Folder.path() + "/" + name; }
    void put(const std::string& name, const std::string& content) const { std::ofstream(path(name)) << content; }
    std::string content(const std::string& name) const { return testsupport::readFile(path(name)); }
    std::vector<std::string> names() const {
        std::vector<std::string> result;
        for (const auto& entry : fs::directory_iterator(Folder.path())) {
            result.push_back(entry.path().filename());
        }
        std::sort(result.begin(), result.end());
        return result;
    }
    testsupport::TemporaryFolder Folder;
    netrove::testing::Script Server{};
    Client TheClient{{.retry = {.attempts = 1, .wait = std::chrono::milliseconds(1)}}, Server.transport()};
};

// Downloads of "hello" that go on.
class Resume : public Save {
protected:
    // One that broke off after "hel".
    void breakOff(Fields fields) {
        fields.add("Content-Length", "5");
        Server.add({.fields = std::move(fields), .content = "hel", .fault = Fault::Short});
        EXPECT_THROW(TheClient.save(kUrl, path("f"), {.resume = true}), Error);
    }
    Response goOn(Answer answer, const char* digest = kDigest) {
        Server.add(std::move(answer));
        return TheClient.save(kUrl, path("f"), {.resume = true, .sha256 = digest});
    }
    Fields lastSent() const { return Server.requests().back().fields; }
};

} // namespace clienttest
