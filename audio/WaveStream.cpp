#include "audio/WaveStream.h"

#include "audio/NarrationDecoder.h"
#include "audio/WaveFile.h"
#include "base/Checked.h"
#include "base/StrCat.h"
#include "platform/DebugTrace.h"
#include "platform/ReportBox.h"
#include "platform/StringTable.h"
#include "platform/TempFile.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <vector>

namespace lumenar::audio {

namespace {

constexpr std::size_t kWriteBlock = 2048;

// Loads a whole file; empty on failure.
base::Result<std::vector<std::uint8_t>> LoadFile(const std::string& path)
{
    std::error_code error;
    const auto size = std::filesystem::file_size(path, error);
    if (error)
        return base::Error{base::ErrorCode::Io, base::StrCat("cannot size ", path, ": ", error.message())};
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(size), 0);
    std::FILE* file = std::fopen(path.c_str(), "rb");
    if (!file)
        return base::Error{base::ErrorCode::Io, base::StrCat("cannot open ", path)};
    const std::size_t got = std::fread(bytes.data(), 1, bytes.size(), file);
    std::fclose(file);
    bytes.resize(got);
    return bytes;
}

void RemoveFile(const std::string& path)
{
    std::error_code ignored;
    std::filesystem::remove(path, ignored);
}

std::string_view Label(std::string_view itemName)
{
    return itemName.empty() ? std::string_view("narration") : itemName;
}

// One report for the whole narration, however many frames were damaged.
void ReportDamage(std::string_view itemName, const NarrationReport& report)
{
    const std::string text = base::StrCat(Label(itemName), ": ", report.Describe());
    if (report.sizeMismatches != 0) // The decoder's own message leads, as the player has always shown it.
        platform::ReportBox(nullptr, platform::kBoxIconError, 0, nullptr, 0, "Decode size unmatch\n%s",
                            text.c_str());
    else
        platform::ReportBox(nullptr, platform::kBoxIconWarning, platform::kStrWarning, "Warning", 0, "%s",
                            text.c_str());
}

} // namespace

WaveStream::WaveStream(platform::SoundDevice* device, platform::TimerService& timers, std::string tempFolder)
    : device_(device), tempFolder_(std::move(tempFolder))
{
    const platform::TimerCaps caps = timers.Caps();
    const std::uint32_t resolution =
        std::min(std::max(kWatchResolutionMs, caps.minPeriodMs), caps.maxPeriodMs);
    watcher_ = timers.StartPeriodic(kWatchPeriodMs, resolution, [this] { WatchBuffer(); });
}

WaveStream::~WaveStream()
{
    watcher_.reset();
    buffer_.store(nullptr);
    ownedBuffer_.reset();
}

int WaveStream::AppendCompressed(std::span<const std::uint8_t> data, std::string_view itemName)
{
    auto path = platform::CreateTempFile(tempFolder_, "wa");
    if (!path.ok()) {
        platform::DebugTrace(base::StrCat("narration chunk dropped: ", path.error().message, "\n"));
        return 1;
    }
    NarrationReport report;
    if (DecodeNarration(data, *path, &report) == 1) {
        if (report.Damaged())
            ReportDamage(itemName, report);
        AppendWaveFile(*path, itemName);
    }
    RemoveFile(*path);
    return 1;
}

int WaveStream::AppendWaveData(std::span<const std::uint8_t> data, std::string_view itemName)
{
    auto path = platform::CreateTempFile(tempFolder_, "wa");
    if (!path.ok()) {
        platform::DebugTrace(base::StrCat("wave chunk dropped: ", path.error().message, "\n"));
        return 1;
    }
    std::error_code error;
    std::filesystem::permissions(*path,
                                 std::filesystem::perms::owner_read | std::filesystem::perms::owner_write,
                                 std::filesystem::perm_options::add, error);
    bool written = false;
    if (!error) {
        if (std::FILE* file = std::fopen(path->c_str(), "wb")) {
            written = true;
            for (std::size_t at = 0; at < data.size() && written; at += kWriteBlock) {
                const std::size_t block = std::min(kWriteBlock, data.size() - at);
                written = std::fwrite(data.data() + at, 1, block, file) == block;
            }
            written = std::fclose(file) == 0 && written;
        }
    }
    if (written)
        AppendWaveFile(*path, itemName);
    else
        platform::DebugTrace(base::StrCat("wave chunk dropped: cannot write ", *path, "\n"));
    RemoveFile(*path);
    return 1;
}

void WaveStream::AppendWaveFile(const std::string& path, std::string_view itemName)
{
    // A format the output cannot play is the item's fault, not the device's: the viewer hears about it
    // once, and the film plays on without this narration.
    auto refused = [itemName](const base::Error& error) {
        platform::ReportBox(nullptr, platform::kBoxIconWarning, platform::kStrWarning, "Warning", 0,
                            "%s: not played: %s", std::string(Label(itemName)).c_str(),
                            error.message.c_str());
    };
    if (!bufferMarker_) {
        bufferMarker_ = true;
        auto file = LoadFile(path);
        base::Status made = file.ok() ? CreateBuffer(*file) : base::Status(file.error());
        if (!made.ok()) {
            // The next chunk tries to make the buffer anew.
            if (made.error().code == base::ErrorCode::Unsupported)
                refused(made.error());
            else
                platform::DebugTrace(base::StrCat("wave buffer not created: ", made.error().message, "\n"));
            bufferMarker_ = false;
        }
        return;
    }
    platform::SoundBuffer* buffer = ownedBuffer_.get();
    if (!buffer) {
        platform::DebugTrace("wave chunk dropped: no buffer\n");
        return;
    }
    auto file = LoadFile(path);
    if (!file.ok())
        return platform::DebugTrace(base::StrCat("wave chunk dropped: ", file.error().message, "\n"));
    auto chunks = FindWaveChunks(*file);
    if (!chunks.ok())
        return platform::DebugTrace(base::StrCat("wave chunk dropped: ", chunks.error().message, "\n"));
    if (base::Status playable = platform::CheckPlayableFormat(chunks->format); !playable.ok())
        return refused(playable.error());
    const base::Status written = WriteData(*buffer, chunks->data);
    if (!written.ok())
        platform::DebugTrace(base::StrCat("wave chunk dropped: ", written.error().message, "\n"));
}

