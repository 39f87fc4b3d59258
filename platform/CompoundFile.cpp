// A reader of compound files (structured storage): the header, the sector tables and the directory are
// read once when the file is opened, and each storage keeps its children in a map, so that opening a
// film of n items takes time in proportion to n (a reader that walks a list of children per look-up
// makes a film of 8,000 items take seconds).
#include "platform/CompoundFile.h"

#include "base/ByteReader.h"
#include "base/StrCat.h"

#include <sys/file.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <unordered_map>

namespace lumenar::platform {

using base::Error;
using base::ErrorCode;
using base::Result;
using base::StrCat;

namespace {

constexpr std::uint8_t kSignature[8] = {0xD0, 0xCF, 0x11, 0xE0, 0xA1, 0xB1, 0x1A, 0xE1};
constexpr std::size_t kHeaderBytes = 512;
constexpr std::size_t kHeaderDifatEntries = 109;
constexpr std::size_t kDirectoryEntryBytes = 128;
constexpr std::uint32_t kEndOfChain = 0xFFFFFFFE;
constexpr std::uint32_t kNoEntry = 0xFFFFFFFF;
// Directory entry types.
constexpr std::uint8_t kTypeStorage = 1;
constexpr std::uint8_t kTypeStream = 2;
constexpr std::uint8_t kTypeRoot = 5;

// Header offsets.
constexpr std::size_t kSectorShiftOffset = 30;
constexpr std::size_t kMiniSectorShiftOffset = 32;
constexpr std::size_t kFirstDirectorySectorOffset = 48;
constexpr std::size_t kMiniStreamCutoffOffset = 56;
constexpr std::size_t kFirstMiniFatSectorOffset = 60;
constexpr std::size_t kFirstDifatSectorOffset = 68;
constexpr std::size_t kDifatSectorCountOffset = 72;
constexpr std::size_t kHeaderDifatOffset = 76;

// Directory entry offsets.
constexpr std::size_t kNameLengthOffset = 64; // Bytes of the UTF-16 name with its terminator.
constexpr std::size_t kTypeOffset = 66;
constexpr std::size_t kLeftOffset = 68;
constexpr std::size_t kRightOffset = 72;
constexpr std::size_t kChildOffset = 76;
constexpr std::size_t kStartSectorOffset = 116;
constexpr std::size_t kSizeOffset = 120; // 64 bits; files of 512-byte sectors use the low half only.

// A little-endian 16-bit value; the caller has checked the span's length.
std::uint16_t Half(std::span<const std::uint8_t> bytes, std::size_t offset)
{
    return static_cast<std::uint16_t>(bytes[offset] | (bytes[offset + 1] << 8));
}

std::uint32_t Word(std::span<const std::uint8_t> bytes, std::size_t offset)
{
    return static_cast<std::uint32_t>(base::LoadI32LE(bytes, offset));
}

std::string LowerAscii(std::string_view name)
{
    std::string lower(name);
    for (char& c : lower)
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    return lower;
}

// UTF-16LE to UTF-8, up to the first NUL; unpaired surrogates become U+FFFD.
std::string NameOf(std::span<const std::uint8_t> entry)
{
    const std::size_t units = std::min<std::size_t>(Half(entry, kNameLengthOffset), 64) / 2;
    std::string name;
    for (std::size_t i = 0; i < units; ++i) {
        std::uint32_t code = Half(entry, 2 * i);
        if (code == 0)
            break;
        if (code >= 0xD800 && code < 0xDC00 && i + 1 < units) {
            const std::uint32_t low = Half(entry, 2 * (i + 1));
            if (low >= 0xDC00 && low < 0xE000) {
                code = 0x10000 + ((code - 0xD800) << 10) + (low - 0xDC00);
                ++i;
            }
        }
        if (code >= 0xD800 && code < 0xE000)
            code = 0xFFFD;
        if (code < 0x80) {
            name += static_cast<char>(code);
        } else if (code < 0x800) {
            name += static_cast<char>(0xC0 | (code >> 6));
            name += static_cast<char>(0x80 | (code & 0x3F));
        } else if (code < 0x10000) {
            name += static_cast<char>(0xE0 | (code >> 12));
            name += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
            name += static_cast<char>(0x80 | (code & 0x3F));
        } else {
            name += static_cast<char>(0xF0 | (code >> 18));
            name += static_cast<char>(0x80 | ((code >> 12) & 0x3F));
            name += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
            name += static_cast<char>(0x80 | (code & 0x3F));
        }
    }
    return name;
}

struct Entry
{
    std::string name;
    std::uint8_t type = 0;
    std::uint32_t left = kNoEntry;
    std::uint32_t right = kNoEntry;
    std::uint32_t child = kNoEntry;
    std::uint32_t start = kEndOfChain;
    std::uint64_t size = 0;
};

struct FileCloser
{
    void operator()(std::FILE* file) const { std::fclose(file); }
};

} // namespace

/// Everything read from the file once: its bytes, the sector tables and the directory. Shared by the
/// root and every storage opened from it.
struct CompoundFileData
{
    std::vector<std::uint8_t> bytes;
    std::size_t sectorBytes = 512;
    std::size_t miniSectorBytes = 64;
    std::uint32_t miniCutoff = 4096;
    std::vector<std::uint32_t> fat;
    std::vector<std::uint32_t> miniFat;
    std::vector<std::uint8_t> miniStream;
    std::vector<Entry> entries;

