#include "platform/Download.h"

#include "tests/support/FilmServer.h"
#include "tests/support/FilmWriter.h"

#include <gtest/gtest.h>

#include <algorithm>
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
    /// Waits, taking nothing, until `done` holds after a wake; false on a 20 s timeout.
    template <typename Done> bool Await(Done done)
    {
        std::unique_lock guard(lock_);
        return changed_.wait_until(guard, std::chrono::steady_clock::now() + std::chrono::seconds(20), done);
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
    EXPECT_EQ(ResolveAddress("", "ftp://host/f").error().code, base::ErrorCode::Unsupported);
    for (const char* url : {"ftp://host/f", "gopher://x", "no-scheme-at-all"})
        EXPECT_FALSE(Download::Start(url, {}).ok()) << url;
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

TEST(Download, FailedTransfersGiveNoFinalNotificationAndSayWhy)
{
    const auto film = Pattern(50000);
    const std::string path = testing::WriteTempFile(film, "download.bin");
    FilmServer early(path, {.closeAfter = 20000});
    FilmServer missing(path, {.status = 404});
    FilmServer broken(path, {.status = 500});
    FilmServer looping(path, {.redirectLoop = true});
    ASSERT_FALSE(early.Address().empty() || missing.Address().empty() || broken.Address().empty() ||
                 looping.Address().empty());
    struct Row
    {
        const char* name;
        std::string url;
        std::size_t bytes;
        std::string reason; // The outcome's message starts with this.
    } rows[] = {
        {"server closes early", early.Address(), 20000, "transfer closed with 30000 bytes remaining"},
        {"missing file", *ResolveAddress("", path + ".missing"), 0, "couldn't open file"},
        {"nobody listens", "http://127.0.0.1:1/film", 0, "failed to connect to 127.0.0.1 port 1"},
        {"malformed", "http://[::1", 0, "not a valid address"},
        {"404", missing.Address(), 0, "404 Not Found"},
        {"500", broken.Address(), 0, "500 Internal Server Error"},
        {"redirect loop", looping.Address(), 0, "more than 10 redirects"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        Receiver receiver;
        auto download = Download::Start(row.url, receiver.Wake());
        ASSERT_TRUE(download.ok());
        ASSERT_TRUE(receiver.Drain(**download, [] { return false; }));
        ASSERT_FALSE((*download)->Outcome().ok());
        EXPECT_EQ((*download)->Outcome().error().message.substr(0, row.reason.size()), row.reason);
        EXPECT_EQ(receiver.bytes.size(), row.bytes);
        EXPECT_EQ(receiver.lastCount, 0);
    }
    // Each address is asked for once and the loop ends at the limit (the first request and 10 more).
    const std::vector<std::string> log = looping.Log();
    EXPECT_EQ(std::count_if(log.begin(), log.end(),
                            [](const std::string& line) { return line.starts_with("start"); }),
              kMaxRedirects + 1);
    std::remove(path.c_str());
}

TEST(Download, PausesWhileItsReceiverHoldsBack)
{
    // An endless source: without the pause the untaken bytes grow as fast as it can be read.
    Receiver receiver;
    auto download = Download::Start("file:///dev/zero", receiver.Wake());
    ASSERT_TRUE(download.ok());
    Download& zeros = **download;
    constexpr std::size_t kOneBlockMore = 1u << 16;
    for (int round = 1; round <= 3; ++round) {
        SCOPED_TRACE(round);
        // Wait, taking nothing, until the transfer has filled its bound; then it must stand still.
        ASSERT_TRUE(receiver.Await([&] { return zeros.BytesReceived() >= round * kMaxUntakenBytes; }));
        EXPECT_LE(zeros.BytesReceived(), round * (kMaxUntakenBytes + kOneBlockMore));
        zeros.TakeBlocks();
    }
    EXPECT_FALSE(zeros.Finished());
    zeros.Abort();     // Must wake the paused transfer...
    download->reset(); // ...so that its thread can be joined.
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
