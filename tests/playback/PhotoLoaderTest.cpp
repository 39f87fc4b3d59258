#include "playback/PhotoLoader.h"

#include "codec/Photo.h"
#include "platform/CorruptPhotoPolicy.h"
#include "playback/ClipPlayer.h"
#include "playback/SlidePlayer.h"
#include "tests/support/FilmWriter.h"
#include "tests/support/JpegWriter.h"
#include "tests/support/MessageCapture.h"

#include <gtest/gtest.h>

#include <mutex>
#include <string>
#include <vector>

namespace lumenar::playback {
namespace {

using film::FilmFile;
using film::FilmItem;

constexpr std::uint32_t kLongWait = 5000; // Generous: the loader polls every 100 ms.

/// A registered in-memory photo of `width` x `height`, named as a film names it.
FilmFile GoodPhoto(int width, int height)
{
    return testing::InMemoryFile(testing::MakeUniformPhoto(width, height, testing::DcBlock(40)));
}

/// Registered bytes that are no photo.
FilmFile BadPhoto()
{
    return testing::InMemoryFile(std::vector<std::uint8_t>(64, 0x5A));
}

const FilmFile kNoMask{"", "0"};

FilmItem PhotoItem(FilmFile photo, FilmFile mask = kNoMask)
{
    FilmItem item;
    item.kind = film::kFilmItemPhoto;
    item.photo = std::move(photo);
    item.mask = std::move(mask);
    item.width = 16;
    item.height = 16;
    return item;
}

/// A film, the shared state and a running loader, as a player window holds them.
struct LoaderRig
{
    explicit LoaderRig(const std::vector<FilmItem>& items)
    {
        for (const FilmItem& item : items)
            film.AddItem(item);
        state.film = &film;
        loader.Start();
    }

    /// Signals one more item and waits for the loader's answer.
    bool Offer()
    {
        state.itemAvailable.Set();
        return state.photoReady.Wait(kLongWait);
    }

    /// What the sequencer does when it enters the next item.
    void Enter(std::int32_t number)
    {
        std::lock_guard guard(state.cacheLock);
        cache.Rotate(nullptr, &state.currentPhoto, &state.currentMask);
        state.currentNumber.store(number);
        state.nextReady.store(0);
    }

