#include "film/FilmReceiver.h"

#include "audio/WaveStream.h"
#include "film/ChunkQueue.h"
#include "film/FilmStreamWriter.h"
#include "film/FilmWriter.h"
#include "platform/InMemoryPictures.h"
#include "platform/Presenter.h"
#include "platform/Sync.h"
#include "tests/support/FilmWriter.h"
#include "tests/support/MessageCapture.h"
#include "tests/support/WriteFile.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <algorithm>
#include <map>
#include <optional>
#include <thread>

namespace lumenar::film {
namespace {

namespace fs = std::filesystem;
using Bytes = std::vector<std::uint8_t>;

using testing::Pattern;
using testing::WaveFile;

// One film and the media its stream carries.
struct Fixture
{
    Film film;
    std::vector<ItemMedia> media;
    Bytes music;
    Bytes preamble = Pattern(37, 9);

    // A photo item whose files are named after their sizes; an empty photo makes a size-0 item.
    void AddPhoto(const Bytes& photo, const Bytes& mask = {}, const Bytes& sound = {},
                  const char* soundName = "n.wav")
    {
        FilmItem item =
            testing::PhotoItem(photo.empty() ? "photo.jpg" : SizedName(photo.size(), "photo.jpg"));
        item.mask.cstrName = SizedName(mask.size(), "mask.jpg");
        item.sound.cstrName = SizedName(sound.size(), soundName);
        Add(item, {.photo = photo, .mask = mask, .sound = sound});
    }
    void Add(const FilmItem& item, ItemMedia bytes)
    {
        const std::int32_t number = film.AddItem(item);
        for (const FilmText& text : item.texts)
            film.AddText(number, text);
        media.push_back(std::move(bytes));
    }
    Bytes Stream() const
    {
        auto stream = WriteFilmStream(film, media, music, preamble);
        EXPECT_TRUE(stream.ok()) << stream.error().message;
        return stream.ok() ? std::move(stream).value() : Bytes{};
    }
};

// A stream whose pieces are given by hand, whatever the film's names say.
Bytes RawStream(const Film& film, const Bytes& pieces)
{
    Bytes out = testing::StreamOfFilmFile(WriteFilmFile(film).value());
    out.insert(out.end(), pieces.begin(), pieces.end());
    return out;
}

// What playback saw of one handed-over item.
struct Seen
{
    std::int32_t number;
    FilmItem item;
    Bytes photo;
    Bytes mask;
};

Bytes PictureBytes(const FilmFile& file)
{
    if (file.cstrPath.empty())
        return {};
    auto block = platform::FindInMemoryPicture(std::stoull(file.cstrPath), std::stoull(file.cstrName));
    return block ? *block : Bytes{};
}

// Plays the part of playback on a thread of its own: takes each item as it is announced, copies its
// pictures while they are registered, then reports the step done.
class FakePlayback
{
public:
    explicit FakePlayback(Film& film)
        : film_(film), thread_([this](std::stop_token stop) {
              while (!stop.stop_requested()) {
                  if (!itemAvailable_.Wait(5))
                      continue;
                  std::lock_guard guard(filmLock_);
                  const FilmItem item = film_.GetItem(next_);
                  seen_.push_back({next_++, item, PictureBytes(item.photo), PictureBytes(item.mask)});
                  stepDone_.Set();
              }
          })
    {
    }
    ItemHandOver HandOver(platform::FramePresenter* presenter = nullptr)
    {
        return {&itemAvailable_, &stepDone_, &filmLock_, presenter, 320, 240, nullptr};
    }
    std::vector<Seen> Taken()
    {
        std::lock_guard guard(filmLock_);
        return seen_;
    }

private:
    Film& film_;
    platform::AutoResetEvent itemAvailable_;
    platform::AutoResetEvent stepDone_;
    std::mutex filmLock_; // Guards film_ against the receiver, and seen_ and next_.
    std::int32_t next_ = 1;
    std::vector<Seen> seen_;
    std::jthread thread_;
};

std::map<std::string, Bytes> FolderFiles(const std::string& folder)
{
    std::map<std::string, Bytes> files;
    for (const auto& entry : fs::directory_iterator(folder))
        files[entry.path().filename().string()] = testing::ReadFile(entry.path());
    return files;
}

// One receiver fed with a stream in chunks of `chunk` bytes, with everything a test looks at.
struct FeedRun
{
    platform::ManualClock clock;
    platform::ManualTimers timers{clock};
    platform::NullSoundDevice sound{clock};
    Film film;
    FakePlayback playback{film};
    FilmReceiver receiver{&sound, timers};
    std::atomic<std::int32_t> stop{0};
    std::vector<std::int64_t> results;

