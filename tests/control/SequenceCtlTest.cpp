// The control against real threads on the headless window host: films are served from a file
// address or from the loopback HTTP server, and the test thread is the control's thread.
#include "control/SequenceCtl.h"

#include "control/ControlMenu.h"
#include "film/FilmStreamWriter.h"
#include "tests/support/JpegWriter.h"
#include "platform/AudioOut.h"
#include "platform/Clock.h"
#include "playback/PlayerWindow.h"
#include "tests/support/FilmServer.h"
#include "tests/support/FilmStream.h"
#include "tests/support/FilmWriter.h"
#include "tests/support/MessageCapture.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <algorithm>
#include <functional>
#include <thread>

namespace lumenar::control {
namespace {

using Bytes = std::vector<std::uint8_t>;
using testing::FilmServer;
using testing::FilmServerOptions;

std::uint64_t Now()
{
    return platform::SystemClock().NowMs();
}

/// Threads of this process, to see that none is left behind. Take the first count after one control
/// has come and gone: runtimes (the thread sanitizer's among them) start threads of their own on the
/// first occasion and keep them.
int ThreadCount()
{
    int count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/task"))
        ++count;
    return count;
}

class SequenceCtlTest : public ::testing::Test
{
protected:
    SequenceCtlTest() : host_(platform::WindowHost::Create(800, 600, "control test", true)) {}
    ~SequenceCtlTest() override
    {
        control_.reset();
        for (const std::string& path : files_)
            std::remove(path.c_str());
    }

    /// Writes `bytes` to a temporary file removed with the test; returns its path.
    std::string TempFile(const Bytes& bytes, const std::string& stem)
    {
        files_.push_back(testing::WriteTempFile(bytes, stem));
        return files_.back();
    }
    /// Serves a stream from a temporary file; returns its path.
    std::string FilmFile(int items, std::int32_t mode, std::size_t padding = 0)
    {
        return TempFile(testing::MakeFilmStream(items, mode, padding), "film.flm");
    }

    int Create(const std::string& file, bool userMode = true)
    {
        control_ = std::make_unique<SequenceCtl>();
        control_->SetFile(file);
        ControlSite site;
        site.host = host_.get();
        site.userMode = userMode;
        return control_->Create(site);
    }

    bool PumpUntil(const std::function<bool()>& done, std::uint64_t limitMs = 20000)
    {
        const std::uint64_t start = Now();
        while (!done()) {
            if (Now() - start > limitMs)
                return false;
            host_->Pump(10);
        }
        return true;
    }

    /// Whether item 1 is on screen; the player's number is the one value another thread may read
    /// while the film loader runs.
    bool FirstItemShown()
    {
        playback::PlayerWindow* player = control_->Player();
        return player != nullptr && player->CurrentNumber() >= 1;
    }

    /// The session film's item count, read under the film's lock.
    std::int32_t ItemCount() { return control_->Player()->State().ItemCount(); }

    void Command(std::uint32_t command)
    {
        host_->Post(control_->Window(), platform::kMsgCommand, command, 0);
        host_->Pump(0);
    }

