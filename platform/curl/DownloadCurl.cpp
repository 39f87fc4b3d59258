#include "platform/Download.h"

#include "base/StrCat.h"

#include <curl/curl.h>

#include <atomic>
#include <cctype>
#include <condition_variable>
#include <filesystem>
#include <mutex>
#include <thread>

namespace lumenar::platform {

using base::Error;
using base::ErrorCode;
using base::StrCat;

namespace {

struct CurlEasyFree
{
    void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
};
using CurlPtr = std::unique_ptr<CURL, CurlEasyFree>;

struct CurlUrlFree
{
    void operator()(CURLU* handle) const { curl_url_cleanup(handle); }
};
using CurlUrlPtr = std::unique_ptr<CURLU, CurlUrlFree>;

struct CurlStringFree
{
    void operator()(char* text) const { curl_free(text); }
};
using CurlStringPtr = std::unique_ptr<char, CurlStringFree>;

void GlobalInit()
{
    static std::once_flag once;
    std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

/// The scheme of an absolute address, lower-cased; empty for a relative reference or a plain path.
std::string SchemeOf(std::string_view address)
{
    std::size_t colon = address.find(':');
    // One letter before the colon is a drive, not a scheme.
    if (colon == std::string_view::npos || colon < 2 || !std::isalpha(static_cast<unsigned char>(address[0])))
        return {};
    std::string scheme;
    for (char c : address.substr(0, colon)) {
        const unsigned char u = static_cast<unsigned char>(c);
        if (!std::isalnum(u) && c != '+' && c != '-' && c != '.')
            return {};
        scheme += static_cast<char>(std::tolower(u));
    }
    return scheme;
}

bool SchemeSupported(std::string_view scheme)
{
    return scheme == "http" || scheme == "https" || scheme == "file";
}

std::string EncodePath(const std::string& path)
{
    static const char* const kHex = "0123456789ABCDEF";
    std::string out;
    for (char c : path) {
        const unsigned char u = static_cast<unsigned char>(c);
        if (std::isalnum(u) || c == '/' || c == '-' || c == '.' || c == '_' || c == '~') {
            out += c;
        } else {
            out += '%';
            out += kHex[u >> 4];
            out += kHex[u & 15];
        }
    }
    return out;
}

} // namespace

// A message of the library's starts with a capital; ours do not.
std::string LowerFirst(std::string text)
{
    if (!text.empty())
        text[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(text[0])));
    return text;
}

struct Download::Impl
{
    std::string url;
    Wake wake;
    CurlPtr curl;
    std::mutex lock;               // Guards blocks, untaken, outcome and statusLine.
    std::condition_variable taken; // Signalled when blocks are taken and on Abort.
    std::vector<DownloadBlock> blocks;
    std::size_t untaken = 0; // Bytes in `blocks`.
    base::Status outcome;
    std::string reason; // The reason phrase of the last HTTP status line.
    std::atomic<bool> abort{false};
    std::atomic<bool> finished{false};
    std::atomic<std::uint64_t> received{0};
    std::thread thread; // Joined by ~Download before anything above goes.

    void Queue(DownloadBlock block)
    {
        {
            std::lock_guard guard(lock);
            untaken += block.bytes.size();
            blocks.push_back(std::move(block));
        }
        if (wake)
            wake();
    }

    static std::size_t OnData(char* data, std::size_t size, std::size_t count, void* context)
    {
        auto* self = static_cast<Impl*>(context);
        if (self->abort)
            return 0; // Ends the transfer with a write error.
        const std::size_t bytes = size * count;
        if (bytes == 0)
            return 0;
        DownloadBlock block;
        block.bytes.assign(reinterpret_cast<const std::uint8_t*>(data),
                           reinterpret_cast<const std::uint8_t*>(data) + bytes);
        self->received += bytes;
        self->Queue(std::move(block));
        // Back-pressure: the socket is not read again until the receiver has taken what waits, so a
        // sender faster than the film is played waits in its own buffers, not in our memory.
        std::unique_lock guard(self->lock);
        self->taken.wait(guard, [self] { return self->untaken < kMaxUntakenBytes || self->abort; });
        return self->abort ? 0 : bytes;
    }

