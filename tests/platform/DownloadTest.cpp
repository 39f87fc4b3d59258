#include "platform/Download.h"

#include "tests/support/FilmServer.h"
#include "tests/support/FilmWriter.h"

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace lumenar::platform {
namespace {

using testing::FilmServer;
using testing::FilmServerOptions;

using testing::Pattern;

/// Collects what a download delivers, the way the control does: on wake, take the blocks.
class Receiver
{
public:
    Download::Wake Wake()
    {
        return [this] {
            std::lock_guard guard(lock_);
            ++wakes_;
            changed_.notify_all();
        };
    }
    /// Takes blocks until `done` holds or the transfer finished; false on a 20 s timeout.
    template <typename Done> bool Drain(Download& download, Done done)
    {
        auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        const auto take = [&] {
            for (DownloadBlock& block : download.TakeBlocks()) {
                bytes.insert(bytes.end(), block.bytes.begin(), block.bytes.end());
                lastCount += block.last ? 1 : 0;
                ++blocks;
            }
        };
        for (;;) {
            take();
            if (done() || download.Finished()) {
                take();
                return true;
            }
            std::unique_lock guard(lock_);
            if (changed_.wait_until(guard, deadline, [&] { return wakes_ != seen_; }) == false)
                return false;
            seen_ = wakes_;
        }
    }
    std::vector<std::uint8_t> bytes;
    int lastCount = 0;
    int blocks = 0;

private:
    std::mutex lock_; // Guards wakes_ and seen_.
    std::condition_variable changed_;
    long wakes_ = 0;
    long seen_ = 0;
};

TEST(Download, ResolvesAddressesAgainstTheDocument)
{
    struct Row
    {
        const char* name;
        const char* document;
        const char* file;
        const char* expected;
    } rows[] = {
        {"absolute http stays", "http://a/b/page.html", "http://c/film.flm", "http://c/film.flm"},
        {"relative name", "http://host/dir/page.html", "film.flm", "http://host/dir/film.flm"},
        {"parent folder", "http://host/a/b/page.html", "../films/x.flm", "http://host/a/films/x.flm"},
        {"root-relative", "https://host/a/page.html", "/x.flm", "https://host/x.flm"},
        {"space is encoded", "http://host/a/", "my film.flm", "http://host/a/my%20film.flm"},
        {"file document", "file:///srv/site/index.html", "f.flm", "file:///srv/site/f.flm"},
        {"absolute path, no document", "", "/srv/my film.flm", "file:///srv/my%20film.flm"},
        {"dot segments, no document", "", "/srv/a/../b/./f.flm", "file:///srv/b/f.flm"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        auto address = ResolveAddress(row.document, row.file);
        ASSERT_TRUE(address.ok()) << address.error().message;
        EXPECT_EQ(*address, row.expected);
    }
    auto relative = ResolveAddress("", "films/f.flm");
    ASSERT_TRUE(relative.ok());
    EXPECT_EQ(relative->rfind("file:///", 0), 0u);
    EXPECT_NE(relative->find("/films/f.flm"), std::string::npos);
    EXPECT_FALSE(ResolveAddress("", "").ok());
}

TEST(Download, RefusesOtherSchemes)
{
    for (const char* url : {"ftp://host/f", "gopher://x", "no-scheme-at-all"}) {
        SCOPED_TRACE(url);
        EXPECT_FALSE(Download::Start(url, {}).ok());
    }
}

TEST(Download, DeliversEveryByteInOrderWithOneFinalNotification)
{
    const auto film = Pattern(300000);
    const std::string path = testing::WriteTempFile(film, "download.bin");
    FilmServer server(path);
    ASSERT_FALSE(server.Address().empty()) << "the loopback server did not start (python3?)";
    for (const std::string& url : {*ResolveAddress("", path), server.Address()}) {
        SCOPED_TRACE(url);
        Receiver receiver;
        auto download = Download::Start(url, receiver.Wake());
        ASSERT_TRUE(download.ok()) << download.error().message;
        ASSERT_TRUE(receiver.Drain(**download, [] { return false; }));
        EXPECT_TRUE((*download)->Outcome().ok());
        EXPECT_EQ(receiver.bytes, film);
        EXPECT_EQ(receiver.lastCount, 1);
        EXPECT_GT(receiver.blocks, 1);
    }
    std::remove(path.c_str());
}

TEST(Download, FailedTransfersGiveNoFinalNotification)
{
    const auto film = Pattern(50000);
    const std::string path = testing::WriteTempFile(film, "download.bin");
    FilmServer early(path, {.closeAfter = 20000});
    ASSERT_FALSE(early.Address().empty());
    struct Row
    {
        const char* name;
        std::string url;
        std::size_t bytes;
    } rows[] = {
        {"server closes early", early.Address(), 20000},
        {"missing file", *ResolveAddress("", path + ".missing"), 0},
        {"nobody listens", "http://127.0.0.1:1/film", 0},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        Receiver receiver;
        auto download = Download::Start(row.url, receiver.Wake());
        ASSERT_TRUE(download.ok());
        ASSERT_TRUE(receiver.Drain(**download, [] { return false; }));
        EXPECT_FALSE((*download)->Outcome().ok());
        EXPECT_EQ(receiver.bytes.size(), row.bytes);
        EXPECT_EQ(receiver.lastCount, 0);
    }
    std::remove(path.c_str());
}

TEST(Download, AbortEndsTheTransferAtItsNextBlock)
{
    const auto film = Pattern(400000);
    const std::string path = testing::WriteTempFile(film, "download.bin");
    FilmServer server(path, {.throttle = 200000});
    ASSERT_FALSE(server.Address().empty());
    Receiver receiver;
    auto download = Download::Start(server.Address(), receiver.Wake());
    ASSERT_TRUE(download.ok());
    ASSERT_TRUE(receiver.Drain(**download, [&] { return !receiver.bytes.empty(); }));
    (*download)->Abort();
    ASSERT_TRUE(receiver.Drain(**download, [] { return false; }));
    EXPECT_FALSE((*download)->Outcome().ok());
    EXPECT_LT(receiver.bytes.size(), film.size());
    EXPECT_EQ(receiver.lastCount, 0);
    // What did arrive is the stream's beginning.
    EXPECT_TRUE(std::equal(receiver.bytes.begin(), receiver.bytes.end(), film.begin()));
    std::remove(path.c_str());
}

TEST(Download, DestroyingAStalledTransferJoinsItsThread)
{
    const auto film = Pattern(100000);
    const std::string path = testing::WriteTempFile(film, "download.bin");
    FilmServer server(path, {.stallAfter = 10000});
    ASSERT_FALSE(server.Address().empty());
    Receiver receiver;
    auto download = Download::Start(server.Address(), receiver.Wake());
    ASSERT_TRUE(download.ok());
    ASSERT_TRUE(receiver.Drain(**download, [&] { return receiver.bytes.size() >= 10000; }));
    EXPECT_FALSE((*download)->Finished());
    download->reset(); // Must return: the stalled transfer sees the abort at its next progress poll.
    std::remove(path.c_str());
}

} // namespace
} // namespace lumenar::platform
