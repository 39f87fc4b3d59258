#include "control/ControlProperties.h"

#include "base/ByteReader.h"
#include "base/StrCat.h"

#include <cctype>

namespace lumenar::control {

using base::Error;
using base::ErrorCode;
using base::StrCat;

// Stream layout, all numbers little-endian:
//   offset 0  u32  tag 0x51534D4C ("LMSQ")
//   offset 4  u16  layout version, 1
//   offset 6  u16  number of records that follow (5 when written by us)
//   then each record:
//     u8   value type: 1 = unsigned 32-bit number, 2 = UTF-8 text
//     u8   name length n (1..64), then n bytes of ASCII name ("_cx", "_cy", "BackColor", "FillColor", "File")
//     type 1: u32 value
//     type 2: u32 byte length m (at most kMaxFileBytes), then m bytes (no terminator)
namespace {

constexpr std::uint32_t kStreamTag = 0x51534D4C;
constexpr std::uint16_t kStreamVersion = 1;
constexpr std::uint8_t kTypeNumber = 1;
constexpr std::uint8_t kTypeText = 2;
constexpr std::size_t kMaxNameBytes = 64;
constexpr std::uint16_t kMaxRecords = 256;

enum class Slot
{
    Cx,
    Cy,
    BackColor,
    FillColor,
    File,
    Unknown
};

Slot SlotOf(std::string_view name)
{
    if (name == "_cx")
        return Slot::Cx;
    if (name == "_cy")
        return Slot::Cy;
    if (name == "BackColor")
        return Slot::BackColor;
    if (name == "FillColor")
        return Slot::FillColor;
    if (name == "File")
        return Slot::File;
    return Slot::Unknown;
}

std::uint32_t* NumberSlot(ControlProperties& p, Slot slot)
{
    switch (slot) {
    case Slot::Cx:
        return &p.cx;
    case Slot::Cy:
        return &p.cy;
    case Slot::BackColor:
        return &p.backColor;
    case Slot::FillColor:
        return &p.fillColor;
    default:
        return nullptr;
    }
}

std::optional<std::uint32_t> ParseNumber(std::string_view text, bool colour)
{
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.front())))
        text.remove_prefix(1);
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back())))
        text.remove_suffix(1);
    int base = 10;
    bool rgb = false;
    if (text.starts_with("0x") || text.starts_with("0X") || text.starts_with("&H") ||
        text.starts_with("&h")) {
        base = 16;
        text.remove_prefix(2);
        if (!text.empty() && text.back() == '&') // The basic-language long suffix.
            text.remove_suffix(1);
    } else if (colour && text.starts_with("#")) {
        base = 16;
        rgb = true;
        text.remove_prefix(1);
        if (text.size() != 6)
            return std::nullopt;
    }
    if (text.empty())
        return std::nullopt;
    std::uint64_t value = 0;
    for (char c : text) {
        int digit = -1;
        if (c >= '0' && c <= '9')
            digit = c - '0';
        else if (base == 16 && c >= 'a' && c <= 'f')
            digit = c - 'a' + 10;
        else if (base == 16 && c >= 'A' && c <= 'F')
            digit = c - 'A' + 10;
        if (digit < 0)
            return std::nullopt;
        value = value * base + digit;
        if (value > 0xFFFFFFFFu)
            return std::nullopt;
    }
    if (rgb) // #RRGGBB names red first; an OLE colour keeps red in its low byte.
        value = ((value >> 16) & 0xFF) | (value & 0xFF00) | ((value & 0xFF) << 16);
    return static_cast<std::uint32_t>(value);
}

void PutU16(std::vector<std::uint8_t>& out, std::uint16_t v)
{
    out.push_back(v & 0xFF);
    out.push_back(v >> 8);
}

void PutU32(std::vector<std::uint8_t>& out, std::uint32_t v)
{
    for (int i = 0; i < 4; ++i)
        out.push_back((v >> (8 * i)) & 0xFF);
}

void PutName(std::vector<std::uint8_t>& out, std::uint8_t type, std::string_view name)
{
    out.push_back(type);
    out.push_back(static_cast<std::uint8_t>(name.size()));
    out.insert(out.end(), name.begin(), name.end());
}

} // namespace

base::Status SaveToBag(const ControlProperties& p, PropertyBag& bag)
{
    LUM_TRY(bag.Write("_cx", std::to_string(p.cx)));
    LUM_TRY(bag.Write("_cy", std::to_string(p.cy)));
    LUM_TRY(bag.Write("BackColor", std::to_string(p.backColor)));
    LUM_TRY(bag.Write("FillColor", std::to_string(p.fillColor)));
    LUM_TRY(bag.Write("File", p.file));
    return {};
}