    // Keeps the reason phrase of each status line ("HTTP/1.1 404 Not Found"); a redirect's own line
    // is replaced by the next response's.
    static std::size_t OnHeader(char* data, std::size_t size, std::size_t count, void* context)
    {
        auto* self = static_cast<Impl*>(context);
        const std::string_view line(data, size * count);
        if (line.starts_with("HTTP/")) {
            std::string_view rest = line.substr(std::min(line.find(' '), line.size()));
            rest.remove_prefix(std::min(rest.find_first_not_of(' '), rest.size()));
            rest.remove_prefix(std::min(rest.find(' '), rest.size())); // The code.
            while (!rest.empty() && (rest.front() == ' '))
                rest.remove_prefix(1);
            while (!rest.empty() && (rest.back() == '\r' || rest.back() == '\n' || rest.back() == ' '))
                rest.remove_suffix(1);
            std::lock_guard guard(self->lock);
            self->reason = std::string(rest);
        }
        return size * count;
    }

    // Our words for the failures a user meets; the library's own text for the rest.
    std::string Reason(CURLcode code, const char* message)
    {
        switch (code) {
        case CURLE_HTTP_RETURNED_ERROR: {
            long status = 0;
            curl_easy_getinfo(curl.get(), CURLINFO_RESPONSE_CODE, &status);
            std::lock_guard guard(lock);
            return reason.empty() ? StrCat("the server answered ", status) : StrCat(status, " ", reason);
        }
        case CURLE_TOO_MANY_REDIRECTS:
            return StrCat("more than ", kMaxRedirects, " redirects");
        case CURLE_URL_MALFORMAT:
            return "not a valid address";
        case CURLE_UNSUPPORTED_PROTOCOL:
            return StrCat("redirected to an address that is not http or https");
        default:
            return LowerFirst(message[0] != '\0' ? std::string(message) : curl_easy_strerror(code));
        }
    }

    // Also called about once a second while nothing arrives, so a stalled transfer still sees Abort.
    static int OnProgress(void* context, curl_off_t, curl_off_t, curl_off_t, curl_off_t)
    {
        return static_cast<Impl*>(context)->abort ? 1 : 0;
    }

    void Fail(std::string why)
    {
        {
            std::lock_guard guard(lock);
            outcome = Error{ErrorCode::Io, std::move(why)};
        }
        finished = true;
        if (wake)
            wake();
    }

    void Run()
    {
        char message[CURL_ERROR_SIZE] = {};
        curl_easy_setopt(curl.get(), CURLOPT_ERRORBUFFER, message);
        const CURLcode code = curl_easy_perform(curl.get());
        base::Status result;
        if (code != CURLE_OK) {
            result =
                Error{ErrorCode::Io, abort ? std::string("the download was aborted") : Reason(code, message)};
        }
        {
            std::lock_guard guard(lock);
            outcome = result;
            if (result.ok())
                blocks.push_back({{}, true});
        }
        finished = true;
        if (wake)
            wake();
    }
};

Download::Download(std::unique_ptr<Impl> impl) : impl_(std::move(impl))
{
}

Download::~Download()
{
    Abort();
    if (impl_->thread.joinable())
        impl_->thread.join();
}

base::Result<std::unique_ptr<Download>> Download::Start(const std::string& url, Wake wake)
{
    const std::string scheme = SchemeOf(url);
    if (!SchemeSupported(scheme))
        return Error{ErrorCode::Unsupported, "not an http, https or file address"};
    GlobalInit();
    auto impl = std::make_unique<Impl>();
    impl->url = url;
    impl->wake = std::move(wake);
    impl->curl.reset(curl_easy_init());
    CURL* curl = impl->curl.get();
    if (curl == nullptr)
        return Error{ErrorCode::Io, StrCat("cannot set up a transfer for ", url)};
    curl_easy_setopt(curl, CURLOPT_URL, impl->url.c_str());
    curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "http,https,file");
    curl_easy_setopt(curl, CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(curl, CURLOPT_FOLLOWLOCATION, 1L);
    curl_easy_setopt(curl, CURLOPT_MAXREDIRS, static_cast<long>(kMaxRedirects));
    curl_easy_setopt(curl, CURLOPT_HEADERFUNCTION, &Impl::OnHeader);
    curl_easy_setopt(curl, CURLOPT_HEADERDATA, impl.get());
    curl_easy_setopt(curl, CURLOPT_FAILONERROR, 1L);
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, &Impl::OnData);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, impl.get());
    curl_easy_setopt(curl, CURLOPT_NOPROGRESS, 0L);
    curl_easy_setopt(curl, CURLOPT_XFERINFOFUNCTION, &Impl::OnProgress);
    curl_easy_setopt(curl, CURLOPT_XFERINFODATA, impl.get());
    Impl* raw = impl.get();
    raw->thread = std::thread([raw] {
        // Nothing may escape a thread: an exception fails the transfer like any other failure.
        try {
            raw->Run();
        } catch (const std::exception& error) {
            raw->Fail(StrCat("internal error: ", error.what()));
        } catch (...) {
            raw->Fail("internal error");
        }
    });
    return std::unique_ptr<Download>(new Download(std::move(impl)));
}