    std::size_t SectorCount() const
    {
        return bytes.size() > sectorBytes ? bytes.size() / sectorBytes - 1 : 0;
    }

    // The sectors of the chain starting at `first`, at most `limit` of them; fails on a loop or a
    // sector outside the file.
    Result<std::vector<std::uint32_t>> Chain(const std::vector<std::uint32_t>& table, std::uint32_t first,
                                             std::size_t limit) const
    {
        std::vector<std::uint32_t> chain;
        std::uint32_t at = first;
        while (at != kEndOfChain && chain.size() < limit) {
            if (at >= table.size() || chain.size() > table.size())
                return Error{ErrorCode::BadData, StrCat("sector chain from ", first, " is broken at ", at)};
            chain.push_back(at);
            at = table[at];
        }
        return chain;
    }

    // `count` bytes of the chain from `first` in sectors of `unit` bytes of `space` (the file past its
    // header, or the mini stream).
    Result<std::vector<std::uint8_t>> Read(std::span<const std::uint8_t> space, std::size_t unit,
                                           const std::vector<std::uint32_t>& table, std::uint32_t first,
                                           std::size_t count) const
    {
        const auto chain = LUM_TRY(Chain(table, first, (count + unit - 1) / unit));
        if (chain.size() * unit < count)
            return Error{ErrorCode::Truncated,
                         StrCat("the chain from sector ", first, " ends before ", count, " bytes")};
        std::vector<std::uint8_t> out(count);
        for (std::size_t i = 0; i < chain.size(); ++i) {
            const std::size_t from = static_cast<std::size_t>(chain[i]) * unit;
            const std::size_t take = std::min(unit, count - i * unit);
            if (from + take > space.size())
                return Error{ErrorCode::Truncated,
                             StrCat("sector ", chain[i], " lies past the end of the file")};
            std::memcpy(out.data() + i * unit, space.data() + from, take);
        }
        return out;
    }

    std::span<const std::uint8_t> Sectors() const
    {
        return std::span(bytes).subspan(std::min(sectorBytes, bytes.size()));
    }

    Result<std::vector<std::uint8_t>> ReadEntry(const Entry& entry, std::size_t count) const
    {
        if (entry.size < miniCutoff)
            return Read(miniStream, miniSectorBytes, miniFat, entry.start, count);
        return Read(Sectors(), sectorBytes, fat, entry.start, count);
    }

