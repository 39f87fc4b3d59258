#include "platform/Path.h"

#include <algorithm>
#include <cctype>

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

std::string LowerExtension(const std::string& path)
{
    const auto dot = path.find_last_of("./");
    if (dot == std::string::npos || path[dot] != '.')
        return {};
    std::string ext = path.substr(dot + 1);
    std::transform(ext.begin(), ext.end(), ext.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return ext;
}

} // namespace lumenar::platform