    std::unique_ptr<platform::WindowHost> host_;
    testing::MessageCapture messages_;
    std::unique_ptr<SequenceCtl> control_;
    std::vector<std::string> files_;
};

TEST_F(SequenceCtlTest, PropertiesAndTheirNotifications)
{
    SequenceCtl control;
    std::vector<std::int32_t> seen;
    const std::uint32_t cookie = control.Advise([&](std::int32_t dispid) { seen.push_back(dispid); });
    control.SetBackColor(0x123456);
    control.SetFillColor(0x654321);
    control.SetFile("x.flm"); // Only stored.
    EXPECT_EQ(seen, (std::vector<std::int32_t>{kDispidBackColor, kDispidFillColor}));
    EXPECT_TRUE(control.Unadvise(cookie));
    EXPECT_FALSE(control.Unadvise(cookie));
    control.SetBackColor(1);
    EXPECT_EQ(seen.size(), 2u);
}

TEST_F(SequenceCtlTest, StorageRoundTripAndHostileFiles)
{
    SequenceCtl control;
    control.SetProperties({100, 200, 0xFF, 0xFF00, "http://host/f.flm"});
    const std::string path = testing::TempPath("control.stg");
    files_.push_back(path);
    ASSERT_TRUE(control.SaveStorage(path).ok());
    SequenceCtl other;
    auto loaded = other.LoadStorage(path);
    ASSERT_TRUE(loaded.ok()) << loaded.error().message;
    EXPECT_EQ(other.Properties(), control.Properties());

    const std::string garbage = TempFile(std::vector<std::uint8_t>(1000, 0xD0), "garbage.stg");
    const std::string noStream = testing::TempPath("nostream.stg");
    files_.push_back(noStream);
    testing::WriteCompoundFileTo(noStream, {testing::Node::Stream("Other", {1, 2, 3})});
    const std::string badStream = testing::TempPath("badstream.stg");
    files_.push_back(badStream);
    testing::WriteCompoundFileTo(badStream, {testing::Node::Stream("Contents", {'L', 'M', 'S', 'Q', 1})});
    for (const std::string& bad : {garbage, noStream, badStream, path + ".missing"}) {
        SCOPED_TRACE(bad);
        SequenceCtl target;
        target.SetFile("kept");
        EXPECT_FALSE(target.LoadStorage(bad).ok());
        EXPECT_EQ(target.File(), "kept");
    }
}

TEST_F(SequenceCtlTest, WithoutMmxCreationFailsWithTheMessageAndNothingElse)
{
    SequenceCtl control;
    ControlSite site;
    site.host = host_.get();
    site.hasMmx = [] { return false; };
    EXPECT_EQ(control.Create(site), -1);
    EXPECT_EQ(control.Window(), 0u);
    EXPECT_EQ(control.State(), ControlState::NoWindow);
    EXPECT_EQ(control.Player(), nullptr);
    const auto shown = messages_.All();
    ASSERT_EQ(shown.size(), 1u);
    EXPECT_EQ(std::tie(shown[0].style, shown[0].title, shown[0].text),
              std::make_tuple(unsigned(platform::kBoxOk), std::string(), std::string("MMX required")));
}

TEST_F(SequenceCtlTest, PlaysAFileAddressThroughToItsEndAndStopsItself)
{
    ASSERT_EQ(Create(""), 0);
    // The extent is the window in hundredths of a millimetre: 800 x 600 pixels at 96 per inch.
    EXPECT_EQ(control_->Properties().cx, 21166u);
    EXPECT_EQ(control_->Properties().cy, 15875u);
    control_.reset();
    const int threadsBefore = ThreadCount();
    ASSERT_EQ(Create(FilmFile(3, film::kAdvanceAutomatic)), 0);
    std::vector<std::int32_t> dispids;
    control_->Advise([&](std::int32_t dispid) { dispids.push_back(dispid); });
    EXPECT_EQ(control_->State(), ControlState::Created);
    EXPECT_EQ(control_->DownloadsStarted(), 0);
    host_->Pump(0);
    EXPECT_EQ(control_->State(), ControlState::Playing);
    std::vector<std::int32_t> shown;
    ASSERT_TRUE(PumpUntil([&] {
        const std::int32_t number = control_->Player()->CurrentNumber();
        if (shown.empty() || shown.back() != number)
            shown.push_back(number);
        return control_->State() == ControlState::Stopped;
    })) << "the film never reached its end";
    shown.erase(std::remove(shown.begin(), shown.end(), 0), shown.end());
    EXPECT_EQ(shown, (std::vector<std::int32_t>{1, 2, 3}));
    EXPECT_EQ(dispids, (std::vector<std::int32_t>{kDispidReadyState}));
    const std::string folder = control_->Receiver()->TempFolder();
    ASSERT_FALSE(folder.empty());
    EXPECT_TRUE(std::filesystem::exists(folder));
    control_->Destroy();
    EXPECT_FALSE(std::filesystem::exists(folder));
    EXPECT_EQ(control_->HandlerLog(),
              (std::vector<std::string>{"OnCreate", "OnStartFilm", "OnStop", "OnDestroy"}));
    control_.reset();
    EXPECT_EQ(ThreadCount(), threadsBefore);
}

TEST_F(SequenceCtlTest, StateTableOverStopPlayAndDestroy)
{
    const std::string film = FilmFile(2, film::kAdvanceManual);
    ASSERT_EQ(Create(film), 0);
    struct Step
    {
        const char* name;
        std::function<void()> act;
        ControlState state;
        int downloads;
    } steps[] = {
        {"start", [&] { host_->Pump(0); }, ControlState::Playing, 1},
        {"play while playing changes nothing", [&] { Command(kCommandPlay); }, ControlState::Playing, 1},
        {"stop", [&] { Command(kCommandStop); }, ControlState::Stopped, 1},
        {"second stop changes nothing", [&] { Command(kCommandStop); }, ControlState::Stopped, 1},
        {"play again downloads again",
         [&] {
             Command(kCommandPlay);
             host_->Pump(0);
         },
         ControlState::Playing, 2},
        {"escape from the player is not the control's",
         [&] {
             host_->Post(control_->Window(), platform::kMsgKeyDown, platform::kKeyEscape);
             host_->Pump(0);
         },
         ControlState::Playing, 2},
        {"a command with a notification code is not Stop", [&] { Command(kCommandStop | 0x10000); },
         ControlState::Playing, 2},
    };
    for (const Step& step : steps) {
        SCOPED_TRACE(step.name);
        const film::Film* before = control_->SessionFilm();
        step.act();
        EXPECT_EQ(control_->State(), step.state);
        EXPECT_EQ(control_->DownloadsStarted(), step.downloads);
        if (std::string(step.name).find("nothing") != std::string::npos) {
            EXPECT_EQ(control_->SessionFilm(), before);
        }
        ASSERT_TRUE(PumpUntil([&] { return !control_->Downloading(); }));
    }
    // The new session read the whole film again from its first byte.
    ASSERT_TRUE(PumpUntil([&] { return FirstItemShown(); }));
    EXPECT_EQ(ItemCount(), 2);
    EXPECT_EQ(control_->BytesQueued(), 2 * std::filesystem::file_size(film));
    control_->Destroy();
    EXPECT_EQ(control_->State(), ControlState::NoWindow);
}

TEST_F(SequenceCtlTest, StopAbortsTheDownloadAndPlayFetchesFromTheFirstByte)
{
    const std::string film = FilmFile(4, film::kAdvanceManual, 200000);
    FilmServer server(film, {.throttle = 200000});
    ASSERT_FALSE(server.Address().empty()) << "the loopback server did not start (python3?)";
    ASSERT_EQ(Create(server.Address()), 0);
    ASSERT_TRUE(PumpUntil([&] { return FirstItemShown(); }));
    EXPECT_TRUE(control_->Downloading()) << "the film arrived too fast to stop it on the way";
    Command(kCommandStop);
    const std::uint64_t queued = control_->BytesQueued();
    ASSERT_TRUE(PumpUntil([&] { return !control_->Downloading(); }));
    EXPECT_EQ(control_->BytesQueued(), queued) << "bytes after Stop must not reach the queue";
    Command(kCommandPlay);
    ASSERT_TRUE(PumpUntil([&] { return FirstItemShown(); }));
    // The second session starts over: its receiver found the film marker in bytes it received itself.
    EXPECT_EQ(ItemCount(), 4);
    Command(kCommandStop);
    const std::int64_t whole = std::int64_t(std::filesystem::file_size(film));
    EXPECT_EQ(control_->Receiver()->FilmCount(), 4);
    EXPECT_LT(control_->Receiver()->Received(), whole);
    control_->Destroy();
    std::vector<std::string> log = server.Log();
    ASSERT_GE(log.size(), 3u);
    EXPECT_EQ(log[0], "start /film");
    EXPECT_EQ(std::count(log.begin(), log.end(), "start /film"), 2);
    for (const std::string& line : log)
        if (line.rfind("sent ", 0) == 0) {
            EXPECT_LT(std::stoll(line.substr(5)), whole) << "a stopped transfer ran to its end";
        }
}

TEST_F(SequenceCtlTest, DesignModeDownloadsNothingButReleasesTheLoader)
{
    ASSERT_EQ(Create(FilmFile(1, film::kAdvanceManual), false), 0);
    host_->Pump(0);
    EXPECT_EQ(control_->State(), ControlState::Playing);
    EXPECT_EQ(control_->DownloadsStarted(), 0);
    EXPECT_FALSE(control_->Downloading());
    Command(kCommandStop); // The idle loader must end.
    EXPECT_EQ(control_->State(), ControlState::Stopped);
}

TEST_F(SequenceCtlTest, FileSetDuringPlaybackWaitsForTheNextPlay)
{
    const std::string first = FilmFile(3, film::kAdvanceManual);
    const std::string second = FilmFile(1, film::kAdvanceManual);
    ASSERT_EQ(Create(first), 0);
    ASSERT_TRUE(PumpUntil([&] { return FirstItemShown(); }));
    control_->SetFile(second);
    ASSERT_TRUE(PumpUntil([&] { return !control_->Downloading(); }));
    EXPECT_EQ(ItemCount(), 3);
    EXPECT_EQ(control_->BytesQueued(), std::filesystem::file_size(first));
    Command(kCommandStop);
    Command(kCommandPlay);
    ASSERT_TRUE(PumpUntil([&] { return FirstItemShown(); }));
    EXPECT_EQ(ItemCount(), 1);
    ASSERT_TRUE(PumpUntil([&] { return !control_->Downloading(); }));
    EXPECT_EQ(control_->BytesQueued(),
              std::filesystem::file_size(first) + std::filesystem::file_size(second));
}

TEST_F(SequenceCtlTest, DestroyingMidDownloadLeavesNoThreadAndNoFile)
{
    const std::string film = FilmFile(3, film::kAdvanceManual, 40000);
    struct Row
    {
        const char* name;
        FilmServerOptions options;
    } rows[] = {
        {"stalled server", {.stallAfter = 30000}},
        {"throttled server", {.throttle = 100000}},
    };
    ASSERT_EQ(Create(""), 0);
    control_.reset();
    const int threadsBefore = ThreadCount();
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        FilmServer server(film, row.options);
        ASSERT_FALSE(server.Address().empty());
        ASSERT_EQ(Create(server.Address()), 0);
        ASSERT_TRUE(PumpUntil([&] { return control_->BytesQueued() >= 20000; }));
        const std::string folder = control_->Receiver()->TempFolder();
        EXPECT_TRUE(control_->Downloading());
        control_.reset();
        EXPECT_FALSE(std::filesystem::exists(folder));
        EXPECT_EQ(ThreadCount(), threadsBefore);
    }
}

/// Open descriptors of this process.
int DescriptorCount()
{
    int count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
        ++count;
    return count;
}

Bytes StreamOfVersion(std::uint32_t version)
{
    return testing::StreamOfFilmFile(testing::FilmFileOfVersion(version));
}

TEST_F(SequenceCtlTest, FilmsThatCannotBeCompletedAreToldOnceWithTheReason)
{
    const std::string good = FilmFile(2, film::kAdvanceManual);
    const Bytes goodBytes = testing::MakeFilmStream(2, film::kAdvanceManual);
    const std::string cut = TempFile(Bytes(goodBytes.begin(), goodBytes.begin() + 300), "cut.flm");
    const std::string newer = TempFile(StreamOfVersion(201), "newer.flm");
    FilmServer missing(good, {.status = 404});
    ASSERT_FALSE(missing.Address().empty());
    // One row per way a film fails: a failed transfer, an address refused at the start, a stream cut
    // short and a film file refused. The download's and the receiver's tests list their reasons.
    struct Row
    {
        const char* name;
        std::string file;
        std::string reason; // Failure() starts with this; empty: the film plays whole.
    } rows[] = {
        {"404", missing.Address(), "404 Not Found"},
        {"other scheme", "ftp://127.0.0.1/film", "not an http, https or file address"},
        {"ends inside the film file", cut, "the stream ends inside the film file"},
        {"newer version", newer, "the film file has version 201; this player reads version 200"},
        {"whole", good, ""},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        ASSERT_EQ(Create(row.file), 0);
        std::vector<std::int32_t> told;
        control_->Advise([&](std::int32_t dispid) { told.push_back(dispid); });
        if (row.reason.empty()) {
            // The ready state and the items, both read on this thread (the receiver is the loader's).
            ASSERT_TRUE(PumpUntil([&] {
                return std::find(told.begin(), told.end(), kDispidReadyState) != told.end() &&
                       ItemCount() >= 1;
            }));
            host_->Pump(50);
            EXPECT_EQ(control_->Failure(), "");
            EXPECT_TRUE(std::find(told.begin(), told.end(), kDispidFilmFailed) == told.end());
            continue;
        }
        ASSERT_TRUE(PumpUntil([&] { return !control_->Failure().empty(); }, 10000));
        EXPECT_EQ(control_->Failure().substr(0, row.reason.size()), row.reason);
        EXPECT_EQ(std::count(told.begin(), told.end(), kDispidFilmFailed), 1);
        // The failure is told first; the transfer ends when its thread next looks.
        EXPECT_TRUE(PumpUntil([&] { return !control_->Downloading(); }))
            << "the transfer of a failed film ends";
    }
}

TEST_F(SequenceCtlTest, FilmFilesHeldForTheirVersionAreReleasedWithTheControl)
{
    const std::string older = TempFile(StreamOfVersion(199), "older.flm");
    ASSERT_EQ(Create(older), 0);
    ASSERT_TRUE(PumpUntil([&] { return !control_->Failure().empty(); }));
    control_.reset();
    const int before = DescriptorCount();
    for (int film = 1; film <= 5; ++film) {
        SCOPED_TRACE(film);
        ASSERT_EQ(Create(older), 0);
        ASSERT_TRUE(PumpUntil([&] { return !control_->Failure().empty(); }));
        // While the control lives the file stays held; Play and Stop do not let it go.
        Command(kCommandStop);
        Command(kCommandPlay);
        ASSERT_TRUE(PumpUntil([&] { return !control_->Failure().empty(); }));
        EXPECT_GT(DescriptorCount(), before);
        control_.reset();
        EXPECT_EQ(DescriptorCount(), before);
    }
}

TEST_F(SequenceCtlTest, ContextMenuGreysTheRightEntryAndSendsTheChoice)
{
    ASSERT_EQ(Create(FilmFile(1, film::kAdvanceManual)), 0);
    host_->Pump(0);
    const auto clickStop = [&] {
        auto r = host_->PopupMenuEntryRect(1);
        host_->InjectButtonUp((r.left + r.right) / 2, (r.top + r.bottom) / 2);
    };
    struct Row
    {
        const char* name;
        std::function<void()> choose; // With the menu open.
        bool playGrayed;              // Before the choice.
        ControlState after;
    } rows[] = {
        {"click on Stop", clickStop, true, ControlState::Stopped},
        {"click on the greyed Stop does nothing", clickStop, false, ControlState::Stopped},
        {"keys choose Play",
         [&] {
             host_->InjectKey(platform::kKeyDown);
             host_->InjectKey(platform::kKeyReturn);
         },
         false, ControlState::Playing},
        {"escape closes without a command", [&] { host_->InjectKey(platform::kKeyEscape); }, true,
         ControlState::Playing},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        host_->InjectRightButtonUp(300, 200);
        host_->Pump(0);
        ASSERT_TRUE(host_->PopupMenuOpen());
        const auto entries = host_->PopupMenuEntries();
        ASSERT_EQ(entries.size(), 2u);
        EXPECT_EQ(entries[0].textUtf8, "Play");
        EXPECT_EQ(entries[0].grayed, row.playGrayed);
        EXPECT_EQ(entries[1].textUtf8, "Stop");
        EXPECT_EQ(entries[1].grayed, !row.playGrayed);
        const auto rect = host_->PopupMenuRect();
        EXPECT_TRUE(rect.Contains(300, rect.top + 1) || (rect.left + rect.right) / 2 == 300);
        // The menu is drawn over the picture.
        const auto pixels = host_->BackBuffer();
        const std::uint8_t* face = pixels.data() + (std::size_t(rect.top + 2) * 800 + rect.right - 3) * 4;
        EXPECT_EQ(face[0] | face[1] << 8 | face[2] << 16, 0xF0F0F0);
        row.choose();
        host_->Pump(0);
        PumpUntil([&] { return control_->State() == row.after; }, 2000);
        EXPECT_FALSE(host_->PopupMenuOpen());
        EXPECT_EQ(control_->State(), row.after);
    }
}

// Two controls, each on a thread of its own as two hosts would make them, play a film that uses the
// state players of one process share (narration decoding, tile dissolves, caption states, the photo
// decoder, fonts) at the same time. Under ThreadSanitizer this is the check that none of it races; it
// also sees the narration reach the sound device each host gave.
TEST(TwoControls, PlayTwoFilmsAtOnceInOneProcess)
{
    testing::MessageCapture messages;
    const std::string file = testing::WriteTempFile(testing::MakeRichFilmStream(3), "rich.flm");
    struct Outcome
    {
        std::vector<std::int32_t> shown;
        bool ended = false;
        std::size_t narration = 0;
    } outcomes[2];
    auto play = [&file](Outcome& out) {
        auto host = platform::WindowHost::Create(800, 600, "two controls", true);
        platform::NullSoundDevice device(platform::SystemClock());
        SequenceCtl control;
        control.SetFile(file);
        ControlSite site;
        site.host = host.get();
        site.sound = &device;
        if (control.Create(site) != 0)
            return;
        const std::uint64_t start = Now();
        while (control.State() != ControlState::Stopped && Now() - start < 60000) {
            host->Pump(10);
            const std::int32_t number = control.Player() ? control.Player()->CurrentNumber() : 0;
            if (number > 0 && (out.shown.empty() || out.shown.back() != number))
                out.shown.push_back(number);
        }
        out.ended = control.State() == ControlState::Stopped;
        out.narration = device.Played().size();
        control.Destroy();
    };
    std::thread first(play, std::ref(outcomes[0]));
    std::thread second(play, std::ref(outcomes[1]));
    first.join();
    second.join();
    std::remove(file.c_str());
    for (const Outcome& outcome : outcomes) {
        EXPECT_TRUE(outcome.ended);
        EXPECT_EQ(outcome.shown, (std::vector<std::int32_t>{1, 2, 3}));
        EXPECT_GT(outcome.narration, 0u) << "the narration reached each control's sound device";
    }
    for (const auto& shown : messages.All())
        ADD_FAILURE() << shown.title << ": " << shown.text;
}

TEST(SequenceCtlRealWindow, PlaysAndOffersItsMenuInAnSdlWindow)
{
    if (std::getenv("LUMENAR_EXPECT_DISPLAY") == nullptr)
        GTEST_SKIP() << "run through ctest's control.RealWindow under a display";
    auto host = platform::WindowHost::Create(800, 600, "control test", false);
    ASSERT_FALSE(host->IsHeadless()) << "no SDL window could be opened on DISPLAY";
    int perInchX = 0, perInchY = 0;
    host->PixelsPerInch(perInchX, perInchY);
    EXPECT_GT(perInchX, 0);
    EXPECT_GT(perInchY, 0);
    const std::string film =
        testing::WriteTempFile(testing::MakeFilmStream(1, film::kAdvanceManual), "film.flm");
    {
        SequenceCtl control;
        control.SetFile(film);
        ControlSite site;
        site.host = host.get();
        ASSERT_EQ(control.Create(site), 0);
        auto pumpUntil = [&](const std::function<bool()>& done) {
            const std::uint64_t start = Now();
            while (!done() && Now() - start < 10000)
                host->Pump(10);
            return done();
        };
        ASSERT_TRUE(pumpUntil([&] { return control.Player()->StepsDone() >= 1; }));
        host->InjectRightButtonUp(400, 300);
        ASSERT_TRUE(pumpUntil([&] { return host->PopupMenuOpen(); }));
        const auto entry = host->PopupMenuEntryRect(1);
        host->InjectButtonUp((entry.left + entry.right) / 2, (entry.top + entry.bottom) / 2);
        EXPECT_TRUE(pumpUntil([&] { return control.State() == ControlState::Stopped; }));
    }
    std::remove(film.c_str());
}

} // namespace
} // namespace lumenar::control
