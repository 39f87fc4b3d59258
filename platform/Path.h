#pragma once

#include <string>
#include <string_view>

namespace lumenar::platform {

/// A path split the way film paths (written on another system) are split: the folder is the drive
/// ("C:") and directory up to and including the last '\\' or '/'; the name is the rest.
struct SplitPathResult
{
    std::string folder;
    std::string name;
};

/// Splits a film path; folder + name always gives the path back.
SplitPathResult SplitPath(std::string_view path);

} // namespace lumenar::platform