std::vector<DownloadBlock> Download::TakeBlocks()
{
    std::vector<DownloadBlock> out;
    {
        std::lock_guard guard(impl_->lock);
        out.swap(impl_->blocks);
        impl_->untaken = 0;
    }
    impl_->taken.notify_all();
    return out;
}

void Download::Abort()
{
    {
        // Under the lock, so that a transfer about to wait for room sees it.
        std::lock_guard guard(impl_->lock);
        impl_->abort = true;
    }
    impl_->taken.notify_all();
}

bool Download::Finished() const
{
    return impl_->finished;
}

std::uint64_t Download::BytesReceived() const
{
    return impl_->received;
}

base::Status Download::Outcome() const
{
    std::lock_guard guard(impl_->lock);
    return impl_->outcome;
}

base::Result<std::string> ResolveAddress(std::string_view documentUrl, std::string_view file)
{
    const std::string scheme = SchemeOf(file);
    if (!scheme.empty() && SchemeSupported(scheme))
        return std::string(file);
    // "ftp://host/film" is an address of another kind, not a file named so.
    if (!scheme.empty() && file.substr(scheme.size()).starts_with("://"))
        return Error{ErrorCode::Unsupported, "not an http, https or file address"};
    if (documentUrl.empty()) {
        std::error_code error;
        std::filesystem::path path =
            std::filesystem::absolute(std::filesystem::path(std::string(file)), error);
        if (error || file.empty())
            return Error{ErrorCode::InvalidInput, StrCat("cannot make a file address of '", file, "'")};
        return "file://" + EncodePath(path.lexically_normal().string());
    }
    GlobalInit();
    CurlUrlPtr handle(curl_url());
    const std::string base(documentUrl);
    const std::string relative(file);
    if (!handle || curl_url_set(handle.get(), CURLUPART_URL, base.c_str(), 0) != CURLUE_OK)
        return Error{ErrorCode::InvalidInput, StrCat("document address ", base, " is not a valid address")};
    if (curl_url_set(handle.get(), CURLUPART_URL, relative.c_str(), CURLU_URLENCODE) != CURLUE_OK)
        return Error{ErrorCode::InvalidInput, StrCat("cannot resolve '", relative, "' against ", base)};
    char* joined = nullptr;
    if (curl_url_get(handle.get(), CURLUPART_URL, &joined, 0) != CURLUE_OK)
        return Error{ErrorCode::InvalidInput, StrCat("cannot resolve '", relative, "' against ", base)};
    CurlStringPtr owned(joined);
    return std::string(joined);
}

} // namespace lumenar::platform