    Result<void> Parse()
    {
        const std::span<const std::uint8_t> header(bytes.data(), kHeaderBytes);
        const std::uint16_t sectorShift = Half(header, kSectorShiftOffset);
        const std::uint16_t miniShift = Half(header, kMiniSectorShiftOffset);
        if ((sectorShift != 9 && sectorShift != 12) || miniShift == 0 || miniShift > sectorShift)
            return Error{ErrorCode::BadData, StrCat("sector sizes 2^", sectorShift, " and 2^", miniShift,
                                                    " are not those of a compound file")};
        sectorBytes = std::size_t{1} << sectorShift;
        miniSectorBytes = std::size_t{1} << miniShift;
        miniCutoff = Word(header, kMiniStreamCutoffOffset);
        const std::size_t perSector = sectorBytes / 4;
        const std::span<const std::uint8_t> sectors = Sectors();
        auto sector = [&](std::uint32_t number) -> Result<std::span<const std::uint8_t>> {
            if (number >= SectorCount())
                return Error{ErrorCode::Truncated,
                             StrCat("sector ", number, " lies past the end of the file")};
            return sectors.subspan(static_cast<std::size_t>(number) * sectorBytes, sectorBytes);
        };

        // The sectors that hold the allocation table: 109 in the header, then a chain of DIFAT sectors.
        std::vector<std::uint32_t> fatSectors;
        for (std::size_t i = 0; i < kHeaderDifatEntries; ++i)
            fatSectors.push_back(Word(header, kHeaderDifatOffset + 4 * i));
        std::uint32_t difat = Word(header, kFirstDifatSectorOffset);
        const std::uint32_t difatCount = Word(header, kDifatSectorCountOffset);
        for (std::uint32_t i = 0; i < difatCount && difat < kEndOfChain - 3; ++i) {
            const auto block = LUM_TRY(sector(difat));
            for (std::size_t j = 0; j + 1 < perSector; ++j)
                fatSectors.push_back(Word(block, 4 * j));
            difat = Word(block, 4 * (perSector - 1));
            if (fatSectors.size() > SectorCount() + kHeaderDifatEntries + perSector)
                return Error{ErrorCode::BadData, "the sector table's index loops"};
        }
        for (std::uint32_t number : fatSectors) {
            if (number >= kEndOfChain - 3)
                continue; // Free slots of the index.
            const auto block = LUM_TRY(sector(number));
            for (std::size_t j = 0; j < perSector; ++j)
                fat.push_back(Word(block, 4 * j));
            if (fat.size() > (SectorCount() + 1) * perSector)
                return Error{ErrorCode::BadData, "the sector table is larger than the file"};
        }

        // The directory: 128-byte entries in the chain from its first sector.
        const auto directory = LUM_TRY(Chain(fat, Word(header, kFirstDirectorySectorOffset), SectorCount()));
        for (std::uint32_t number : directory) {
            const auto block = LUM_TRY(sector(number));
            for (std::size_t at = 0; at + kDirectoryEntryBytes <= sectorBytes; at += kDirectoryEntryBytes) {
                const auto raw = block.subspan(at, kDirectoryEntryBytes);
                Entry entry;
                entry.name = NameOf(raw);
                entry.type = raw[kTypeOffset];
                entry.left = Word(raw, kLeftOffset);
                entry.right = Word(raw, kRightOffset);
                entry.child = Word(raw, kChildOffset);
                entry.start = Word(raw, kStartSectorOffset);
                entry.size = Word(raw, kSizeOffset);
                if (sectorBytes != 512)
                    entry.size |= static_cast<std::uint64_t>(Word(raw, kSizeOffset + 4)) << 32;
                entries.push_back(std::move(entry));
            }
        }
        if (entries.empty() || entries[0].type != kTypeRoot)
            return Error{ErrorCode::BadData, "the directory has no root entry"};

        // The mini stream is the root entry's data; its table is a chain of its own.
        const Entry& root = entries[0];
        const std::size_t miniFatSectors = SectorCount();
        for (std::uint32_t number :
             LUM_TRY(Chain(fat, Word(header, kFirstMiniFatSectorOffset), miniFatSectors))) {
            const auto block = LUM_TRY(sector(number));
            for (std::size_t j = 0; j < perSector; ++j)
                miniFat.push_back(Word(block, 4 * j));
        }
        if (root.start != kEndOfChain && root.size > 0) {
            const std::size_t wanted = static_cast<std::size_t>(
                std::min<std::uint64_t>(root.size, std::uint64_t{SectorCount()} * sectorBytes));
            miniStream = LUM_TRY(Read(Sectors(), sectorBytes, fat, root.start, wanted));
        }
        return {};
    }

