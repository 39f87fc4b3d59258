#include "platform/Process.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>

extern char** environ;

namespace lumenar::platform {

std::string ExecutablePath()
{
    char buffer[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", buffer, sizeof buffer);
    if (length <= 0 || static_cast<std::size_t>(length) >= sizeof buffer)
        return {};
    return std::string(buffer, static_cast<std::size_t>(length));
}

std::string ModulePath(const void* address)
{
    Dl_info info{};
    if (dladdr(address, &info) == 0 || info.dli_fname == nullptr)
        return {};
    char resolved[PATH_MAX];
    if (realpath(info.dli_fname, resolved) == nullptr)
        return info.dli_fname;
    return resolved;
}

int RunQuietly(const std::vector<std::string>& argv)
{
    if (argv.empty())
        return -1;
    std::vector<char*> args;
    for (const std::string& arg : argv)
        args.push_back(const_cast<char*>(arg.c_str()));
    args.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t child = 0;
    const int started = posix_spawnp(&child, args[0], &actions, nullptr, args.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (started != 0)
        return -1;
    int status = 0;
    while (waitpid(child, &status, 0) < 0) {
        if (errno != EINTR)
            return -1;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

bool StandardErrorIsTerminal()
{
    return isatty(STDERR_FILENO) == 1;
}

long ProcessId()
{
    return static_cast<long>(getpid());
}

} // namespace lumenar::platform
