// The sequencer against real threads on the headless window host: films are built in memory, their
// photos registered as in-memory pictures, and a stand-in opener hands the items over one at a time.
#include "playback/PlayerWindow.h"

#include "codec/Photo.h"
#include "platform/Clock.h"
#include "platform/InMemoryPictures.h"
#include "records/CaptionFont.h"
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

std::uint32_t Now()
{
    return static_cast<std::uint32_t>(platform::SystemClock().NowMs());
}

/// A uniform photo whose luma level depends on `dc`, registered in memory; returns its film reference.
film::FilmFile UniformPhoto(int dc, int width = 64, int height = 48)
{
    testing::ZigzagBlock block(64, 0);
    block[0] = dc;
    platform::InMemoryPictureName name =
        platform::RegisterInMemoryPicture(testing::MakeUniformPhoto(width, height, block));
    return {std::to_string(name.length), std::to_string(name.address)};
}

film::FilmFile Garbage()
{
    platform::InMemoryPictureName name =
        platform::RegisterInMemoryPicture(std::vector<std::uint8_t>(100, 0x42));
    return {std::to_string(name.length), std::to_string(name.address)};
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

/// Plays a film: the test thread is the window thread; the opener runs on a thread of its own.
class Harness
{
public:
    explicit Harness(std::int32_t mode, bool headless = true)
        : host_(platform::WindowHost::Create(800, 600, "test", headless))
    {
        film_.SetAdvanceMode(mode);
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
                while (openerRunning_ && !state.stepDone.Wait(0))
                    std::this_thread::sleep_for(100ms);
            }
        });
    }

    /// Pumps the window until `done` or `limitMs`; true when done.
    bool PumpUntil(const std::function<bool()>& done, std::uint32_t limitMs)
    {
        std::uint32_t start = Now();
        while (!done()) {
            if (Now() - start > limitMs)
                return false;
            host_->Pump(10);
        }
        return true;
    }
    void PumpFor(std::uint32_t ms)
    {
        PumpUntil([] { return false; }, ms);
    }

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
    std::uint32_t start = Now();
    h.Play(items);
    ASSERT_TRUE(h.PumpUntil([&] { return h.player_.StepsDone() >= 1; }, 5000));
    EXPECT_GE(Now() - start, 450u) << "the first step waits about 500 ms";
    ASSERT_TRUE(h.PumpUntil([&] { return h.stops_ > 0; }, 15000));
    EXPECT_EQ(h.player_.StepsDone(), 3);
    EXPECT_EQ(Filter(h.Seen(), colours), colours);
    // Three items of 1 s with 0.3 s transitions after a 0.5 s start: the film cannot end much sooner.
    EXPECT_GE(Now() - start, 500u + 2 * 1300u);
}

TEST(PlayerWindow, ManualModeMovesOnlyOnPageDownAndPageUp)
{
    std::vector<film::FilmFile> photos = {UniformPhoto(-600), UniformPhoto(0), UniformPhoto(600)};
    std::vector<film::FilmItem> items;
    for (const film::FilmFile& photo : photos)
        items.push_back(PhotoItem(photo, 1, 0));
    Harness h(film::kAdvanceManual);
    h.Play(items);
    ASSERT_TRUE(h.PumpUntil([&] { return h.player_.StepsDone() >= 1; }, 3000))
        << "manual mode shows item 1 at once";
    h.host_->InjectKey(platform::kKeyPageUp);
    h.PumpFor(1500);
    EXPECT_EQ(h.player_.StepsDone(), 1) << "nothing advances without a key, and item 1 has nothing before it";
    h.host_->InjectKey(platform::kKeyPageDown);
    ASSERT_TRUE(h.PumpUntil([&] { return h.player_.StepsDone() >= 2; }, 3000));
    ASSERT_EQ(h.player_.CurrentNumber(), 2);
    EXPECT_EQ(h.CentreNow(), ColourOf(photos[1]));
    h.PumpFor(300); // Item 3 is decoded ahead meanwhile.
    h.host_->InjectKey(platform::kKeyPageUp);
    h.PumpFor(50);
    h.player_.State().itemAvailable.Set(); // The item's data is there again for the loader.
    ASSERT_TRUE(h.PumpUntil([&] { return h.player_.StepsDone() >= 3; }, 3000));
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
    caption.style = film::Film().CaptionStyle();
    withCaption.texts.push_back(caption);
    Harness h(film::kAdvanceManual);
    h.Play({PhotoItem(first, 1, 0), withCaption});
    ASSERT_TRUE(h.PumpUntil([&] { return h.player_.StepsDone() >= 1; }, 3000));
    std::uint32_t before = h.CentreNow();
    h.host_->InjectKey(platform::kKeyPageDown);
    h.PumpFor(400);
    h.host_->InjectKey(platform::kKeyEscape);
    std::uint32_t pressed = Now();
    ASSERT_TRUE(h.PumpUntil([&] { return h.player_.StepsDone() >= 2; }, 3000));
    EXPECT_LT(Now() - pressed, 1500u) << "the rest of the 3 s transition and the captions were skipped";
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
    h.Play({PhotoItem(good, 1, 0), PhotoItem(Garbage(), 1, 0)});
    ASSERT_TRUE(h.PumpUntil([&] { return h.player_.StepsDone() >= 1; }, 3000));
    h.host_->InjectKey(platform::kKeyPageDown);
    ASSERT_TRUE(h.PumpUntil([&] { return h.player_.StepsDone() >= 2; }, 3000));
    h.host_->Invalidate(h.player_.Window());
    h.PumpFor(100);
    EXPECT_EQ(h.CentreNow(), ColourOf(good));
}

