#include "cli/terminal/Password.h"

#include "cli/failures/CliFailure.h"
#include "cli/options/FieldText.h"
#include "cli/system/Signals.h"
#include "cli/terminal/Output.h"

#include <netrove/descriptor.h>
#include <netrove/text.h>

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
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

void completePasswords(Settings& settings) {
    complete(settings.Password, settings.User, "NETROVE_PASSWORD", "user");
    complete(settings.ProxyPassword, settings.ProxyUser, "NETROVE_PROXY_PASSWORD", "proxy user");
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
