#pragma once

#include "base/Result.h"

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace lumenar::platform {

/// Whether an element of a storage is a stream (bytes) or a storage (a folder of elements).
enum class ElementKind
{
    Stream,
    Storage
};

struct StorageElement
{
    std::string name; ///< UTF-8 spelling of the element's UTF-16 name.
    ElementKind kind;
};

/// A read-only storage of a compound file: the root of an opened file or one of its sub-storages.
/// Element names compare without regard to (ASCII) case, as the format defines them.
/// Not thread-safe: one thread uses a storage and everything opened from it.
class CompoundStorage
{
public:
    ~CompoundStorage();
    CompoundStorage(const CompoundStorage&) = delete;
    CompoundStorage& operator=(const CompoundStorage&) = delete;

    /// Opens a compound file for reading and takes an exclusive advisory lock on it for as long as
    /// the root storage lives. Fails with NotFound/Io when the file cannot be opened or is locked,
    /// and with BadData when it is not a compound file.
    static base::Result<std::unique_ptr<CompoundStorage>> OpenFile(const std::string& path);

    /// Opens a compound file held in memory (the bytes are copied).
    static base::Result<std::unique_ptr<CompoundStorage>> OpenMemory(std::span<const std::uint8_t> bytes);

    /// True when the bytes begin with the compound-file signature. Cheap; never fails.
    static bool Sniff(std::span<const std::uint8_t> head);

    /// The storage's elements in the container's order.
    base::Result<std::vector<StorageElement>> Elements();

    /// Opens the sub-storage `name`; NotFound when there is none or it is a stream.
    base::Result<std::unique_ptr<CompoundStorage>> OpenStorage(std::string_view name);

    /// Opens stream `name` and reads up to `maxBytes` from its start: fewer bytes come back when the
    /// stream is shorter. NotFound when there is no such stream, Io when the read fails.
    base::Result<std::vector<std::uint8_t>> ReadStream(std::string_view name, std::size_t maxBytes);

    /// Keeps a storage (and the lock on its file) open until the process ends, for callers that must
    /// leave a film file held after a failed version check. A storage opened from memory holds no file
    /// and is simply closed.
    static void KeepOpenUntilExit(std::unique_ptr<CompoundStorage> storage);

private:
    struct Impl;
    explicit CompoundStorage(std::unique_ptr<Impl> impl);
    static base::Result<std::unique_ptr<CompoundStorage>> OpenRoot(std::vector<std::uint8_t> bytes,
                                                                   std::string_view where);
    std::unique_ptr<Impl> impl_;
};

} // namespace lumenar::platform