TEST(PlayerWindow, StopWhileWaitingForAPhotoReturnsQuickly)
{
    Harness h(film::kAdvanceManual);
    h.Play({PhotoItem(UniformPhoto(0), 1, 0)}, /*held=*/1);
    h.PumpFor(300); // The step is now waiting for a photo that never comes.
    std::uint32_t start = Now();
    h.player_.Stop();
    EXPECT_LT(Now() - start, 400u);
}

TEST(PlayerWindow, StopCutsALongTransitionOrACaptionAnimationShortWithinAFrame)
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
    } rows[] = {{"transition", endless}, {"captions", captioned}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        Harness h(film::kAdvanceManual);
        h.Play({PhotoItem(UniformPhoto(-600), 1, 0), row.second});
        ASSERT_TRUE(h.PumpUntil([&] { return h.player_.StepsDone() >= 1; }, 3000));
        h.host_->InjectKey(platform::kKeyPageDown);
        const int before = h.frames_;
        ASSERT_TRUE(h.PumpUntil([&] { return h.frames_ >= before + 3; }, 3000)) << "the animation runs";
        const int atStop = h.frames_;
        h.player_.Stop();
        EXPECT_LE(h.frames_ - atStop, 1) << "at most the frame being drawn ends after the stop";
    }
}

TEST(PlayerWindow, AFilmWhoseItemsWereAllRemovedPostsStopButAnUnloadedOneIsWaitedFor)
{
    {
        // Nothing loaded yet (a stream whose film file is still on its way): no Stop.
        Harness h(film::kAdvanceAutomatic);
        h.Play({});
        h.PumpFor(1500);
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
        ASSERT_TRUE(h.PumpUntil([&] { return h.stops_ > 0; }, 3000));
        EXPECT_EQ(h.player_.StepsDone(), 0);
    }
}

TEST(PlayerWindow, DoubleClickPostsEscapeAndTheButtonFollowsThePointer)
{
    Harness h(film::kAdvanceManual);
    h.Play({PhotoItem(UniformPhoto(0), 1, 0)});
    h.host_->InjectMouseMove(400, 300);
    h.PumpFor(50);
    EXPECT_TRUE(h.host_->IsShown(h.player_.Button()));
    h.host_->InjectMouseMove(900, 900);
    h.PumpFor(50);
    EXPECT_FALSE(h.host_->IsShown(h.player_.Button()));
    h.host_->InjectDoubleClick(400, 300);
    ASSERT_TRUE(h.PumpUntil([&] { return h.escapes_ > 0; }, 1000));
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
    ASSERT_TRUE(h.PumpUntil([&] { return h.stops_ > 0; }, 10000));
    EXPECT_EQ(h.player_.StepsDone(), 2);
    EXPECT_EQ(h.CentreNow(), ColourOf(photos[1]));
}

} // namespace
} // namespace lumenar::playback
