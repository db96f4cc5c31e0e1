// What the tests of whole batch runs share.
#pragma once

#include "tests/cli/batch/BatchServer.h"
#include "tests/support/process/ProgramRun.h"
#include "tests/support/process/TemporaryFolder.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <filesystem>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace batchtest {

using Json = nlohmann::json;
using testsupport::Outcome;
using testsupport::Program;
using testsupport::readFile;
using testsupport::Surroundings;
using testsupport::writeFile;

class BatchFixture : public testing::Test {
protected:
    testsupport::TemporaryFolder Folder;
    BatchServer Server;

    Surroundings around() const {
        Surroundings result;
        result.Folder = Folder.path();
        return result;
    }
    Outcome batch(std::vector<std::string> arguments, const std::map<std::string, std::string>& environment = {}) {
        arguments.insert(arguments.begin(), "batch");
        Surroundings surroundings = around();
        surroundings.Environment = environment;
        return testsupport::run(std::move(arguments), surroundings);
    }

    // A manifest of `count` lines, the URL /n/I into the file I.
    void writeList(std::size_t count, const std::string& name = "list") {
        std::string text;
        for (std::size_t i = 1; i <= count; ++i) {
            text += Server.url("/n/" + std::to_string(i)) + " " + std::to_string(i) + "\n";
        }
        writeFile(Folder.file(name), text);
    }
    void expectFiles(std::size_t count) const {
        for (std::size_t i = 1; i <= count; ++i) {
            EXPECT_EQ(readFile(Folder.file(std::to_string(i))), BatchServer::contentOf("/n/" + std::to_string(i)));
        }
    }

    // Names of all files, hidden ones included, but for manifest and journals.
    std::vector<std::string> files() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(Folder.path())) {
            if (const std::string name = entry.path().filename().string(); !name.starts_with("list")) {
                names.push_back(name);
            }
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    // One object for each line of standard output.
    static std::vector<Json> results(const Outcome& outcome) {
        std::vector<Json> found;
        std::istringstream lines(outcome.Out);
        for (std::string line; std::getline(lines, line);) {
            found.push_back(Json::parse(line));
        }
        return found;
    }
    static std::size_t count(const Outcome& outcome, const std::string& result) {
        const auto all = results(outcome);
        return static_cast<std::size_t>(
            std::count_if(all.begin(), all.end(), [&](const Json& one) { return one["result"] == result; }));
    }
    using Names = std::vector<std::string>;
};

} // namespace batchtest