    // The children of entry `parent` (a storage or the root) by lower-case name, in the tree's order;
    // the first of equal names wins. A loop in the tree ends the walk where it closes.
    std::vector<std::uint32_t> Children(std::uint32_t parent) const
    {
        std::vector<std::uint32_t> children;
        std::vector<std::uint32_t> pending;
        std::vector<bool> seen(entries.size(), false);
        // In-order walk without recursion: a hostile file may nest as deep as it has entries.
        std::uint32_t at = entries[parent].child;
        while (at < entries.size() || !pending.empty()) {
            while (at < entries.size() && !seen[at]) {
                seen[at] = true;
                pending.push_back(at);
                at = entries[at].left;
            }
            if (pending.empty())
                break;
            const std::uint32_t next = pending.back();
            pending.pop_back();
            const std::uint8_t type = entries[next].type;
            if (type == kTypeStorage || type == kTypeStream)
                children.push_back(next);
            at = entries[next].right;
        }
        return children;
    }
};

struct CompoundStorage::Impl
{
    std::shared_ptr<const CompoundFileData> file;
    std::unique_ptr<std::FILE, FileCloser> lockedFile; // The root of a file opened by path holds its lock.
    std::vector<std::uint32_t> children;               // Entry numbers, in the container's order.
    std::unordered_map<std::string, std::uint32_t> byName; // Lower-case name to entry; the first wins.

    void Index(std::uint32_t entry)
    {
        children = file->Children(entry);
        byName.reserve(children.size());
        for (std::uint32_t child : children)
            byName.emplace(LowerAscii(file->entries[child].name), child);
    }

