// The sequencer against real threads on the headless window host: films are built in memory, their
// photos registered as in-memory pictures, and a stand-in opener hands the items over one at a time.
#include "playback/PlayerWindow.h"

#include "codec/Photo.h"
#include "platform/Clock.h"
#include "platform/Timer.h"
#include "records/CaptionFont.h"
#include "tests/support/FilmWriter.h"
#include "tests/support/JpegWriter.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>
#include <vector>

namespace lumenar::playback {
namespace {

using namespace std::chrono_literals;

/// A uniform photo whose luma level depends on `dc`, registered in memory; returns its film reference.
film::FilmFile UniformPhoto(int dc, int width = 64, int height = 48)
{
    return testing::InMemoryFile(testing::MakeUniformPhoto(width, height, testing::DcBlock(dc)));
}

/// The colour a uniform photo decodes to (blue, green, red packed).
std::uint32_t ColourOf(const film::FilmFile& file)
{
    codec::Photo photo;
    if (codec::DecodePhoto(photo, film::JoinFilmFile(file)) != 1 || photo.Bitmap() == nullptr)
        return 0xFFFFFFFF;
    auto pixels = photo.Bitmap()->Pixels();
    return pixels[0] | (pixels[1] << 8) | (pixels[2] << 16);
}

film::FilmItem PhotoItem(film::FilmFile photo, int seconds, int effectMs, int effect = 0)
{
    film::FilmItem item;
    item.kind = film::kFilmItemPhoto;
    item.photo = std::move(photo);
    item.mask = {"", "0"};
    item.displaySeconds = seconds;
    item.effectMs = effectMs;
    item.effect = effect;
    return item;
}

/// Plays a film: the test thread is the window thread; the opener runs on a thread of its own. Playback
/// runs on a manual clock that only moves while the playback thread is idle or waits on the clock, so
/// every other thread finishes what it does at one instant first: times read in a test are exact.
class Harness
{
public:
    explicit Harness(std::int32_t mode, bool headless = true)
        : host_(platform::WindowHost::Create(800, 600, "test", headless)), timers_(clock_)
    {
        film_.SetAdvanceMode(mode);
        player_.SetTiming(clock_, timers_);
        control_ = host_->CreateChild(0, {0, 0, 800, 600}, [this](const platform::Message& m) {
            if (m.code == platform::kMsgCommand && m.wParam == kCommandStop)
                ++stops_;
            if (m.code == platform::kMsgKeyDown && m.wParam == platform::kKeyEscape)
                ++escapes_;
        });
        host_->SetFrameSink([this](std::uint64_t, const std::vector<std::uint8_t>& pixels, int width, int) {
            ++frames_;
            const std::uint8_t* p = pixels.data() + (std::size_t(300) * width + 400) * 4;
            std::uint32_t colour = p[0] | (p[1] << 8) | (p[2] << 16);
            std::lock_guard guard(lock_);
            if (seen_.empty() || seen_.back() != colour)
                seen_.push_back(colour);
        });
    }
    ~Harness()
    {
        player_.Destroy();
        openerRunning_ = false;
        if (opener_.joinable())
            opener_.join();
    }

    /// Starts playback of `items`; the opener offers their data one by one; the last `held` never come.
    void Play(std::vector<film::FilmItem> items, int held = 0)
    {
        // The film file names every item before any item's data arrives.
        for (const film::FilmItem& item : items) {
            std::int32_t number = film_.AddItem(item);
            for (const film::FilmText& text : item.texts)
                film_.AddText(number, text);
        }
        std::size_t offered = items.size() - held;
        ASSERT_EQ(player_.Create(*host_, control_, &film_, 1, true), 1);
        opener_ = std::thread([this, offered] {
            PlaybackState& state = player_.State();
            for (std::size_t i = 0; i < offered && openerRunning_; ++i) {
                state.itemAvailable.Set();
                while (openerRunning_ && !state.stepDone.Wait(100)) {
                }
            }
        });
    }