base::Status WaveStream::CreateBuffer(std::span<const std::uint8_t> file)
{
    const WaveChunks chunks = LUM_TRY(FindWaveChunks(file));
    // Checked before anything is sized from the header: its byte rate alone could ask for gigabytes.
    LUM_TRY(platform::CheckPlayableFormat(chunks.format));
    const auto bytes = base::CheckedMul<std::uint32_t>(kBufferSeconds, chunks.format.avgBytesPerSec);
    if (!bytes || *bytes == 0)
        return base::Error{base::ErrorCode::TooLarge,
                           base::StrCat("a buffer of ", kBufferSeconds, " s at ",
                                        chunks.format.avgBytesPerSec, " bytes per second cannot be made")};
    if (!device_)
        return base::Error{base::ErrorCode::NotFound, "no sound device"};
    auto buffer = device_->CreateBuffer(chunks.format, *bytes);
    if (!buffer)
        return base::Error{base::ErrorCode::Io, "the sound device refused the buffer"};
    bufferBytes_ = *bytes;
    LUM_TRY(WriteData(*buffer, chunks.data));
    ownedBuffer_ = std::move(buffer);
    buffer_.store(ownedBuffer_.get());
    return {};
}

base::Status WaveStream::WriteData(platform::SoundBuffer& buffer, std::span<const std::uint8_t> data)
{
    if (data.empty())
        return base::Error{base::ErrorCode::BadData, "no wave data"};
    writing_.store(true);
    platform::LockedRegions regions;
    const platform::LockResult locked =
        buffer.Lock(writePos_.load(),
                    static_cast<std::uint32_t>(std::min<std::size_t>(data.size(), UINT32_MAX)), regions);
    if (locked == platform::LockResult::BufferLost) {
        // The regions of a failed lock are not ours to write; the chunk is dropped.
        const bool restored = buffer.Restore();
        writing_.store(false);
        return base::Error{base::ErrorCode::Io,
                           restored ? "sound buffer lost; restored, chunk dropped" : "sound buffer lost"};
    }
    if (locked != platform::LockResult::Ok) {
        writing_.store(false);
        return base::Error{base::ErrorCode::Io,
                           base::StrCat("cannot lock ", data.size(), " bytes at ", writePos_.load())};
    }
    const std::size_t first = std::min<std::size_t>(data.size(), regions.firstBytes);
    std::memcpy(regions.first, data.data(), first);
    if (regions.second != nullptr)
        std::memcpy(regions.second, data.data() + first,
                    std::min<std::size_t>(data.size() - first, regions.secondBytes));
    buffer.Unlock(regions);

    previousWritePos_.store(writePos_.load());
    if (regions.second != nullptr && regions.secondBytes != 0) {
        writeWrapped_.store(true);
        writePos_.store(regions.secondBytes);
    } else {
        std::uint32_t next = writePos_.load() + regions.firstBytes;
        if (next == bufferBytes_) {
            next = 0;
            writeWrapped_.store(true);
        }
        writePos_.store(next);
    }
    writing_.store(false);
    return {};
}

void WaveStream::StartPlayback()
{
    platform::SoundBuffer* buffer = buffer_.load();
    if (!buffer)
        return;
    const std::uint32_t status = buffer->Status().value_or(0);
    if (status & platform::kStatusPlaying)
        return;
    if (status & platform::kStatusBufferLost)
        buffer->Restore();
    else
        buffer->PlayLooping();
}

bool WaveStream::IsPlaying() const
{
    platform::SoundBuffer* buffer = buffer_.load();
    return buffer && (buffer->Status().value_or(0) & platform::kStatusPlaying) != 0;
}

void WaveStream::WatchBuffer()
{
    platform::SoundBuffer* buffer = buffer_.load();
    if (!buffer || writing_.load())
        return;
    const std::uint32_t status = buffer->Status().value_or(0);
    if (!(status & platform::kStatusPlaying))
        return;
    const auto cursor = buffer->PlayCursor();
    if (!cursor)
        return;
    if (*cursor < lastPlayPos_.load()) {
        playWrapped_.store(true);
        writeWrapped_.store(false);
    }
    if (!writeWrapped_.load() && *cursor > writePos_.load()) {
        // Continue from the first byte of the next chunk when playback starts again.
        buffer->Stop();
        buffer->SetPosition(writePos_.load());
        lastPlayPos_.store(writePos_.load());
        return;
    }
    lastPlayPos_.store(*cursor);
}

} // namespace lumenar::audio