    void Feed(const Bytes& stream, std::size_t chunk, const ItemHandOver* handOver)
    {
        for (std::size_t at = 0; at < stream.size(); at += chunk) {
            const auto size = static_cast<std::int32_t>(std::min(chunk, stream.size() - at));
            results.push_back(receiver.FeedChunk(film, handOver, stream.data() + at, size, stop));
        }
    }
    void Feed(const Bytes& stream, std::size_t chunk)
    {
        const ItemHandOver handOver = playback.HandOver();
        Feed(stream, chunk, &handOver);
    }
    bool AllTaken(const Bytes& stream, std::size_t chunk) const
    {
        for (std::size_t i = 0; i < results.size(); ++i)
            if (results[i] != static_cast<std::int64_t>(std::min(chunk, stream.size() - i * chunk)))
                return false;
        return true;
    }
};

Fixture ThreePhotos()
{
    Fixture f;
    f.film.SetMusic("C:\\Music\\" + SizedName(5120, "song.wav"));
    f.music = Pattern(5120, 1);
    f.AddPhoto(Pattern(700, 2), Pattern(90, 3));
    f.AddPhoto(Pattern(401, 4), {}, WaveFile(Pattern(640, 5)));
    FilmItem third = testing::PhotoItem(SizedName(333, "last.jpg"), 7, 4);
    third.texts = {testing::Caption("Hello", 3, 1), testing::Caption("There", 5, 2)};
    f.Add(third, {.photo = Pattern(333, 6)});
    return f;
}

TEST(ChunkQueue, KeepsCopiesInOrderAndEmptiesCleanly)
{
    ChunkQueue queue;
    std::lock_guard guard(queue.Lock());
    EXPECT_EQ(queue.Peek(), nullptr);
    queue.Pop(); // Nothing to pop is not an error.
    Bytes first = {1, 2, 3};
    queue.Push(first);
    first[0] = 9;
    queue.Push(Bytes{4});
    ASSERT_NE(queue.Peek(), nullptr);
    EXPECT_EQ(queue.Peek()->bytes, (Bytes{1, 2, 3}));
    queue.Pop();
    EXPECT_EQ(queue.Peek()->bytes, (Bytes{4}));
    queue.Pop();
    EXPECT_EQ(queue.Peek(), nullptr);
    // The tail went back to the head: the next push is found again.
    queue.Push(Bytes{5});
    EXPECT_EQ(queue.Peek()->bytes, (Bytes{5}));
    queue.Push(Bytes{6, 7});
    queue.PushEndOfStream();
    EXPECT_EQ(queue.Bytes(), 3u) << "the bytes of every chunk, none for the end mark";
    queue.Pop();
    EXPECT_EQ(queue.Bytes(), 2u);
    queue.Clear();
    EXPECT_EQ(queue.Peek(), nullptr);
    EXPECT_EQ(queue.Count(), 0u);
    EXPECT_EQ(queue.Bytes(), 0u);
}

TEST(FilmReceiver, AnyChunkingGivesTheSameItemsAndFiles)
{
    const Fixture f = ThreePhotos();
    const Bytes stream = f.Stream();
    FeedRun whole;
    whole.Feed(stream, stream.size());
    const std::vector<Seen> expected = whole.playback.Taken();
    ASSERT_EQ(expected.size(), 3u);
    for (std::size_t i = 0; i < 3; ++i)
        EXPECT_TRUE(expected[i].photo == f.media[i].photo && expected[i].mask == f.media[i].mask) << i;
    EXPECT_EQ(expected[2].item.texts.size(), 2u);
    EXPECT_EQ(expected[1].item.sound.cstrName, whole.receiver.TempFolder() + "684_n_2.wav")
        << "narration gets a unique name in the private folder";
    const auto files = FolderFiles(whole.receiver.TempFolder());
    ASSERT_EQ(files.count("5120_song.wav"), 1u);
    EXPECT_EQ(files.at("5120_song.wav"), f.music);
    EXPECT_EQ(whole.film.GetMusicPath(), whole.receiver.TempFolder() + "5120_song.wav");
    EXPECT_EQ(whole.receiver.State(), kFinished);
    EXPECT_EQ(whole.receiver.Used(), 0);

    std::vector<std::size_t> sizes;
    for (std::size_t size = 1; size <= 64; ++size)
        sizes.push_back(size);
    for (std::size_t size = 67; size < stream.size(); size = size * 5 / 4 + 1)
        sizes.push_back(size);
    for (std::size_t size : sizes) {
        SCOPED_TRACE(size);
        FeedRun run;
        run.Feed(stream, size);
        EXPECT_TRUE(run.AllTaken(stream, size));
        const std::vector<Seen> seen = run.playback.Taken();
        ASSERT_EQ(seen.size(), expected.size());
        for (std::size_t i = 0; i < seen.size(); ++i) {
            EXPECT_EQ(seen[i].photo, expected[i].photo);
            EXPECT_EQ(seen[i].mask, expected[i].mask);
            EXPECT_EQ(seen[i].item.texts, expected[i].item.texts);
        }
        EXPECT_EQ(FolderFiles(run.receiver.TempFolder()), files);
        EXPECT_EQ(run.receiver.Narration()->WritePos(), whole.receiver.Narration()->WritePos());
        EXPECT_EQ(run.receiver.State(), kFinished);
    }
}

TEST(FilmReceiver, MarkersAreFoundOnlyWithoutASteppingBack)
{
    struct Row
    {
        const char* name;
        std::string before; // Replaces the preamble.
        int state;
    } rows[] = {
        {"plain preamble", "junk", kFinished},
        {"film marker behind its own first letter", "V", kSeekFilmMarker},
        {"a broken start right before the marker hides it", "VistrelanFilm", kSeekFilmMarker},
        {"a broken start and one more byte", "VistrelanFilm ", kFinished},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        Fixture f = ThreePhotos();
        f.preamble.assign(row.before.begin(), row.before.end());
        const Bytes stream = f.Stream();
        // A partly matched marker at a chunk's end must carry over to the next chunk.
        for (std::size_t chunk : {std::size_t{1}, std::size_t{5}, std::size_t{29}, stream.size()}) {
            SCOPED_TRACE(chunk);
            FeedRun run;
            run.Feed(stream, chunk);
            EXPECT_EQ(run.receiver.State(), row.state);
            EXPECT_EQ(run.playback.Taken().size(), row.state == kFinished ? 3u : 0u);
        }
    }
    // The media marker behind a 'V' is never found either: the receiver waits for ever in state 1.
    Fixture f = ThreePhotos();
    Bytes stream = f.Stream();
    const auto media = std::search(stream.begin(), stream.end(), kMediaMarker.begin(), kMediaMarker.end());
    stream.insert(media, 'V');
    FeedRun run;
    run.Feed(stream, 1000);
    EXPECT_EQ(run.receiver.State(), kSeekMediaMarker);
}

TEST(FilmReceiver, ItemsTheLoaderCannotPlayAreRemoved)
{
    struct Row
    {
        const char* name;
        std::function<void(Fixture&)> build;
        std::vector<Bytes> photos; // What playback sees, in order.
        std::uint32_t narration;   // Narration bytes written to the sound ring.
    } rows[] = {
        {"size-0 second item",
         [](Fixture& f) {
             f.AddPhoto(Pattern(50, 1));
             f.AddPhoto({});
             f.AddPhoto(Pattern(60, 2));
         },
         {Pattern(50, 1), Pattern(60, 2)},
         0},
        {"size-0 first item leaves the music to the next",
         [](Fixture& f) {
             f.film.SetMusic(SizedName(30, "m.wav"));
             f.music = Pattern(30, 7);
             f.AddPhoto({});
             f.AddPhoto(Pattern(60, 2));
         },
         {Pattern(60, 2)},
         0},
        {"clip skipped but its pictures and narration taken",
         [](Fixture& f) {
             FilmItem clip;
             clip.kind = kFilmItemClip;
             clip.clipFile.cstrName = SizedName(99, "c.avi");
             clip.clipPicture1.cstrName = SizedName(20, "a.jpg");
             clip.clipPicture2.cstrName = SizedName(21, "b.jpg");
             clip.sound.cstrName = SizedName(WaveFile(Pattern(320, 3)).size(), "c.wav");
             f.Add(clip, {.clipPicture1 = Pattern(20, 4),
                          .clipFile = Pattern(99, 5),
                          .clipPicture2 = Pattern(21, 6),
                          .sound = WaveFile(Pattern(320, 3))});
             f.AddPhoto(Pattern(60, 2));
         },
         {Pattern(60, 2)},
         320},
        {"show removed on arrival",
         [](Fixture& f) {
             FilmItem show;
             show.kind = kFilmItemPowerPoint;
             show.showFile.cstrName = SizedName(10, "s.pps");
             f.Add(show, {});
             f.AddPhoto(Pattern(60, 2));
         },
         {Pattern(60, 2)},
         0},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        Fixture f;
        row.build(f);
        FeedRun run;
        run.Feed(f.Stream(), 17);
        const std::vector<Seen> seen = run.playback.Taken();
        ASSERT_EQ(seen.size(), row.photos.size());
        for (std::size_t i = 0; i < seen.size(); ++i) {
            EXPECT_EQ(seen[i].photo, row.photos[i]);
            EXPECT_EQ(seen[i].item.index, static_cast<std::int32_t>(i + 1));
        }
        EXPECT_EQ(run.film.ItemCount(), static_cast<std::int32_t>(row.photos.size()));
        EXPECT_EQ(run.receiver.Narration()->WritePos(), row.narration);
        EXPECT_EQ(run.receiver.State(), kFinished);
    }
}

TEST(FilmReceiver, MusicSizeComesFromTheNameAndCdMusicIsNotCarried)
{
    struct Row
    {
        const char* music;
        std::int32_t size;
    } rows[] = {{"C:\\M\\5120x.wav", 5120}, {"5120x.cda", 0}, {"C:\\5120X.CdA", 0}, {"", 0}, {"x.mp3", 0}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.music);
        Fixture f;
        f.film.SetMusic(row.music);
        f.music = Pattern(static_cast<std::size_t>(row.size), 1);
        f.AddPhoto(Pattern(10, 1));
        FeedRun run;
        run.Feed(f.Stream(), 4096);
        EXPECT_EQ(run.receiver.MusicSize(), row.size);
        EXPECT_EQ(run.playback.Taken().size(), 1u);
    }
}

TEST(FilmReceiver, AfterStopChunksAreOnlyAppended)
{
    const Bytes stream = ThreePhotos().Stream();
    FeedRun run;
    run.stop = 1;
    run.Feed(stream, 100);
    EXPECT_TRUE(run.AllTaken(stream, 100));
    EXPECT_EQ(run.receiver.State(), kSeekFilmMarker);
    EXPECT_EQ(run.receiver.Used(), static_cast<std::int32_t>(stream.size()));
    EXPECT_EQ(run.receiver.Received(), static_cast<std::int64_t>(stream.size()));
    EXPECT_TRUE(run.playback.Taken().empty());
}

TEST(FilmReceiver, FatalPiecesAreReportedAndEndTheFeed)
{
    struct Row
    {
        const char* name;
        const char* photo;
        const char* sound;
        std::size_t soundBytes;
        const char* message;
    } rows[] = {
        {"unknown narration extension", "10_p.jpg", "8_n.mp3", 8, "Error|DirectSound error"},
        {"a size past 2 GiB", "3000000000_p.jpg", "", 0, "Error|Internal Error"},
        {"a size the buffer cannot take", "2147483647_p.jpg", "100_n.wav", 0, "Error|Internal Error"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        Film film;
        FilmItem item = testing::PhotoItem(row.photo);
        item.sound.cstrName = row.sound;
        film.AddItem(item);
        Bytes pieces = Pattern(10 + row.soundBytes, 3);
        const Bytes stream = RawStream(film, pieces);
        testing::MessageCapture messages;
        FeedRun run;
        run.Feed(stream, stream.size());
        EXPECT_EQ(run.results.back(), -1);
        EXPECT_EQ(messages.Lines(), std::vector<std::string>{row.message});
        EXPECT_TRUE(run.playback.Taken().empty());
    }
}

// A receiver whose files stay in memory, fed without a playback stand-in.
struct MemoryRun
{
    platform::ManualClock clock;
    platform::ManualTimers timers{clock};
    platform::MemoryFiles files;
    Film film;
    std::optional<FilmReceiver> receiver;
    std::atomic<std::int32_t> stop{0};
    std::int32_t peakCapacity = 0;

    explicit MemoryRun(bool refuseFolders = false)
    {
        if (refuseFolders)
            files.RefuseFolders();
        receiver.emplace(nullptr, timers, files);
    }
    // Feeds `stream` in chunks of `chunk` bytes until one fails; returns the last result.
    std::int64_t Feed(const Bytes& stream, std::size_t chunk)
    {
        std::int64_t result = 0;
        for (std::size_t at = 0; at < stream.size() && result != -1; at += chunk) {
            const auto size = static_cast<std::int32_t>(std::min(chunk, stream.size() - at));
            result = receiver->FeedChunk(film, nullptr, stream.data() + at, size, stop);
            peakCapacity = std::max(peakCapacity, receiver->Capacity());
        }
        return result;
    }
};

TEST(FilmReceiver, StreamsThatCannotGiveAFilmSayWhy)
{
    const Bytes three = ThreePhotos().Stream();
    const std::size_t mediaEnd = static_cast<std::size_t>(
        std::search(three.begin(), three.end(), kMediaMarker.begin(), kMediaMarker.end()) - three.begin() +
        kMediaMarker.size());
    auto versioned = [](std::uint32_t version) {
        return testing::StreamOfFilmFile(testing::FilmFileOfVersion(version));
    };
    struct Row
    {
        const char* name;
        Bytes stream;
        bool refuseFolders;
        const char* failure;     // FeedChunk's fatal error, or empty.
        const char* endOfStream; // What an end of the stream here says, when nothing failed.
        const char* message;     // A message box the player has always shown.
    } rows[] = {
        {"no items", RawStream(Film(), {}), false, "the film holds no items", "", ""},
        {"newer version", versioned(201), false,
         "the film file has version 201; this player reads version 200", "",
         "|This film requires a newer version of Vistrel"},
        {"older version", versioned(199), false,
         "the film file has version 199; this player reads version 200", "", ""},
        {"not a compound file", testing::StreamOfFilmFile(Pattern(600, 2)), false,
         "the film file is not a compound file", "", ""},
        {"no temporary folder", three, true,
         "cannot write the film file: cannot make a private folder /memory/lumenar-: refused", "", ""},
        {"no film marker", Pattern(5000, 3), false, "",
         "not a film stream (no film marker in its 5000 bytes)", ""},
        {"ends inside the film file", Bytes(three.begin(), three.begin() + 500), false, "",
         "the stream ends inside the film file (no media marker in its 500 bytes)", ""},
        {"ends after the film file", Bytes(three.begin(), three.begin() + mediaEnd + 5000), false, "",
         "the film ends after 0 of 3 items", ""},
        {"ends after one item", Bytes(three.begin(), three.begin() + mediaEnd + 5120 + 700 + 90 + 10), false,
         "", "the film ends after 1 of 3 items", ""},
        {"whole", three, false, "", "", ""},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        testing::MessageCapture messages;
        MemoryRun run(row.refuseFolders);
        const std::int64_t result = run.Feed(row.stream, 700);
        EXPECT_EQ(result == -1, row.failure[0] != '\0');
        EXPECT_EQ(run.receiver->Failure(), row.failure);
        if (result != -1) {
            EXPECT_EQ(run.receiver->EndOfStream(), row.endOfStream);
            EXPECT_EQ(run.receiver->State() == kFinished, row.endOfStream[0] == '\0') << "a cut stream waits";
        }
        EXPECT_EQ(messages.Lines().empty() ? std::string() : messages.Lines()[0], row.message);
    }
}

TEST(FilmReceiver, EndlessStreamsHoldBoundedMemory)
{
    constexpr std::size_t kChunk = 16 * 1024;
    constexpr std::int64_t kPreamble = 1 << 20;
    constexpr std::int64_t kFilmFile = 256 * 1024;
    const Fixture three = ThreePhotos();
    const Bytes whole = three.Stream();
    const Bytes endless(8 << 20, 'V'); // The marker's first letter over and over: no marker ever.
    auto after = [](Bytes head, const Bytes& tail) {
        head.insert(head.end(), tail.begin(), tail.end());
        return head;
    };
    struct Row
    {
        const char* name;
        Bytes stream;
        std::int64_t peak; // The buffer's largest capacity must stay at or below this.
        const char* failure;
    } rows[] = {
        {"no film marker", endless, 2 * kChunk,
         "not a film stream (no film marker in its first 1064960 bytes)"},
        {"a film file that never ends", after(Bytes(kFilmMarker.begin(), kFilmMarker.end()), endless),
         2 * (kFilmFile + kChunk), "the film file is longer than 262144 bytes (no media marker after it)"},
        {"bytes past the last piece", after(whole, endless),
         2 * static_cast<std::int64_t>(whole.size() + kChunk), ""},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        MemoryRun run;
        run.receiver->SetLimits(kPreamble, kFilmFile);
        const std::int64_t result = run.Feed(row.stream, kChunk);
        EXPECT_LE(run.peakCapacity, row.peak);
        EXPECT_EQ(run.receiver->Failure(), row.failure);
        EXPECT_EQ(result == -1, row.failure[0] != '\0');
        if (result != -1) {
            EXPECT_EQ(run.receiver->State(), kFinished);
            EXPECT_TRUE(run.receiver->StreamComplete());
            EXPECT_EQ(run.receiver->Received(), static_cast<std::int64_t>(whole.size()));
            EXPECT_EQ(run.receiver->Surplus(), static_cast<std::int64_t>(endless.size()));
            EXPECT_EQ(run.receiver->Used(), 0) << "nothing past the film is kept";
            EXPECT_EQ(run.film.ItemCount(), 3);
        }
    }
}

TEST(FilmReceiver, CdNarrationUsesTheFirstOpticalDriveOrNone)
{
    for (std::optional<std::string> drive :
         {std::optional<std::string>("E:"), std::optional<std::string>()}) {
        SCOPED_TRACE(drive.value_or("none"));
        Fixture f;
        f.AddPhoto(Pattern(10, 1));
        FilmItem item = f.film.GetItem(1);
        item.soundMode = kSoundModeCdTrack;
        item.sound = {"D:\\Audio", "Track02.cda"};
        f.film.SetItem(1, item);
        FeedRun run;
        run.receiver.SetOpticalDriveQuery([drive] { return drive; });
        run.Feed(f.Stream(), 4096);
        ASSERT_EQ(run.playback.Taken().size(), 1u);
        const FilmItem seen = run.playback.Taken()[0].item;
        EXPECT_EQ(seen.soundMode, drive ? kSoundModeCdTrack : 0);
        EXPECT_EQ(seen.sound.cstrName, drive ? "E:Track02.cda" : "Track02.cda");
    }
}

TEST(FilmReceiver, HostileNamesStayInsideThePrivateFolder)
{
    const fs::path outside = fs::temp_directory_path() / "5_evil.wav";
    fs::remove(outside);
    const Bytes narration = WaveFile(Pattern(8, 1));
    for (const char* folder : {"..\\..\\", "../../", "/tmp/", "C:", "..\\../", ""}) {
        SCOPED_TRACE(folder);
        Fixture f;
        f.film.SetMusic(std::string(folder) + "5_evil.wav");
        f.music = Pattern(5, 1);
        FilmItem item = testing::PhotoItem(SizedName(10, "p.jpg"));
        item.sound.cstrName = std::string(folder) + SizedName(narration.size(), "n.wav");
        f.Add(item, {.photo = Pattern(10, 1), .sound = narration});
        FeedRun run;
        run.Feed(f.Stream(), 4096);
        ASSERT_EQ(run.playback.Taken().size(), 1u);
        const fs::path inside = fs::path(run.receiver.TempFolder()).parent_path();
        EXPECT_EQ(fs::path(run.film.GetMusicPath()).parent_path(), inside);
        EXPECT_EQ(fs::path(run.playback.Taken()[0].item.sound.cstrName).parent_path(), inside);
        EXPECT_TRUE(fs::exists(inside / "5_evil.wav"));
        EXPECT_FALSE(fs::exists(outside));
    }
}

TEST(FilmReceiver, TemporaryFilesGoAndTheFolderWithThem)
{
    Fixture f = ThreePhotos();
    std::string folder;
    {
        FeedRun run;
        folder = run.receiver.TempFolder();
        ASSERT_FALSE(folder.empty());
        EXPECT_EQ(fs::status(folder).permissions() & fs::perms::all, fs::perms::owner_all);
        run.Feed(f.Stream(), 999);
        DeleteTemporaryFiles(run.receiver, run.film);
        // Compatibility: the music file is kept until the folder goes.
        EXPECT_EQ(FolderFiles(folder).size(), 1u);
        EXPECT_EQ(FolderFiles(folder).count("5120_song.wav"), 1u);
    }
    EXPECT_FALSE(fs::exists(folder));
}

TEST(FilmReceiver, ProgressBarGeometry)
{
    struct Row
    {
        const char* name;
        int width, height;
        std::int64_t expected, received;
        int phase;
        ProgressBar bar;
    } rows[] = {
        {"phase 0 in a large window", 800, 600, 0, 10, 0, {2, 590, 62, 598, 7, 1}},
        {"phase 9", 800, 600, 0, 10, 9, {2, 590, 62, 598, 61, 1}},
        {"half way", 800, 600, 1000, 500, 0, {2, 590, 62, 598, 32, 1}},
        {"all but one byte", 800, 600, 1000, 999, 0, {2, 590, 62, 598, 61, 1}},
        {"exactly the first item", 800, 600, 1000, 1000, 0, {2, 590, 62, 598, 62, 1}},
        {"past the first item", 800, 600, 1000, 1001, 0, {2, 590, 62, 598, 62, 0}},
        {"small client area", 30, 5, 1000, 500, 0, {2, -2, 32, 3, 17, 1}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const ProgressBar bar =
            ComputeProgressBar(row.width, row.height, row.expected, row.received, row.phase);
        EXPECT_EQ(std::tie(bar.left, bar.top, bar.right, bar.bottom, bar.fillRight, bar.report),
                  std::tie(row.bar.left, row.bar.top, row.bar.right, row.bar.bottom, row.bar.fillRight,
                           row.bar.report));
    }
}

class CountingPresenter : public platform::FramePresenter
{
public:
    void Present(const std::uint8_t* bits, int width, int height, int x, int y) override
    {
        ++presents;
        last = Bytes(bits, bits + width * height * 4);
        lastX = x;
        lastY = y;
    }
    int presents = 0;
    Bytes last;
    int lastX = 0, lastY = 0;
};

TEST(FilmReceiver, ProgressBarStopsForTheWholeProcessOnceComplete)
{
    LoaderProgress& progress = ProcessLoaderProgress();
    // The state is process-wide: whatever happens here, later tests find it as it was.
    struct Restore
    {
        LoaderProgress& progress;
        std::int32_t visible, phase;
        ~Restore()
        {
            progress.progressVisible = visible;
            progress.phase = phase;
        }
    } restore{progress, progress.progressVisible.load(), progress.phase.load()};
    progress.progressVisible = 1;
    progress.phase = 0;
    const Bytes stream = ThreePhotos().Stream();
    CountingPresenter first;
    {
        FeedRun run;
        const ItemHandOver handOver = run.playback.HandOver(&first);
        run.Feed(stream, 256, &handOver);
    }
    EXPECT_GT(first.presents, 2);
    EXPECT_EQ(progress.progressVisible.load(), 0);
    // The last drawing is the full bar: a white frame around blue, 60 x 8 at (2, 230).
    ASSERT_EQ(first.last.size(), 60u * 8 * 4);
    EXPECT_EQ(std::tie(first.lastX, first.lastY), std::make_tuple(2, 230));
    EXPECT_EQ(Bytes(first.last.begin(), first.last.begin() + 4), (Bytes{255, 255, 255, 0}));
    const std::size_t inside = (3 * 60 + 30) * 4;
    EXPECT_EQ(Bytes(first.last.begin() + inside, first.last.begin() + inside + 4), (Bytes{255, 0, 0, 0}));

    CountingPresenter second;
    FeedRun run;
    const ItemHandOver handOver = run.playback.HandOver(&second);
    run.Feed(stream, 256, &handOver);
    EXPECT_EQ(second.presents, 0) << "compatibility: a completed bar is never drawn again in this process";
}

TEST(FilmLoader, TellsTheEndTheRoomAndTheFailure)
{
    const Bytes three = ThreePhotos().Stream();
    const Bytes big = [] {
        Fixture f = ThreePhotos();
        f.preamble = Pattern(kMaxQueuedBytes + 100000, 4); // Fills the queue past its bound.
        return f.Stream();
    }();
    const std::size_t firstItemEnd = three.size() - 333 - 401 - WaveFile(Pattern(640, 5)).size();
    Film fatal;
    FilmItem odd = testing::PhotoItem("1_p.jpg");
    odd.sound.cstrName = "1_n.mp3";
    fatal.AddItem(odd);
    struct Row
    {
        const char* name;
        Bytes stream;
        bool ended; // An end-of-stream mark follows the bytes.
        std::vector<std::string> told;
    } rows[] = {
        {"whole", three, true, {"complete"}},
        {"whole, with room made", big, true, {"room", "complete"}},
        {"cut after item 1",
         Bytes(three.begin(), three.begin() + firstItemEnd),
         true,
         {"failed: the film ends after 1 of 3 items"}},
        {"fatal piece",
         RawStream(fatal, {1, 2}),
         false,
         {"failed: item 1's narration 1_n_1.mp3 is neither a .ca nor a .wav file"}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        testing::MessageCapture messages;
        MemoryRun run;
        OpeningFlags flags;
        flags.openerRunning = 1;
        ChunkQueue queue;
        {
            std::lock_guard guard(queue.Lock());
            for (std::size_t at = 0; at < row.stream.size(); at += 65536)
                queue.Push(
                    std::span(row.stream).subspan(at, std::min<std::size_t>(65536, row.stream.size() - at)));
            if (row.ended)
                queue.PushEndOfStream();
        }
        std::vector<std::string> told; // Written by the loader only, read after it returned.
        LoaderEvents events;
        events.room = [&] { told.push_back("room"); };
        events.complete = [&] { told.push_back("complete"); };
        events.failed = [&](const std::string& why) { told.push_back("failed: " + why); };
        RunFilmLoader(*run.receiver, queue, run.film, nullptr, flags, &events); // Returns by itself.
        if (!row.ended) {
            std::lock_guard guard(queue.Lock());
            EXPECT_NE(queue.Peek(), nullptr) << "the failed chunk is not popped";
        }
        // The narration's new name lies in the run's own folder: keep only the name.
        for (std::string& line : told)
            if (const std::size_t folder = line.find("/memory/"); folder != std::string::npos)
                line.erase(folder, line.find("1_n_1") - folder);
        EXPECT_EQ(told, row.told);
    }
}

TEST(FilmReceiver, StopEndsTheWaitForPlayback)
{
    // Nobody takes the item: only Stop ends the wait for the step.
    FeedRun waiting;
    platform::AutoResetEvent itemAvailable, stepDone;
    const ItemHandOver unanswered{&itemAvailable, &stepDone};
    Fixture f;
    f.AddPhoto(Pattern(10, 1));
    const Bytes stream = f.Stream();
    std::jthread feeder([&] { waiting.Feed(stream, stream.size(), &unanswered); });
    ASSERT_TRUE(itemAvailable.Wait(10000));
    waiting.stop = 1;
    feeder.join();
    EXPECT_EQ(waiting.results, std::vector<std::int64_t>{static_cast<std::int64_t>(stream.size())});
}

} // namespace
} // namespace lumenar::film
