#include "platform/CodePage.h"

#include <iconv.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <string>

namespace lumenar::platform {

namespace {

constexpr std::string_view kReplacementUtf8 = "\xEF\xBF\xBD";

std::string IconvName(int codePage)
{
    return "CP" + std::to_string(codePage);
}

// Runs `bytes` through `cd` into `out`. At a character the converter cannot take (undefined or cut
// short), `bad` is asked how many bytes to step over; 0 ends the run there, with `in` at the character.
template <class Bad> void Run(iconv_t cd, std::string_view bytes, std::string& out, char*& in, Bad bad)
{
    char buffer[1024];
    in = const_cast<char*>(bytes.data());
    std::size_t inLeft = bytes.size();
    while (inLeft > 0) {
        char* outPtr = buffer;
        std::size_t outLeft = sizeof buffer;
        const std::size_t done = iconv(cd, &in, &inLeft, &outPtr, &outLeft);
        out.append(buffer, static_cast<std::size_t>(outPtr - buffer));
        if (done != static_cast<std::size_t>(-1) || errno == E2BIG)
            continue;
        const std::size_t skip = bad(in, inLeft);
        if (skip == 0)
            return;
        in += skip;
        inLeft -= skip;
        iconv(cd, nullptr, nullptr, nullptr, nullptr);
    }
}

// Converts with iconv, replacing each undefined or cut sequence by U+FFFD and stepping over one
// character (two bytes where the first is a lead byte).
std::string Convert(std::string_view bytes, int codePage)
{
    iconv_t cd = iconv_open("UTF-8", IconvName(codePage).c_str());
    if (cd == reinterpret_cast<iconv_t>(-1))
        cd = iconv_open("UTF-8", IconvName(kDefaultCodePage).c_str());
    if (cd == reinterpret_cast<iconv_t>(-1))
        return std::string(bytes); // No converter at all: the bytes are the best we have.
    std::string out;
    out.reserve(bytes.size() * 3);
    char* in = nullptr;
    Run(cd, bytes, out, in, [&](const char* at, std::size_t left) -> std::size_t {
        out.append(kReplacementUtf8);
        return IsLeadByte(codePage, static_cast<std::uint8_t>(*at)) && left >= 2 ? 2 : 1;
    });
    iconv_close(cd);
    return out;
}

char32_t DecodeUtf8(std::string_view text)
{
    if (text.empty())
        return 0xFFFD;
    const auto b0 = static_cast<std::uint8_t>(text[0]);
    auto cont = [&](std::size_t i) {
        return static_cast<char32_t>(static_cast<std::uint8_t>(text[i]) & 0x3F);
    };
    if (b0 < 0x80)
        return b0;
    if ((b0 & 0xE0) == 0xC0 && text.size() >= 2)
        return (static_cast<char32_t>(b0 & 0x1F) << 6) | cont(1);
    if ((b0 & 0xF0) == 0xE0 && text.size() >= 3)
        return (static_cast<char32_t>(b0 & 0x0F) << 12) | (cont(1) << 6) | cont(2);
    if ((b0 & 0xF8) == 0xF0 && text.size() >= 4)
        return (static_cast<char32_t>(b0 & 0x07) << 18) | (cont(1) << 12) | (cont(2) << 6) | cont(3);
    return 0xFFFD;
}

std::atomic<int> activeCodePage{kDefaultCodePage};

} // namespace

int ActiveCodePage()
{
    return activeCodePage.load();
}

void SetActiveCodePage(int codePage)
{
    activeCodePage.store(codePage);
}

bool IsSupportedCodePage(int codePage)
{
    if (codePage == 932 || codePage == 936 || codePage == 949 || codePage == 950)
        return true;
    if (codePage < 1250 || codePage > 1258)
        return false;
    iconv_t cd = iconv_open("UTF-8", IconvName(codePage).c_str());
    if (cd == reinterpret_cast<iconv_t>(-1))
        return false;
    iconv_close(cd);
    return true;
}

bool IsLeadByte(int codePage, std::uint8_t byte)
{
    switch (codePage) {
    case 932:
        return (byte >= 0x81 && byte <= 0x9F) || (byte >= 0xE0 && byte <= 0xFC);
    case 936:
    case 949:
    case 950:
        return byte >= 0x81 && byte <= 0xFE;
    default:
        return false;
    }
}

std::string ToUtf8(std::string_view bytes, int codePage)
{
    return Convert(bytes, codePage);
}

char32_t CharacterToUnicode(std::uint16_t code, int codePage)
{
    char bytes[2];
    std::size_t length = 0;
    if (code > 0xFF)
        bytes[length++] = static_cast<char>(code >> 8);
    bytes[length++] = static_cast<char>(code & 0xFF);
    return DecodeUtf8(Convert(std::string_view(bytes, length), codePage));
}

base::Result<std::string> FromUtf8(std::string_view utf8, int codePage)
{
    const auto failed = [&](std::string message) {
        return base::Error{base::ErrorCode::BadData, std::move(message)};
    };
    if (!IsSupportedCodePage(codePage))
        return failed("code page " + std::to_string(codePage) + " is not one we convert");
    iconv_t cd = iconv_open(IconvName(codePage).c_str(), "UTF-8");
    if (cd == reinterpret_cast<iconv_t>(-1))
        return failed("code page " + std::to_string(codePage) + " is not one we convert");
    std::string out;
    char* in = nullptr;
    std::size_t inLeft = 0;
    Run(cd, utf8, out, in, [&](const char*, std::size_t left) -> std::size_t {
        inLeft = left;
        return 0;
    });
    iconv_close(cd);
    if (inLeft > 0) {
        const std::size_t at = static_cast<std::size_t>(in - utf8.data());
        // Tell a character the page lacks from bytes that are not UTF-8 at all.
        const auto lead = static_cast<std::uint8_t>(*in);
        const std::size_t length = lead < 0x80             ? 1
                                   : (lead & 0xE0) == 0xC0 ? 2
                                   : (lead & 0xF0) == 0xE0 ? 3
                                   : (lead & 0xF8) == 0xF0 ? 4
                                                           : 0;
        bool valid = length != 0 && length <= inLeft;
        for (std::size_t i = 1; valid && i < length; ++i)
            valid = (static_cast<std::uint8_t>(in[i]) & 0xC0) == 0x80;
        if (!valid)
            return failed("the text is not UTF-8 at byte " + std::to_string(at + 1));
        char hex[16];
        std::snprintf(hex, sizeof hex, "U+%04X",
                      static_cast<unsigned>(DecodeUtf8(std::string_view(in, length))));
        return failed("\"" + std::string(in, length) + "\" (" + hex + ") has no place in code page " +
                      std::to_string(codePage));
    }
    return out;
}

} // namespace lumenar::platform