    const Entry* Find(std::string_view name) const
    {
        const auto found = byName.find(LowerAscii(name));
        return found == byName.end() ? nullptr : &file->entries[found->second];
    }
};

CompoundStorage::CompoundStorage(std::unique_ptr<Impl> impl) : impl_(std::move(impl))
{
}
CompoundStorage::~CompoundStorage() = default;

bool CompoundStorage::Sniff(std::span<const std::uint8_t> head)
{
    return head.size() >= sizeof kSignature && std::memcmp(head.data(), kSignature, sizeof kSignature) == 0;
}

Result<std::unique_ptr<CompoundStorage>> CompoundStorage::OpenRoot(std::vector<std::uint8_t> bytes,
                                                                   std::string_view where)
{
    if (bytes.size() < kHeaderBytes || !Sniff(bytes))
        return Error{ErrorCode::BadData, StrCat(where, " is not a compound file (no signature)")};
    auto data = std::make_shared<CompoundFileData>();
    data->bytes = std::move(bytes);
    if (auto parsed = data->Parse(); !parsed.ok())
        return Error{ErrorCode::BadData,
                     StrCat(where, " is not a compound file (", parsed.error().message, ")")};
    auto impl = std::make_unique<Impl>();
    impl->file = std::move(data);
    impl->Index(0);
    return std::unique_ptr<CompoundStorage>(new CompoundStorage(std::move(impl)));
}

Result<std::unique_ptr<CompoundStorage>> CompoundStorage::OpenFile(const std::string& path)
{
    std::unique_ptr<std::FILE, FileCloser> file(std::fopen(path.c_str(), "rb"));
    if (!file)
        return Error{errno == ENOENT ? ErrorCode::NotFound : ErrorCode::Io,
                     StrCat("cannot open ", path, ": ", std::strerror(errno))};
    // The film file is opened for exclusive use: a second open while this one lives fails.
    if (flock(fileno(file.get()), LOCK_EX | LOCK_NB) != 0)
        return Error{ErrorCode::Io, StrCat("cannot lock ", path, ": ", std::strerror(errno))};
    std::vector<std::uint8_t> bytes;
    std::vector<std::uint8_t> block(65536);
    for (std::size_t got; (got = std::fread(block.data(), 1, block.size(), file.get())) > 0;) {
        const std::size_t at = bytes.size();
        bytes.resize(at + got);
        std::memcpy(bytes.data() + at, block.data(), got);
    }
    if (std::ferror(file.get()))
        return Error{ErrorCode::Io, StrCat("cannot read ", path)};
    auto root = LUM_TRY(OpenRoot(std::move(bytes), path));
    root->impl_->lockedFile = std::move(file);
    return root;
}

Result<std::unique_ptr<CompoundStorage>> CompoundStorage::OpenMemory(std::span<const std::uint8_t> bytes)
{
    return OpenRoot(std::vector<std::uint8_t>(bytes.begin(), bytes.end()), "memory block");
}

Result<std::vector<StorageElement>> CompoundStorage::Elements()
{
    std::vector<StorageElement> elements;
    elements.reserve(impl_->children.size());
    for (std::uint32_t child : impl_->children) {
        const Entry& entry = impl_->file->entries[child];
        elements.push_back(
            {entry.name, entry.type == kTypeStream ? ElementKind::Stream : ElementKind::Storage});
    }
    return elements;
}

Result<std::unique_ptr<CompoundStorage>> CompoundStorage::OpenStorage(std::string_view name)
{
    const Entry* entry = impl_->Find(name);
    if (entry == nullptr)
        return Error{ErrorCode::NotFound, StrCat("no storage named ", name)};
    if (entry->type != kTypeStorage)
        return Error{ErrorCode::NotFound, StrCat(name, " is not a storage")};
    auto impl = std::make_unique<Impl>();
    impl->file = impl_->file;
    impl->Index(static_cast<std::uint32_t>(entry - impl_->file->entries.data()));
    return std::unique_ptr<CompoundStorage>(new CompoundStorage(std::move(impl)));
}

Result<std::vector<std::uint8_t>> CompoundStorage::ReadStream(std::string_view name, std::size_t maxBytes)
{
    const Entry* entry = impl_->Find(name);
    if (entry == nullptr)
        return Error{ErrorCode::NotFound, StrCat("no stream named ", name)};
    if (entry->type != kTypeStream)
        return Error{ErrorCode::NotFound, StrCat(name, " is not a stream")};
    const std::size_t count = static_cast<std::size_t>(std::min<std::uint64_t>(entry->size, maxBytes));
    if (count == 0)
        return std::vector<std::uint8_t>{};
    auto bytes = impl_->file->ReadEntry(*entry, count);
    if (!bytes.ok())
        return Error{ErrorCode::Io,
                     StrCat("cannot read ", count, " bytes of stream ", name, ": ", bytes.error().message)};
    return bytes;
}

namespace {
std::mutex pinnedLock; // Guards Pinned().
std::vector<std::unique_ptr<CompoundStorage>>& Pinned()
{
    static std::vector<std::unique_ptr<CompoundStorage>> pinned;
    return pinned;
}
} // namespace

void CompoundStorage::KeepOpenUntilExit(std::unique_ptr<CompoundStorage> storage)
{
    // Only a file has a lock worth holding; a storage read from memory is simply closed.
    if (!storage || !storage->impl_->lockedFile)
        return;
    std::lock_guard<std::mutex> hold(pinnedLock);
    Pinned().push_back(std::move(storage));
}

} // namespace lumenar::platform