    /// Pumps the window until the playback thread has nothing left to do at this instant. False when
    /// that takes more than ten seconds of real time (a step waiting for a photo that never comes).
    bool Settle()
    {
        const auto start = std::chrono::steady_clock::now();
        int parked = 0;
        for (;;) {
            host_->Pump(0);
            const auto wait = clock_.EarliestWait();
            // Posted messages may post more: the thread counts as settled when seen parked twice.
            if (player_.Idle() || (wait && *wait > clock_.NowMs())) {
                if (++parked == 3)
                    return true;
                continue;
            }
            parked = 0;
            if (std::chrono::steady_clock::now() - start > 10s)
                return false;
            std::this_thread::sleep_for(200us);
        }
    }

    /// Runs virtual time until `done` holds, or for at most `limitMs`; true when done.
    bool RunUntil(const std::function<bool()>& done, std::uint64_t limitMs)
    {
        const std::uint64_t end = clock_.NowMs() + limitMs;
        for (;;) {
            if (!Settle())
                return false;
            if (done())
                return true;
            if (clock_.NowMs() >= end)
                return false;
            std::uint64_t next = end;
            if (const auto wait = clock_.EarliestWait())
                next = std::min(next, *wait);
            if (const auto due = timers_.NextDue())
                next = std::min(next, *due);
            timers_.Advance(std::max<std::uint64_t>(next, clock_.NowMs() + 1) - clock_.NowMs());
        }
    }
    void RunFor(std::uint64_t ms)
    {
        RunUntil([] { return false; }, ms);
    }
    std::uint64_t Now() const { return clock_.NowMs(); }

    std::vector<std::uint32_t> Seen()
    {
        std::lock_guard guard(lock_);
        return seen_;
    }
    std::uint32_t CentreNow()
    {
        std::vector<std::uint8_t> pixels = host_->BackBuffer();
        const std::uint8_t* p = pixels.data() + (std::size_t(300) * 800 + 400) * 4;
        return p[0] | (p[1] << 8) | (p[2] << 16);
    }

