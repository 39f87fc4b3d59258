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

/// The extension of the path's last name, lower-cased and without its dot ("" when it has none):
/// what the picture and animation writers choose their format by.
std::string LowerExtension(const std::string& path);

} // namespace lumenar::platform
