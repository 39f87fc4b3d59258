#pragma once

#include "app/Commands.h"
#include "app/PhotoFolder.h"

#include <cstddef>
#include <string>

namespace lumenar::app {

/// What `lumenar pack --photos DIR` was told.
struct PackPhotosOptions
{
    std::string folder; ///< Empty: no --photos.
    FolderFilmOptions film;
    bool given = false;     ///< An option that only goes with --photos was given.
    std::string badInput;   ///< After OptionTaken::Bad: the argument at fault...
    std::string badMessage; ///< ...and what is wrong with it.
};

enum class OptionTaken
{
    No,  ///< args[i] is none of these options.
    Yes, ///< Taken, with its value; i is on the value.
    Bad, ///< One of these options with a missing or bad value (badInput, badMessage say which).
};

/// Takes args[i] when it is --photos DIR, --seconds N, --effect N|random, --effect-ms N or --captions names.
OptionTaken TakePackPhotosOption(Args args, std::size_t& i, PackPhotosOptions& options);

} // namespace lumenar::app
