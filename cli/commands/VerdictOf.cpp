#include "cli/commands/VerdictOf.h"

#include "cli/failures/CliFailure.h"
#include "cli/system/Signals.h"

#include <exception>
#include <new>

namespace netrove::cli {

std::optional<Verdict> verdictOf(Circumstances circumstances, const std::function<void()>& operation,
                                 netrove::Response* before) {
    vantik::Message message;
    try {
        operation();
        return std::nullopt;
    } catch (const netrove::Error& error) {
        if (before != nullptr) {
            *before = error.response();
        }
        circumstances.Signal = signalSeen();
        return judge(error, circumstances);
    } catch (const vantik::Interrupted& interrupted) {
        message = interrupted.message();
        circumstances.Interrupted = true;
        circumstances.MaxTimeElapsed = circumstances.MaxTimeSeconds > 0;
    } catch (const vantik::Failure& failure) {
        message = failure.message();
    } catch (const std::bad_alloc&) {
        message = cliMessage(failure::kFailure, {"memory"}, "out of memory");
    } catch (const std::exception& exception) {
        message = cliMessage(failure::kFailure, {exception.what()}, exception.what());
    }
    circumstances.Signal = signalSeen();
    return judge(message, circumstances);
}

} // namespace netrove::cli