base::Result<ControlProperties> LoadFromBag(PropertyBag& bag, const ControlProperties& current)
{
    ControlProperties out = current;
    for (std::string_view name : {"_cx", "_cy", "BackColor", "FillColor"}) {
        std::optional<std::string> text = bag.Read(name);
        if (!text)
            continue;
        const Slot slot = SlotOf(name);
        std::optional<std::uint32_t> value =
            ParseNumber(*text, slot == Slot::BackColor || slot == Slot::FillColor);
        if (!value)
            return Error{ErrorCode::BadData, StrCat("property ", name, " value '", text->substr(0, 40),
                                                    "' is not a 32-bit number")};
        *NumberSlot(out, slot) = *value;
    }
    if (std::optional<std::string> file = bag.Read("File")) {
        if (file->size() > kMaxFileBytes)
            return Error{ErrorCode::TooLarge, StrCat("property File is ", file->size(),
                                                     " bytes long (at most ", kMaxFileBytes, ")")};
        out.file = *file;
    }
    return out;
}

std::vector<std::uint8_t> SaveToStream(const ControlProperties& p)
{
    std::vector<std::uint8_t> out;
    PutU32(out, kStreamTag);
    PutU16(out, kStreamVersion);
    PutU16(out, 5);
    const std::pair<std::string_view, std::uint32_t> numbers[] = {
        {"_cx", p.cx}, {"_cy", p.cy}, {"BackColor", p.backColor}, {"FillColor", p.fillColor}};
    for (const auto& [name, value] : numbers) {
        PutName(out, kTypeNumber, name);
        PutU32(out, value);
    }
    // A File past the cap cannot be set through the bag or the stream; cut rather than write
    // something the reader refuses.
    const std::string_view file = std::string_view(p.file).substr(0, kMaxFileBytes);
    PutName(out, kTypeText, "File");
    PutU32(out, static_cast<std::uint32_t>(file.size()));
    out.insert(out.end(), file.begin(), file.end());
    return out;
}

base::Result<ControlProperties> LoadFromStream(std::span<const std::uint8_t> bytes)
{
    base::ByteReader in(bytes);
    const std::uint32_t tag = LUM_TRY(in.ReadU32LE());
    if (tag != kStreamTag)
        return Error{ErrorCode::BadData,
                     base::FormatPrintf("property stream tag is 0x%08X, not 0x%08X", tag, kStreamTag)};
    const std::uint16_t version = LUM_TRY(in.ReadU16LE());
    if (version != kStreamVersion)
        return Error{ErrorCode::Unsupported,
                     StrCat("property stream version ", version, " (only 1 is known)")};
    const std::uint16_t count = LUM_TRY(in.ReadU16LE());
    if (count > kMaxRecords)
        return Error{ErrorCode::TooLarge,
                     StrCat("property stream declares ", count, " records (at most ", kMaxRecords, ")")};
    ControlProperties out;
    unsigned seen = 0;
    for (std::uint16_t i = 0; i < count; ++i) {
        const std::size_t at = in.Offset();
        const std::uint8_t type = LUM_TRY(in.ReadU8());
        const std::uint8_t nameLength = LUM_TRY(in.ReadU8());
        if (nameLength == 0 || nameLength > kMaxNameBytes)
            return Error{ErrorCode::BadData,
                         StrCat("property record at offset ", at, " has a name of ", nameLength, " bytes")};
        auto nameBytes = LUM_TRY(in.ReadBytes(nameLength));
        const std::string name(nameBytes.begin(), nameBytes.end());
        const Slot slot = SlotOf(name);
        if (type == kTypeNumber) {
            const std::uint32_t value = LUM_TRY(in.ReadU32LE());
            if (slot == Slot::File)
                return Error{ErrorCode::BadData,
                             StrCat("property File at offset ", at, " is a number, not text")};
            if (std::uint32_t* target = NumberSlot(out, slot))
                *target = value;
        } else if (type == kTypeText) {
            const std::uint32_t length = LUM_TRY(in.ReadU32LE());
            if (length > kMaxFileBytes)
                return Error{ErrorCode::TooLarge, StrCat("property ", name, " at offset ", at, " declares ",
                                                         length, " bytes (at most ", kMaxFileBytes, ")")};
            auto text = LUM_TRY(in.ReadBytes(length));
            if (slot != Slot::File && slot != Slot::Unknown)
                return Error{ErrorCode::BadData,
                             StrCat("property ", name, " at offset ", at, " is text, not a number")};
            if (slot == Slot::File)
                out.file.assign(text.begin(), text.end());
        } else {
            return Error{ErrorCode::BadData,
                         StrCat("property record at offset ", at, " has value type ", type)};
        }
        if (slot != Slot::Unknown)
            seen |= 1u << static_cast<int>(slot);
    }
    if (seen != 0x1F)
        return Error{
            ErrorCode::Truncated,
            StrCat("property stream lacks some of _cx, _cy, BackColor, FillColor, File (mask ", seen, ")")};
    return out;
}

} // namespace lumenar::control
