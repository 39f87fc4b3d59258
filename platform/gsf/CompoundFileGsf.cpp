#include "platform/CompoundFile.h"

#include "base/StrCat.h"
#include "platform/DebugTrace.h"

#include <gsf/gsf-infile-msole.h>
#include <gsf/gsf-infile.h>
#include <gsf/gsf-input-memory.h>
#include <gsf/gsf-input-stdio.h>
#include <gsf/gsf-utils.h>

#include <sys/file.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <optional>
#include <unordered_map>

namespace lumenar::platform {

using base::Error;
using base::ErrorCode;
using base::Result;
using base::StrCat;

namespace {

struct GObjectUnref
{
    void operator()(void* object) const
    {
        if (object != nullptr)
            g_object_unref(object);
    }
};
using GsfInputPtr = std::unique_ptr<GsfInput, GObjectUnref>;
using GsfInfilePtr = std::unique_ptr<GsfInfile, GObjectUnref>;

// libgsf reports damaged containers through GLib's log as well as through its results; the results
// are what we act on, so the log lines go to the debug channel instead of the terminal.
void TraceLogHandler(const gchar* domain, GLogLevelFlags, const gchar* message, gpointer)
{
    DebugTrace(StrCat(domain != nullptr ? domain : "glib", ": ", message != nullptr ? message : "", "\n"));
}

void InitGsfOnce()
{
    static std::once_flag once;
    std::call_once(once, [] {
        gsf_init();
        const auto levels =
            static_cast<GLogLevelFlags>(G_LOG_LEVEL_WARNING | G_LOG_LEVEL_CRITICAL | G_LOG_LEVEL_MESSAGE |
                                        G_LOG_LEVEL_INFO | G_LOG_LEVEL_DEBUG);
        for (const char* domain :
             {static_cast<const char*>(nullptr), "libgsf", "libgsf:msole", "GLib-GObject"})
            g_log_set_handler(domain, levels, TraceLogHandler, nullptr);
    });
}

std::string TakeMessage(GError* error)
{
    std::string text = error != nullptr && error->message != nullptr ? error->message : "unknown error";
    if (error != nullptr)
        g_error_free(error);
    return text;
}

std::string LowerAscii(std::string_view name)
{
    std::string lower(name);
    for (char& c : lower)
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    return lower;
}

// Open file handles whose locks must outlive the film that read them.
std::mutex pinnedLock; // Guards `pinned`.
std::vector<std::unique_ptr<CompoundStorage>>& Pinned()
{
    static std::vector<std::unique_ptr<CompoundStorage>> pinned;
    return pinned;
}

} // namespace

struct CompoundStorage::Impl
{
    GsfInfilePtr infile;
    bool holdsFile = false; // The root of a file opened by path (and locked).

    // Child names (lower case) to their index, the first of equal names winning; read on first use.
    // The container keeps a storage's children in a list, so each look-up by index walks it: one pass
    // here instead of one per look-up keeps opening a film of n items linear in n rather than cubic.
    std::optional<std::unordered_map<std::string, int>> directory;

