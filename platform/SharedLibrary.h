#pragma once

#include "base/Result.h"

#include <memory>
#include <string>

namespace lumenar::platform {

/// A shared library loaded into the process. Closing it (the object going) releases the handle but
/// keeps the code mapped until the process ends, with the state the library keeps. Any thread.
class SharedLibrary
{
public:
    /// Loads the library at `path`; fails with the loader's own message.
    static base::Result<std::unique_ptr<SharedLibrary>> Open(const std::string& path);
    ~SharedLibrary();
    SharedLibrary(const SharedLibrary&) = delete;
    SharedLibrary& operator=(const SharedLibrary&) = delete;

    /// The address of the exported `name`, or null when the library has no such export.
    void* Find(const char* name) const;

private:
    explicit SharedLibrary(void* handle) : handle_(handle) {}
    void* handle_;
};

/// The folder that holds the running program, with a trailing '/'; empty when it cannot be told.
std::string ProgramFolder();

} // namespace lumenar::platform
