#include "cli/commands/Commands.h"

namespace netrove::cli {

int runVersion(Session& session, const Console& console) {
    const vantik::ClassDescription description = session.Host.describe(vantik::kHttpConnectionClass);
    std::string text = console.styled(Style::Bold, "netrove " NETROVE_VERSION) + "\n";
    text += "Class: " + description.Name + ", " + std::to_string(description.Properties.size()) + " properties, " +
            std::to_string(description.Methods.size() - 1) + " methods\n";
    text += "Schemes: http https\n"
            "Authentication: basic digest ntlm negotiate\n"
            "Features: streamed content in both directions, progress, interruption, decoding, proxy lookup\n"
            "Made of:\n";
    for (const std::string& component : vantik::hostComponents()) {
        text += "  " + component + "\n";
    }
    console.print(text);
    return kExitDone;
}

} // namespace netrove::cli