    std::unique_ptr<platform::WindowHost> host_;
    platform::ManualClock clock_;
    platform::ManualTimers timers_;
    platform::WindowId control_ = 0;
    film::Film film_;
    PlayerWindow player_;
    std::thread opener_;
    std::atomic<bool> openerRunning_{true};
    std::atomic<int> stops_{0};
    std::atomic<int> escapes_{0};
    std::atomic<int> frames_{0};
    std::mutex lock_;
    std::vector<std::uint32_t> seen_;
};

/// The distinct colours in `seen` that belong to `wanted`, in order, without repeats.
std::vector<std::uint32_t> Filter(const std::vector<std::uint32_t>& seen,
                                  const std::vector<std::uint32_t>& wanted)
{
    std::vector<std::uint32_t> out;
    for (std::uint32_t c : seen)
        if (std::find(wanted.begin(), wanted.end(), c) != wanted.end() && (out.empty() || out.back() != c))
            out.push_back(c);
    return out;
}

TEST(PlayerWindow, AutomaticModeShowsEveryItemInOrderAndPostsStopAtTheEnd)
{
    std::vector<film::FilmFile> photos = {UniformPhoto(-600), UniformPhoto(0), UniformPhoto(600)};
    std::vector<std::uint32_t> colours;
    std::vector<film::FilmItem> items;
    for (const film::FilmFile& photo : photos) {
        colours.push_back(ColourOf(photo));
        items.push_back(PhotoItem(photo, 1, 300, 0));
    }
    ASSERT_NE(colours[0], colours[1]);
    ASSERT_NE(colours[1], colours[2]);
    Harness h(film::kAdvanceAutomatic);
    h.Play(items);
    ASSERT_TRUE(h.RunUntil([&] { return h.stops_ > 0; }, 15000));
    EXPECT_EQ(h.player_.StepsDone(), 3);
    EXPECT_EQ(Filter(h.Seen(), colours), colours);
    // The first step comes 500 ms after the start; each item then takes its second and its transition,
    // measured from the start of the step that brought it in; the step after the last posts Stop.
    EXPECT_EQ(h.player_.StepStartTimes(), (std::vector<std::uint32_t>{500, 1800, 3100, 4400}));
}

TEST(PlayerWindow, ManualModeMovesOnlyOnPageDownAndPageUp)
{
    std::vector<film::FilmFile> photos = {UniformPhoto(-600), UniformPhoto(0), UniformPhoto(600)};
    std::vector<film::FilmItem> items;
    for (const film::FilmFile& photo : photos)
        items.push_back(PhotoItem(photo, 1, 0));
    Harness h(film::kAdvanceManual);
    h.Play(items);
    ASSERT_TRUE(h.RunUntil([&] { return h.player_.StepsDone() >= 1; }, 100))
        << "manual mode shows item 1 at once (one frame for its empty caption pass)";
    h.host_->InjectKey(platform::kKeyPageUp);
    h.RunFor(5000);
    EXPECT_EQ(h.player_.StepsDone(), 1) << "nothing advances without a key, and item 1 has nothing before it";
    h.host_->InjectKey(platform::kKeyPageDown);
    ASSERT_TRUE(h.RunUntil([&] { return h.player_.StepsDone() >= 2; }, 100));
    ASSERT_EQ(h.player_.CurrentNumber(), 2);
    EXPECT_EQ(h.CentreNow(), ColourOf(photos[1]));
    // Page Up waits for the loader's answer on item 3, which it decodes ahead meanwhile.
    h.host_->InjectKey(platform::kKeyPageUp);
    h.host_->Pump(0);
    h.player_.State().itemAvailable.Set(); // The item's data is there again for the loader.
    ASSERT_TRUE(h.RunUntil([&] { return h.player_.StepsDone() >= 3; }, 100));
    EXPECT_EQ(h.player_.CurrentNumber(), 1);
    EXPECT_EQ(h.CentreNow(), ColourOf(photos[0]));
}

TEST(PlayerWindow, EscapeDuringATransitionKeepsTheOldPictureAndSkipsCaptions)
{
    film::FilmFile first = UniformPhoto(-600);
    film::FilmFile second = UniformPhoto(600);
    film::FilmItem withCaption = PhotoItem(second, 1, 3000, 0);
    film::FilmText caption;
    caption.effect = 4;
    caption.text = "Hi";
    caption.style = records::DefaultCaptionStyle();
    withCaption.texts.push_back(caption);
    Harness h(film::kAdvanceManual);
    h.Play({PhotoItem(first, 1, 0), withCaption});
    ASSERT_TRUE(h.RunUntil([&] { return h.player_.StepsDone() >= 1; }, 100));
    std::uint32_t before = h.CentreNow();
    h.host_->InjectKey(platform::kKeyPageDown);
    h.RunFor(400);
    h.host_->InjectKey(platform::kKeyEscape);
    const std::uint64_t pressed = h.Now();
    ASSERT_TRUE(h.RunUntil([&] { return h.player_.StepsDone() >= 2; }, 5000));
    EXPECT_LE(h.Now() - pressed, 55u) << "the rest of the 3 s transition and the captions were skipped";
    EXPECT_EQ(h.player_.CurrentNumber(), 2);
    EXPECT_EQ(h.escapes_.load(), 1) << "Escape also reaches the control";
    auto display = h.player_.Compositor()->DisplayCopy();
    std::uint32_t centre = display[(299 * 800 + 400) * 4] | (display[(299 * 800 + 400) * 4 + 1] << 8) |
                           (display[(299 * 800 + 400) * 4 + 2] << 16);
    EXPECT_EQ(centre, before) << "the display picture is the old one";
}

TEST(PlayerWindow, AnUndecodablePhotoLeavesTheLastGoodPictureOnScreen)
{
    film::FilmFile good = UniformPhoto(300);
    Harness h(film::kAdvanceManual);
    h.Play({PhotoItem(good, 1, 0),
            PhotoItem(testing::InMemoryFile(std::vector<std::uint8_t>(100, 0x42)), 1, 0)});
    ASSERT_TRUE(h.RunUntil([&] { return h.player_.StepsDone() >= 1; }, 100));
    h.host_->InjectKey(platform::kKeyPageDown);
    ASSERT_TRUE(h.RunUntil([&] { return h.player_.StepsDone() >= 2; }, 100));
    h.host_->Invalidate(h.player_.Window());
    ASSERT_TRUE(h.Settle());
    EXPECT_EQ(h.CentreNow(), ColourOf(good));
}

TEST(PlayerWindow, StopEndsALongTransitionACaptionAnimationOrAWaitForAPhotoWithinAFrame)
{
    film::FilmText caption;
    caption.effect = 3;
    caption.text = "A caption that takes its time";
    caption.style = records::DefaultCaptionStyle();
    film::FilmItem endless = PhotoItem(UniformPhoto(600), 1, 0x7FFFFFFF); // A transition of 24 days.
    film::FilmItem captioned = PhotoItem(UniformPhoto(600), 1, 0);
    captioned.texts.push_back(caption);
    struct Row
    {
        const char* name;
        film::FilmItem second;
        int held; // Items whose data never comes: the step waits for their photo.
    } rows[] = {{"transition", endless, 0}, {"captions", captioned, 0}, {"photo never comes", captioned, 1}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        Harness h(film::kAdvanceManual);
        h.Play({PhotoItem(UniformPhoto(-600), 1, 0), row.second}, row.held);
        ASSERT_TRUE(h.RunUntil([&] { return h.player_.StepsDone() >= 1; }, 100));
        h.host_->InjectKey(platform::kKeyPageDown);
        if (row.held == 0)
            ASSERT_TRUE(h.RunUntil([&] { return h.frames_ >= 5; }, 1000)) << "the animation runs";
        else
            h.host_->Pump(0);
        const int atStop = h.frames_;
        h.player_.Stop(); // The clock stands still: only a stop that cuts the waits short returns.
        EXPECT_LE(h.frames_ - atStop, 1) << "at most the frame being drawn ends after the stop";
    }
}

TEST(PlayerWindow, AFilmWhoseItemsWereAllRemovedPostsStopButAnUnloadedOneIsWaitedFor)
{
    {
        // Nothing loaded yet (a stream whose film file is still on its way): no Stop.
        Harness h(film::kAdvanceAutomatic);
        h.Play({});
        h.RunFor(5000);
        EXPECT_EQ(h.stops_, 0);
        EXPECT_EQ(h.player_.StepsDone(), 0);
    }
    {
        // Every item removed while the film loaded (a film of clip items, say): Stop at the first step.
        Harness h(film::kAdvanceManual);
        h.film_.AddItem(PhotoItem(UniformPhoto(0), 1, 0));
        h.film_.RemoveItem(1);
        ASSERT_EQ(h.film_.ItemCount(), 0);
        h.Play({});
        ASSERT_TRUE(h.RunUntil([&] { return h.stops_ > 0; }, 100));
        EXPECT_EQ(h.player_.StepsDone(), 0);
    }
}

TEST(PlayerWindow, DoubleClickPostsEscapeAndTheButtonFollowsThePointer)
{
    Harness h(film::kAdvanceManual);
    h.Play({PhotoItem(UniformPhoto(0), 1, 0)});
    h.host_->InjectMouseMove(400, 300);
    ASSERT_TRUE(h.Settle());
    EXPECT_TRUE(h.host_->IsShown(h.player_.Button()));
    h.host_->InjectMouseMove(900, 900);
    ASSERT_TRUE(h.Settle());
    EXPECT_FALSE(h.host_->IsShown(h.player_.Button()));
    h.host_->InjectDoubleClick(400, 300);
    ASSERT_TRUE(h.Settle());
    EXPECT_EQ(h.escapes_.load(), 1);
}

// Run by ctest under xvfb-run with LUMENAR_EXPECT_DISPLAY set: the same film in a real SDL window.
TEST(PlayerWindow, PlaysInARealWindow)
{
    if (std::getenv("LUMENAR_EXPECT_DISPLAY") == nullptr)
        GTEST_SKIP() << "run through ctest's playback.RealWindow under a display";
    std::vector<film::FilmFile> photos = {UniformPhoto(-600), UniformPhoto(600)};
    Harness h(film::kAdvanceAutomatic, /*headless=*/false);
    ASSERT_FALSE(h.host_->IsHeadless()) << "no SDL window could be opened on DISPLAY";
    h.Play({PhotoItem(photos[0], 1, 200), PhotoItem(photos[1], 1, 200)});
    ASSERT_TRUE(h.RunUntil([&] { return h.stops_ > 0; }, 10000));
    EXPECT_EQ(h.player_.StepsDone(), 2);
    EXPECT_EQ(h.CentreNow(), ColourOf(photos[1]));
}

} // namespace
} // namespace lumenar::playback
