#include "app/Commands.h"

#include "control/Registration.h"
#include "platform/Process.h"

#include <cstdio>
#include <filesystem>

namespace lumenar::app {

namespace {

constexpr const char* kRegisterUsage =
    "usage: lumenar register\n"
    "       lumenar unregister\n\n"
    "Registers the player control (liblumenar.so next to this program) for the current user: its class\n"
    "entries in $XDG_DATA_HOME/lumenar/registry, a desktop entry that opens films with 'lumenar play', and\n"
    "the film mime type (*.film, or a stream that starts with the film marker). A desktop entry or mime\n"
    "package of the same name that 'register' did not write is never replaced: it refuses instead.\n"
    "'unregister' removes exactly what 'register' wrote and the folders it made (a file changed since\n"
    "stays), and rebuilds the desktop and mime databases. $XDG_DATA_HOME defaults to ~/.local/share.\n"
    "\n"
    "Exit status: 0 on success, 2 when the data folder is unknown or a file cannot be written or is\n"
    "not ours to replace.\n";

bool WantsHelp(Args args, const char* name)
{
    if (args.empty())
        return false;
    if (args[0] == "--help" || args[0] == "-h") {
        std::fputs(kRegisterUsage, stdout);
        return true;
    }
    std::fprintf(stderr, "lumenar: %s: unexpected argument '%s'\n%s", name, args[0].c_str(), kRegisterUsage);
    return true;
}

} // namespace

int RegisterCommand(Args args)
{
    if (WantsHelp(args, "register"))
        return args[0] == "--help" || args[0] == "-h" ? 0 : 2;
    auto folder = control::UserDataFolder();
    if (!folder.ok())
        return Fail("register", folder.error().message);
    const std::string player = platform::ExecutablePath();
    if (player.empty())
        return Fail("register", "cannot find this program's own file");
    const std::string server = (std::filesystem::path(player).parent_path() / "liblumenar.so").string();
    if (!std::filesystem::exists(server))
        return Fail(server, "the player control library is not next to this program");
    if (auto status = control::RegisterServer(*folder, server, player); !status.ok())
        return Fail(*folder, status.error().message);
    std::printf("registered %s for %s\n", std::string(control::kProgId).c_str(), folder->c_str());
    return 0;
}

int UnregisterCommand(Args args)
{
    if (WantsHelp(args, "unregister"))
        return args[0] == "--help" || args[0] == "-h" ? 0 : 2;
    auto folder = control::UserDataFolder();
    if (!folder.ok())
        return Fail("unregister", folder.error().message);
    if (auto status = control::UnregisterServer(*folder); !status.ok())
        return Fail(*folder, status.error().message);
    std::printf("unregistered %s for %s\n", std::string(control::kProgId).c_str(), folder->c_str());
    return 0;
}

} // namespace lumenar::app
