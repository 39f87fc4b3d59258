#pragma once

#include <string_view>

namespace lumenar::platform {

/// What the photo decoder does when a photo is corrupt in one of the two ways the player treats as
/// fatal (a coefficient index past the end of a block, a Huffman table that cannot be allocated).
enum class CorruptPhotoAction
{
    EndProcess, ///< The player's behaviour: the process ends with exit status 1.
    FailPhoto,  ///< For hosts and fuzzers: the one photo fails to decode, the process goes on.
};

/// Sets the process-wide action. Any thread; takes effect for the next corrupt photo.
void SetCorruptPhotoAction(CorruptPhotoAction action);

/// The process-wide action; EndProcess unless a host changed it. Any thread.
CorruptPhotoAction CurrentCorruptPhotoAction();

/// Applies the action for a fatal corrupt photo: with EndProcess writes `reason` as a debug trace and
/// ends the process with status 1 (does not return); with FailPhoto returns, and the caller fails the
/// photo. Any thread.
void ReportFatalCorruptPhoto(std::string_view reason);

} // namespace lumenar::platform