    film::Film film;
    PlaybackState state;
    PhotoCache cache{0};
    ClipPlayer clips;
    PhotoLoaderThread loader{state, cache, clips};
};

TEST(PhotoLoader, OnePhotoFilmDecodesOnceThenEndsAtTheNextSignal)
{
    LoaderRig rig({PhotoItem(GoodPhoto(16, 8))});
    ASSERT_TRUE(rig.Offer());
    EXPECT_EQ(rig.state.nextReady.load(), 1);
    EXPECT_EQ(rig.state.nextIndex.load(), 1);
    ASSERT_NE(rig.state.nextPhoto, nullptr);
    EXPECT_EQ(rig.state.nextPhoto->Height(), 8);

    // While the photo waits to be taken the signal stays unconsumed and nothing is loaded.
    rig.state.itemAvailable.Set();
    EXPECT_FALSE(rig.state.photoReady.Wait(250));
    rig.Enter(1);
    EXPECT_TRUE(rig.loader.WaitEnded(kLongWait)) << "the candidate lies past the end";
    EXPECT_FALSE(rig.state.photoReady.Wait(0)) << "leaving the film is no load attempt";
}

TEST(PhotoLoader, UndecodablePhotosLeaveTheLastGoodPictureAndSignalAnyway)
{
    LoaderRig rig({PhotoItem(GoodPhoto(16, 16)), PhotoItem(BadPhoto()), PhotoItem(BadPhoto())});
    ASSERT_TRUE(rig.Offer());
    rig.Enter(1);
    const codec::Photo* shown = rig.state.currentPhoto;
    ASSERT_NE(shown, nullptr);

    for (std::int32_t number : {2, 3}) {
        SCOPED_TRACE(number);
        ASSERT_TRUE(rig.Offer()) << "photoReady is signalled for a failed load too";
        EXPECT_EQ(rig.state.nextReady.load(), 0);
        EXPECT_EQ(rig.state.nextIndex.load(), 1);
        EXPECT_EQ(rig.state.nextPhoto, shown) << "the next pointer still names the picture on screen";
        // The sequencer shows nextPhoto again without rotating and moves on.
        rig.state.currentNumber.store(number);
    }
}

TEST(PhotoLoader, ReadinessByItemKindAndMask)
{
    FilmItem clip;
    clip.kind = film::kFilmItemClip;
    clip.clipFile = FilmFile{"C:\\clips", "missing.avi"};
    clip.clipPicture1 = GoodPhoto(32, 16);
    FilmItem clipWithoutStill = clip;
    clipWithoutStill.clipPicture1 = BadPhoto();
    FilmItem show;
    show.kind = film::kFilmItemPowerPoint;
    FilmItem unknown;
    unknown.kind = 1002;

    struct Row
    {
        const char* name;
        FilmItem item;
        bool expectReady;
        bool expectPhoto;
        int expectSlots; // Photos and masks alive in the cache.
    };
    // A missing mask is never an error.
    const Row rows[] = {
        {"photo, mask \"0\"", PhotoItem(GoodPhoto(16, 16)), true, true, 2},
        {"photo and mask", PhotoItem(GoodPhoto(16, 16), GoodPhoto(16, 16)), true, true, 3},
        {"photo, undecodable mask", PhotoItem(GoodPhoto(16, 16), BadPhoto()), true, true, 2},
        {"clip with its first-frame still", clip, true, true, 1},
        {"clip without a still", clipWithoutStill, false, false, 1},
        {"PowerPoint show", show, true, false, 1},
        {"unknown kind", unknown, false, true, 1},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        LoaderRig rig({PhotoItem(GoodPhoto(8, 8)), row.item});
        ASSERT_TRUE(rig.Offer());
        rig.Enter(1);
        // The pointer left from the last load: a changed value shows the loader wrote it.
        ASSERT_NE(rig.state.nextPhoto, nullptr);
        ASSERT_TRUE(rig.Offer());
        EXPECT_EQ(rig.state.nextReady.load(), row.expectReady ? 1 : 0);
        EXPECT_EQ(rig.state.nextPhoto != nullptr, row.expectPhoto);
        EXPECT_EQ(rig.state.nextMask != nullptr, row.expectSlots == 3);
        EXPECT_EQ(rig.cache.LiveSlots(), row.expectSlots);
        if (row.expectReady) {
            EXPECT_EQ(rig.state.nextIndex.load(), 2);
        }
    }
}

TEST(PhotoLoader, ClosedGateHoldsTheLoaderOutsideTheLock)
{
    LoaderRig rig({PhotoItem(GoodPhoto(16, 16))});
    rig.state.loaderGate.Suspend();
    rig.state.itemAvailable.Set();
    EXPECT_FALSE(rig.state.photoReady.Wait(350));
    {
        // The sequencer can always rotate while the loader is held.
        std::unique_lock guard(rig.state.cacheLock, std::try_to_lock);
        EXPECT_TRUE(guard.owns_lock());
    }
    rig.state.loaderGate.Resume();
    EXPECT_TRUE(rig.state.photoReady.Wait(kLongWait));
}

TEST(PhotoLoader, StopWhilePollingEndsTheThreadAndSaysSo)
{
    testing::TraceCapture traces;
    {
        LoaderRig rig({PhotoItem(GoodPhoto(16, 16))});
        rig.loader.Stop(); // Joins: a loader that missed the request would hang the test here.
        EXPECT_EQ(rig.state.loaderRunning.load(), 0);
        rig.loader.Stop(); // A second stop finds nothing to do.
    }
    EXPECT_EQ(traces.Lines(), std::vector<std::string>{"PhotoThread[2] has finished ---- \n"});
}

/// A photo the player once ended its process on: refused and reported in one line naming the item, and
/// the loader goes on; a host that asked for the old behaviour gets exit status 1.
TEST(PhotoLoader, AFatallyCorruptPhotoIsRefusedAndReportedUnlessTheHostAskedToEnd)
{
    const FilmFile photo = testing::InMemoryFile(testing::MakeRunPastEndPhoto());
    {
        testing::MessageCapture messages;
        LoaderRig rig({PhotoItem(photo), PhotoItem(GoodPhoto(8, 8))});
        ASSERT_TRUE(rig.Offer());
        EXPECT_EQ(rig.state.nextReady.load(), 0);
        EXPECT_EQ(messages.Lines(),
                  std::vector<std::string>{
                      "Warning|item 1: the photo is not shown: coefficient index 65 is past 63"});
    }
    EXPECT_EXIT(
        {
            platform::SetCorruptPhotoAction(platform::CorruptPhotoAction::EndProcess);
            LoaderRig rig({PhotoItem(photo)});
            rig.Offer();
        },
        ::testing::ExitedWithCode(1), "");
}

TEST(PhotoCache, RotateKeepsAtMostThreePhotosAlive)
{
    const std::string photoRef = film::JoinFilmFile(GoodPhoto(8, 8));
    PhotoCache cache(0);
    codec::Photo* next = nullptr;
    codec::Photo* nextMask = nullptr;
    codec::Photo* current = nullptr;
    codec::Photo* currentMask = nullptr;
    const int expectedAfterLoad[] = {2, 4, 6, 6, 6};
    for (int step = 0; step < 5; ++step) {
        SCOPED_TRACE(step);
        ASSERT_EQ(cache.LoadNext(photoRef, photoRef, 8, 8, &next, &nextMask), 1);
        EXPECT_EQ(cache.LiveSlots(), expectedAfterLoad[step]);
        cache.Rotate(nullptr, &current, &currentMask);
        EXPECT_EQ(current, next);
        EXPECT_EQ(currentMask, nextMask);
    }
    // A failed load empties only the next slots; the rotation after it leaves nothing to show.
    EXPECT_EQ(cache.LoadNext("5\\1", "0", 8, 8, &next, &nextMask), 0);
    EXPECT_EQ(next, current) << "outputs are not written on failure";
    cache.Rotate(nullptr, &current, &currentMask);
    EXPECT_EQ(current, nullptr);
    EXPECT_EQ(cache.LiveSlots(), 2);
}

TEST(PhotoCache, ViewerKeysScrollAndZoomWithinBounds)
{
    constexpr int L = kViewerKeyLeft, R = kViewerKeyRight, U = kViewerKeyUp, D = kViewerKeyDown;
    constexpr int P = kViewerKeyPlus, M = kViewerKeyMinus;
    struct Row
    {
        const char* name;
        std::int32_t width, height; // The viewer's picture in a 100 x 100 frame; 0 keeps the 1 x 1 one.
        std::vector<int> keys;
        std::int32_t scrollX, scrollY, viewedWidth, zoomCount;
    };
    const Row rows[] = {
        {"1 x 1 picture only repaints", 0, 0, {R, D, P}, 0, 0, 2, 1},
        {"arrows scroll by 25", 1000, 1000, {R, R, D}, 50, 25, 1000, 0},
        {"scroll stops at the edges", 120, 1000, {R, L, L, U}, 0, 0, 120, 0},
        {"plus doubles, minus halves", 300, 200, {P, P, M}, 0, 0, 600, 1},
        {"16 MiB may still double", 2048, 2048, {P}, 0, 0, 4096, 1},
        {"more than 16 MiB is refused", 2049, 2048, {P}, 0, 0, 2049, 0},
        {"minus never goes below one pixel", 0, 0, {M, M}, 0, 0, 1, -2},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        PhotoCache cache(0);
        cache.Init(nullptr, Rect{0, 0, 100, 100}, Rect{0, 0, 100, 100});
        if (row.width != 0) {
            ASSERT_TRUE(cache.SetViewerPicture(row.width, row.height));
        }
        for (int key : row.keys)
            EXPECT_TRUE(cache.HandleViewerKey(key)) << "every viewer key asks for a repaint";
        EXPECT_EQ(cache.Viewer().scrollX, row.scrollX);
        EXPECT_EQ(cache.Viewer().scrollY, row.scrollY);
        EXPECT_EQ(cache.Viewer().viewedWidth, row.viewedWidth);
        EXPECT_EQ(cache.Viewer().zoomCount, row.zoomCount);
        EXPECT_FALSE(cache.HandleViewerKey('A'));
    }
}

TEST(FallbackPlayers, ClipShowsItsStillAndShowReportsTheMissingViewerOnce)
{
    ClipPlayer clips;
    codec::Photo* next = nullptr;
    codec::Photo* current = nullptr;
    ASSERT_EQ(clips.LoadClip("a.avi", film::JoinFilmFile(GoodPhoto(24, 16)), 24, 16, &next), 1);
    clips.StartClip(nullptr, &current, 0);
    EXPECT_EQ(current, next);
    EXPECT_EQ(clips.IsPlaying(), 0);
    ASSERT_EQ(clips.LoadClip("b.avi", film::JoinFilmFile(GoodPhoto(8, 8)), 8, 8, &next), 1);
    EXPECT_EQ(current->Width(), 24) << "the still on screen outlives the next clip's load";

    testing::MessageCapture messages;
    SlidePlayer slides;
    for (int attempt = 0; attempt < 2; ++attempt) {
        EXPECT_EQ(slides.StartShow(nullptr, &current), 0);
        EXPECT_EQ(current, nullptr);
    }
    EXPECT_EQ(messages.Lines(), std::vector<std::string>{"Error|PowerPoint Viewer missed"});
}

} // namespace
} // namespace lumenar::playback
