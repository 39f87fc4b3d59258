#pragma once

#include "base/Result.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace lumenar::platform {

/// One block of a transfer as it reached the receiving thread.
struct DownloadBlock
{
    std::vector<std::uint8_t> bytes;
    bool last = false; ///< The final notification of a transfer that ended well (its bytes may be empty).
};

/// The bytes a download holds that its receiver has not taken: past this, it stops reading from the
/// socket (or file) until TakeBlocks, so a fast or endless sender cannot fill the memory.
inline constexpr std::size_t kMaxUntakenBytes = 1u << 20;
/// Redirects followed at most; one more fails the transfer ("more than 10 redirects").
inline constexpr int kMaxRedirects = 10;

/// An asynchronous download of one address (http, https or file) on a thread of its own. Blocks are
/// queued as they arrive and `wake` is called (on the transfer's thread, without any lock held) so that
/// the receiving thread can take them with TakeBlocks. While kMaxUntakenBytes or more wait untaken, the
/// transfer pauses. A failed or aborted transfer simply ends: no final block is queued. Connection and
/// stall timeouts are not set: a stalled server keeps the transfer waiting until it is aborted or
/// destroyed.
class Download
{
public:
    using Wake = std::function<void()>;

    /// Starts downloading `url` (an absolute address, see ResolveAddress). Fails with Unsupported for a
    /// scheme other than http, https and file, and with Io when the transfer cannot be set up.
    static base::Result<std::unique_ptr<Download>> Start(const std::string& url, Wake wake);

    /// Aborts the transfer and joins its thread.
    ~Download();
    Download(const Download&) = delete;
    Download& operator=(const Download&) = delete;

    /// The blocks that arrived since the last call, in order. Any thread (normally the receiver's).
    std::vector<DownloadBlock> TakeBlocks();

    /// Ends the transfer when its next block arrives (or at the next progress poll of a stalled one);
    /// blocks not yet taken stay queued. Any thread.
    void Abort();

    /// True once the transfer's thread has finished (completed, failed or aborted). Any thread.
    bool Finished() const;

    /// Bytes received so far. Any thread.
    std::uint64_t BytesReceived() const;

    /// The transfer's outcome once Finished: ok, or why it failed, in words a user can read without the
    /// address ("404 Not Found", "more than 10 redirects", "could not resolve host: x"). Any thread.
    base::Status Outcome() const;

private:
    struct Impl;
    explicit Download(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> impl_;
};

/// The absolute address of `file`: unchanged when it already has a scheme; resolved as a relative
/// reference against `documentUrl` when there is one; otherwise a path of the local file system,
/// resolved against the current directory, as a file URL. Fails with Unsupported for an address of
/// another scheme ("ftp://…") and with InvalidInput when the result is not a valid address (the message
/// names it). Any thread.
base::Result<std::string> ResolveAddress(std::string_view documentUrl, std::string_view file);

} // namespace lumenar::platform