    // Finds a child by name, ignoring case; -1 when absent.
    int FindChild(std::string_view name)
    {
        if (!directory) {
            directory.emplace();
            const int count = gsf_infile_num_children(infile.get());
            for (int i = 0; i < count; ++i) {
                const char* childName = gsf_infile_name_by_index(infile.get(), i);
                if (childName != nullptr)
                    directory->emplace(LowerAscii(childName), i);
            }
        }
        const auto found = directory->find(LowerAscii(name));
        return found == directory->end() ? -1 : found->second;
    }
};

CompoundStorage::CompoundStorage(std::unique_ptr<Impl> impl) : impl_(std::move(impl))
{
}
CompoundStorage::~CompoundStorage() = default;

bool CompoundStorage::Sniff(std::span<const std::uint8_t> head)
{
    static constexpr std::uint8_t kSignature[8] = {0xD0, 0xCF, 0x11, 0xE0, 0xA1, 0xB1, 0x1A, 0xE1};
    return head.size() >= sizeof kSignature && std::memcmp(head.data(), kSignature, sizeof kSignature) == 0;
}

Result<std::unique_ptr<CompoundStorage>> CompoundStorage::OpenRoot(void* source, std::string_view where,
                                                                   bool holdsFile)
{
    InitGsfOnce();
    GsfInputPtr input(static_cast<GsfInput*>(source));
    GError* error = nullptr;
    GsfInfile* infile = gsf_infile_msole_new(input.get(), &error);
    if (infile == nullptr)
        return Error{ErrorCode::BadData, StrCat(where, " is not a compound file (", TakeMessage(error), ")")};
    if (error != nullptr)
        g_error_free(error);
    auto impl = std::make_unique<Impl>();
    impl->infile.reset(infile);
    impl->holdsFile = holdsFile;
    return std::unique_ptr<CompoundStorage>(new CompoundStorage(std::move(impl)));
}

Result<std::unique_ptr<CompoundStorage>> CompoundStorage::OpenFile(const std::string& path)
{
    InitGsfOnce();
    std::FILE* file = std::fopen(path.c_str(), "rb");
    if (file == nullptr)
        return Error{errno == ENOENT ? ErrorCode::NotFound : ErrorCode::Io,
                     StrCat("cannot open ", path, ": ", std::strerror(errno))};
    // The film file is opened for exclusive use: a second open while this one lives fails.
    if (flock(fileno(file), LOCK_EX | LOCK_NB) != 0) {
        const int lockError = errno;
        std::fclose(file);
        return Error{ErrorCode::Io, StrCat("cannot lock ", path, ": ", std::strerror(lockError))};
    }
    GError* error = nullptr;
    // The input takes ownership of `file` and closes it (releasing the lock) when destroyed.
    GsfInput* input = gsf_input_stdio_new_FILE(path.c_str(), file, FALSE);
    if (input == nullptr) {
        std::fclose(file);
        return Error{ErrorCode::Io, StrCat("cannot read ", path, ": ", TakeMessage(error))};
    }
    return OpenRoot(input, path, true);
}

Result<std::unique_ptr<CompoundStorage>> CompoundStorage::OpenMemory(std::span<const std::uint8_t> bytes)
{
    InitGsfOnce();
    GsfInput* input = gsf_input_memory_new_clone(bytes.data(), static_cast<gsf_off_t>(bytes.size()));
    if (input == nullptr)
        return Error{ErrorCode::Io, StrCat("cannot hold ", bytes.size(), " bytes in memory")};
    return OpenRoot(input, "memory block", false);
}

Result<std::vector<StorageElement>> CompoundStorage::Elements()
{
    const int count = gsf_infile_num_children(impl_->infile.get());
    if (count < 0)
        return Error{ErrorCode::BadData, "element is not a storage"};
    std::vector<StorageElement> elements;
    elements.reserve(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) {
        const char* name = gsf_infile_name_by_index(impl_->infile.get(), i);
        GsfInputPtr child(gsf_infile_child_by_index(impl_->infile.get(), i));
        // A child that cannot be opened is still an element; it counts as a storage because it is not a
        // readable stream.
        bool isStorage = child == nullptr || (GSF_IS_INFILE(child.get()) &&
                                              gsf_infile_num_children(GSF_INFILE(child.get())) >= 0);
        elements.push_back(
            {name != nullptr ? name : "", isStorage ? ElementKind::Storage : ElementKind::Stream});
    }
    return elements;
}

Result<std::unique_ptr<CompoundStorage>> CompoundStorage::OpenStorage(std::string_view name)
{
    const int index = impl_->FindChild(name);
    if (index < 0)
        return Error{ErrorCode::NotFound, StrCat("no storage named ", name)};
    GsfInputPtr child(gsf_infile_child_by_index(impl_->infile.get(), index));
    if (child == nullptr || !GSF_IS_INFILE(child.get()) ||
        gsf_infile_num_children(GSF_INFILE(child.get())) < 0)
        return Error{ErrorCode::NotFound, StrCat(name, " is not a storage")};
    auto impl = std::make_unique<Impl>();
    impl->infile.reset(GSF_INFILE(child.release()));
    return std::unique_ptr<CompoundStorage>(new CompoundStorage(std::move(impl)));
}

Result<std::vector<std::uint8_t>> CompoundStorage::ReadStream(std::string_view name, std::size_t maxBytes)
{
    const int index = impl_->FindChild(name);
    if (index < 0)
        return Error{ErrorCode::NotFound, StrCat("no stream named ", name)};
    GsfInputPtr child(gsf_infile_child_by_index(impl_->infile.get(), index));
    if (child == nullptr ||
        (GSF_IS_INFILE(child.get()) && gsf_infile_num_children(GSF_INFILE(child.get())) >= 0))
        return Error{ErrorCode::NotFound, StrCat(name, " is not a stream")};
    const gsf_off_t size = gsf_input_size(child.get());
    const std::size_t count =
        size < 0
            ? 0
            : static_cast<std::size_t>(std::min<std::uint64_t>(static_cast<std::uint64_t>(size), maxBytes));
    std::vector<std::uint8_t> bytes(count);
    if (count > 0 && gsf_input_read(child.get(), count, bytes.data()) == nullptr)
        return Error{ErrorCode::Io, StrCat("cannot read ", count, " bytes of stream ", name)};
    return bytes;
}

void CompoundStorage::KeepOpenUntilExit(std::unique_ptr<CompoundStorage> storage)
{
    // Only a file has a lock worth holding; a storage read from memory is simply closed.
    if (!storage || !storage->impl_->holdsFile)
        return;
    std::lock_guard<std::mutex> hold(pinnedLock);
    Pinned().push_back(std::move(storage));
}

} // namespace lumenar::platform
