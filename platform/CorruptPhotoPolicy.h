#pragma once

#include <string_view>

namespace lumenar::platform {

/// What the player does when a photo is corrupt in one of the two ways it historically treated as
/// fatal (a coefficient index past the end of a block, a Huffman table that cannot be allocated).
enum class CorruptPhotoAction
{
    FailPhoto,  ///< The default: the photo is refused and reported, and the film plays on.
    EndProcess, ///< Compatibility, only when a host asks for it: the process ends with exit status 1.
};

/// Sets the process-wide action. Any thread; takes effect for the next corrupt photo.
void SetCorruptPhotoAction(CorruptPhotoAction action);

/// The process-wide action; FailPhoto unless a host asked for EndProcess. Any thread.
CorruptPhotoAction CurrentCorruptPhotoAction();

/// Under EndProcess: writes `reason` as a debug trace and ends the process with status 1 (does not
/// return). Under FailPhoto: returns at once. Any thread.
void EndProcessIfAskedFor(std::string_view reason);

} // namespace lumenar::platform
