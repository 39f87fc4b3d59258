#include "platform/Path.h"

namespace lumenar::platform {

SplitPathResult SplitPath(std::string_view path)
{
    const std::size_t slash = path.find_last_of("\\/");
    std::size_t cut = slash == std::string_view::npos ? 0 : slash + 1;
    // A drive without a directory ("C:name") still belongs to the folder.
    if (cut == 0 && path.size() >= 2 && path[1] == ':')
        cut = 2;
    return {std::string(path.substr(0, cut)), std::string(path.substr(cut))};
}

} // namespace lumenar::platform
