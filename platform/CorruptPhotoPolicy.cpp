#include "platform/CorruptPhotoPolicy.h"

#include "platform/DebugTrace.h"

#include <atomic>
#include <cstdlib>
#include <string>

namespace lumenar::platform {

namespace {
std::atomic<CorruptPhotoAction> gAction{CorruptPhotoAction::FailPhoto};
} // namespace

void SetCorruptPhotoAction(CorruptPhotoAction action)
{
    gAction.store(action);
}

CorruptPhotoAction CurrentCorruptPhotoAction()
{
    return gAction.load();
}

void EndProcessIfAskedFor(std::string_view reason)
{
    if (gAction.load() == CorruptPhotoAction::FailPhoto)
        return;
    DebugTrace(std::string("corrupt photo, ending the process: ").append(reason).append("\n"));
    // Compatibility, for hosts that ask for it: the player used to end the whole process on these
    // photos; exit status 1 is what a supervising host sees.
    std::exit(1);
}

} // namespace lumenar::platform
