#include "platform/SharedLibrary.h"

#include <dlfcn.h>
#include <unistd.h>

#include <climits>

namespace lumenar::platform {

base::Result<std::unique_ptr<SharedLibrary>> SharedLibrary::Open(const std::string& path)
{
    dlerror();
    // The library stays mapped after it is closed: the player keeps process-wide state (the font
    // library, shared glyph cells) until the process ends, and unmapping it would orphan that memory.
    void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    if (handle == nullptr) {
        const char* why = dlerror();
        return base::Error{base::ErrorCode::NotFound, why != nullptr ? why : "cannot load the library"};
    }
    return std::unique_ptr<SharedLibrary>(new SharedLibrary(handle));
}

SharedLibrary::~SharedLibrary()
{
    dlclose(handle_);
}

void* SharedLibrary::Find(const char* name) const
{
    return dlsym(handle_, name);
}

std::string ProgramFolder()
{
    char buffer[PATH_MAX];
    const ssize_t n = readlink("/proc/self/exe", buffer, sizeof buffer - 1);
    if (n <= 0)
        return {};
    std::string path(buffer, static_cast<std::size_t>(n));
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string{} : path.substr(0, slash + 1);
}

} // namespace lumenar::platform
