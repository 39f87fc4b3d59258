#pragma once

#include <cstdio>
#include <string>
#include <vector>

namespace lumenar::testing {

/// Behaviour of the loopback server (tests/support/film_server.py).
struct FilmServerOptions
{
    long throttle = 0;         ///< Bytes per second; 0 sends as fast as possible.
    long stallAfter = -1;      ///< Hold the connection open after this many bytes.
    long closeAfter = -1;      ///< Close the connection after this many bytes.
    int status = 0;            ///< Answer every request with this HTTP status (and no film).
    bool redirectLoop = false; ///< Answer every request with a redirect to another address, for ever.
};

/// Serves `file` on 127.0.0.1 until destroyed. Address() fails the test loudly (empty string) when
/// python3 or the script is missing.
class FilmServer
{
public:
    FilmServer(const std::string& file, FilmServerOptions options = {});
    ~FilmServer();
    FilmServer(const FilmServer&) = delete;
    FilmServer& operator=(const FilmServer&) = delete;

    /// "http://127.0.0.1:PORT/<name>", or empty when the server did not come up.
    std::string Address(const std::string& name = "film") const;
    /// The request lines so far: "start <path>" and "sent <bytes>".
    std::vector<std::string> Log() const;

private:
    std::FILE* pipe_ = nullptr;
    std::string portFile_;
    std::string logFile_;
    int port_ = 0;
};

} // namespace lumenar::testing
