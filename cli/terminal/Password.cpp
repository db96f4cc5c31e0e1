#include "cli/terminal/Password.h"

#include "cli/failures/CliFailure.h"
#include "cli/logins/CookieJar.h"
#include "cli/logins/Netrc.h"
#include "cli/options/FieldText.h"
#include "cli/system/BodySource.h"
#include "cli/system/Signals.h"
#include "cli/terminal/Output.h"

#include <netrove/descriptor.h>
#include <netrove/text.h>
#include <netrove/url.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <memory>
#include <optional>
#include <termios.h>
#include <unistd.h>

namespace netrove::cli {

namespace {

constexpr std::size_t kLongestPassword = 4096;

class Terminal {
public:
    Terminal() : Device(open("/dev/tty", O_RDWR | O_CLOEXEC | O_NOCTTY)) {
        if (Device.Number < 0) {
            failSystem(failure::kFileNotRead, "/dev/tty", errno);
        }
        HasSaved = tcgetattr(Device.Number, &Saved) == 0;
        if (!HasSaved) {
            return;
        }
        termios silent = Saved;
        silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        tcsetattr(Device.Number, TCSAFLUSH, &silent);
    }
    ~Terminal() {
        if (HasSaved) {
            tcsetattr(Device.Number, TCSAFLUSH, &Saved);
        }
    }
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    int descriptor() const { return Device.Number; }

private:
    Descriptor Device;
    bool HasSaved = false;
    termios Saved{};
};

std::optional<std::string> fromEnvironment(const char* name) {
    const char* value = std::getenv(name);
    return value == nullptr ? std::nullopt : std::optional<std::string>(value);
}

void complete(std::optional<std::string>& password, const std::optional<std::string>& user, const char* variable,
              const std::string& what) {
    if (!user || password) {
        return;
    }
    password = fromEnvironment(variable);
    if (!password) {
        if (isatty(STDIN_FILENO) != 1) {
            failUsage("no password for " + what + "; set " + variable + " in the environment");
        }
        password = askPassword("Password for " + what + " '" + printable(*user) + "': ");
    }
    checkPassword(*password);
}

} // namespace

void readNetrc(Settings& settings, const Console& console) {
    if (!settings.UseNetrc && settings.NetrcFile.empty()) {
        return;
    }
    std::string file = settings.NetrcFile;
    if (file.empty()) {
        const auto home = fromEnvironment("HOME");
        if (!home || home->empty()) {
            failUsage("--netrc needs HOME in the environment; name the file with --netrc-file");
        }
        file = *home + "/.netrc";
        if (access(file.c_str(), F_OK) != 0) {
            return; // as with curl: somebody without one has no logins
        }
    }
    settings.NetrcLogins = std::make_shared<const Netrc>(readWhole(file), file);
    if (othersMayRead(file)) {
        console.note(file + " can be read by other users; 'chmod 600' keeps its passwords to you");
    }
}

void completePasswords(Settings& settings) {
    if (settings.User && !settings.Password && settings.NetrcLogins && settings.Command != Command::Batch) {
        if (const auto found = settings.NetrcLogins->find(splitUrl(settings.Url).Host, settings.User)) {
            settings.Password = found->Password;
        }
    }
    complete(settings.Password, settings.User, "NETROVE_PASSWORD", "user");
    complete(settings.ProxyPassword, settings.ProxyUser, "NETROVE_PROXY_PASSWORD", "proxy user");
}

std::vector<std::string> furtherSecrets(const Settings& settings) {
    std::vector<std::string> secrets = {settings.Bearer};
    for (const std::string& cookies : settings.Cookies) { // "a=1; b=2"
        for (std::size_t start = 0; start < cookies.size();) {
            const auto end = std::min(cookies.find(';', start), cookies.size());
            const auto sign = cookies.find('=', start);
            secrets.push_back(sign < end ? cookies.substr(sign + 1, end - sign - 1) : "");
            start = end + 1;
        }
    }
    if (settings.CookiesOfFile) {
        for (const Cookie& cookie : settings.CookiesOfFile->cookies()) {
            secrets.push_back(cookie.Value);
        }
    }
    if (settings.NetrcLogins) {
        const std::vector<std::string> passwords = settings.NetrcLogins->passwords();
        secrets.insert(secrets.end(), passwords.begin(), passwords.end());
    }
    return secrets;
}

std::string askPassword(const std::string& prompt) {
    Terminal terminal;
    writeAll(terminal.descriptor(), prompt);
    std::string answer;
    for (char c = 0; answer.size() < kLongestPassword;) {
        if (waitReadable(terminal.descriptor(), std::nullopt) == Waited::Interrupted) {
            writeAll(terminal.descriptor(), "\n");
            fail(failure::kInterrupted, {"SIGINT"}, "interrupted");
        }
        const ssize_t count = read(terminal.descriptor(), &c, 1);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0 && answer.empty()) { // Ctrl-D means no answer, not an empty password
            writeAll(terminal.descriptor(), "\n");
            failUsage("no password was given");
        }
        if (count <= 0 || c == '\n') {
            break;
        }
        answer += c;
    }
    writeAll(terminal.descriptor(), "\n");
    return answer;
}

} // namespace netrove::cli
