// A browser without a screen, driven through its protocol for developers (https://chromedevtools.github.io). It looks
// up no name and so reaches no network.
#pragma once

#include "tests/support/process/TemporaryFolder.h"
#include "tests/support/process/WatchedProcess.h"
#include "tests/support/server/SocketHandle.h"

#include <nlohmann/json.hpp>

#include <optional>
#include <string>
#include <vector>

namespace testsupport {

class Browser {
public:
    Browser(); // raises std::runtime_error where there is none

    // Loads a file, and returns when that is done. What was complained of before is forgotten.
    void open(const std::string& file);
    // What the page is shown on: that many pixels wide; dark or light; paper in place of a screen.
    void show(int width, bool dark, bool paper = false);
    // The value of an expression of JavaScript. Raises std::runtime_error with what it throws.
    nlohmann::json evaluate(const std::string& expression);
    // Of the whole page as PNG, or of its first lines of pixels.
    void savePicture(const std::string& file, int height = 0);
    // Since the page was opened: messages of the console, and what it asked for besides itself.
    std::vector<std::string> complaints();

private:
    nlohmann::json call(const std::string& method, const nlohmann::json& parameters = nlohmann::json::object());
    nlohmann::json receive();
    void take(const nlohmann::json& event);

    TemporaryFolder Folder;
    SocketHandle ToBrowser;
    SocketHandle FromBrowser;
    std::optional<WatchedProcess> Process;
    std::string Buffer;
    std::string Session;
    int LastCall = 0;
    bool Loaded = false;
    std::string Page;
    std::vector<std::string> Complaints;
};

} // namespace testsupport
