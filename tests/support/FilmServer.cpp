#include "tests/support/FilmServer.h"

#include "tests/support/FilmWriter.h"

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <thread>

namespace lumenar::testing {

namespace {

std::string SourceDir()
{
    const char* dir = std::getenv("LUMENAR_SOURCE_DIR");
    return dir != nullptr ? dir : LUMENAR_DEFAULT_SOURCE_DIR;
}

} // namespace

FilmServer::FilmServer(const std::string& file, FilmServerOptions options)
    : portFile_(TempPath("server-port")), logFile_(TempPath("server-log"))
{
    std::string command = "exec python3 '" + SourceDir() + "/tests/support/film_server.py' '" + file + "'" +
                          " --port-file '" + portFile_ + "' --log '" + logFile_ + "' --exit-on-stdin-eof";
    if (options.throttle > 0)
        command += " --throttle " + std::to_string(options.throttle);
    if (options.stallAfter >= 0)
        command += " --stall-after " + std::to_string(options.stallAfter);
    if (options.closeAfter >= 0)
        command += " --close-after " + std::to_string(options.closeAfter);
    if (options.status != 0)
        command += " --status " + std::to_string(options.status);
    if (options.redirectLoop)
        command += " --redirect-loop";
    command += " >/dev/null";
    pipe_ = popen(command.c_str(), "w");
    if (pipe_ == nullptr)
        return;
    // The server writes its port file whole once it listens; starting python takes a moment.
    for (int attempt = 0; attempt < 200 && port_ == 0; ++attempt) {
        std::ifstream in(portFile_);
        if (!(in >> port_))
            std::this_thread::sleep_for(std::chrono::milliseconds(25));
    }
}

FilmServer::~FilmServer()
{
    if (pipe_ != nullptr)
        pclose(pipe_); // Closing its standard input ends the server; pclose waits for it.
    std::remove(portFile_.c_str());
    std::remove(logFile_.c_str());
}

std::string FilmServer::Address(const std::string& name) const
{
    return port_ == 0 ? std::string() : "http://127.0.0.1:" + std::to_string(port_) + "/" + name;
}

std::vector<std::string> FilmServer::Log() const
{
    std::vector<std::string> lines;
    std::ifstream in(logFile_);
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

} // namespace lumenar::testing
