#include "film/FilmReader.h"

#include "base/ByteReader.h"
#include "base/StrCat.h"
#include "effects/EffectRegistry.h"
#include "platform/MessageBox.h"
#include "platform/ReportBox.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <string>

namespace lumenar::film {

using platform::CompoundStorage;
using platform::ElementKind;

namespace {

// Offsets of the item record.
constexpr std::size_t kSlotA = 0;    // Photo, clip file or show file by kind.
constexpr std::size_t kSlotB = 516;  // Mask or first clip picture.
constexpr std::size_t kSlotD = 1548; // Second clip picture.
constexpr std::size_t kSlotF = 2580; // Sound, every kind.
constexpr std::size_t kWidthOffset = 3096;
constexpr std::size_t kHeightOffset = 3100;
constexpr std::size_t kDisplaySecondsOffset = 3104;
constexpr std::size_t kEffectOffset = 3108;
constexpr std::size_t kEffectMsOffset = 3112;
constexpr std::size_t kIndexOffset = 3116;
constexpr std::size_t kKindOffset = 3120;
constexpr std::size_t kSoundModeOffset = 3124;
constexpr std::size_t kRectOffset = 3128;

// Offsets of the caption record.
constexpr std::size_t kCaptionEffectOffset = 4;
constexpr std::size_t kCaptionTextOffset = 8;
constexpr std::size_t kCaptionTextBytes = 256;
constexpr std::size_t kCaptionStyleOffset = 264;

std::string FixedText(std::span<const std::uint8_t> field)
{
    const auto end = std::find(field.begin(), field.end(), std::uint8_t{0});
    return std::string(field.begin(), end);
}

FilmFile SlotAt(std::span<const std::uint8_t> record, std::size_t offset)
{
    return ParseFileReference(record.subspan(offset).first<kFileReferenceBytes>());
}

FilmItem ParseItem(std::span<const std::uint8_t> record, int pictureCount)
{
    FilmItem item;
    item.kind = base::LoadI32LE(record, kKindOffset);
    switch (item.kind) {
    case kFilmItemPhoto:
        item.photo = SlotAt(record, kSlotA);
        item.mask = SlotAt(record, kSlotB);
        break;
    case kFilmItemClip:
        item.clipFile = SlotAt(record, kSlotA);
        item.clipPicture1 = SlotAt(record, kSlotB);
        item.clipPicture2 = SlotAt(record, kSlotD);
        break;
    case kFilmItemPowerPoint:
        item.showFile = SlotAt(record, kSlotA);
        break;
    default:
        break;
    }
    item.sound = SlotAt(record, kSlotF);
    item.width = base::LoadI32LE(record, kWidthOffset);
    item.height = base::LoadI32LE(record, kHeightOffset);
    item.displaySeconds = base::LoadI32LE(record, kDisplaySecondsOffset);
    item.effect = ClampEffectNumber(base::LoadI32LE(record, kEffectOffset), pictureCount);
    item.effectMs = base::LoadI32LE(record, kEffectMsOffset);
    item.index = base::LoadI32LE(record, kIndexOffset);
    item.soundMode = base::LoadI32LE(record, kSoundModeOffset);
    for (std::size_t i = 0; i < 4; ++i)
        item.rect[i] = base::LoadI32LE(record, kRectOffset + 4 * i);
    return item;
}

FilmText ParseCaption(std::span<const std::uint8_t> record, int textCount)
{
    FilmText text;
    text.effect = ClampEffectNumber(base::LoadI32LE(record, kCaptionEffectOffset), textCount);
    text.text = FixedText(record.subspan(kCaptionTextOffset, kCaptionTextBytes));
    std::memcpy(&text.style, record.data() + kCaptionStyleOffset, sizeof text.style);
    return text;
}

// Reads a whole-word optional stream; empty when absent or short.
std::optional<std::int32_t> ReadWord(CompoundStorage& storage, std::string_view name)
{
    auto bytes = storage.ReadStream(name, 4);
    if (!bytes.ok() || bytes->size() != 4)
        return std::nullopt;
    return base::LoadI32LE(*bytes, 0);
}

// Reads the captions of one item (the storage counter `n`); false when the list cannot be enumerated.
bool ReadCaptions(Film& film, CompoundStorage& textList, std::int32_t n, int textCount)
{
    auto elements = textList.Elements();
    if (!elements.ok())
        return false;
    // Every element counts, whatever its kind or name; the k-th leads to TEXTk, and the first missing
    // or short one ends the list.
    for (std::size_t k = 1; k <= elements->size(); ++k) {
        auto record = textList.ReadStream("TEXT" + std::to_string(k), kCaptionRecordBytes);
        if (!record.ok() || record->size() != kCaptionRecordBytes)
            break;
        film.AddText(n, ParseCaption(*record, textCount));
    }
    return true;
}

// Reads storage FILMLINKn; false stops the load.
bool ReadItem(Film& film, CompoundStorage& root, std::int32_t n, const effects::EffectRegistry& registry)
{
    auto link = root.OpenStorage("FILMLINK" + std::to_string(n));
    if (!link.ok())
        return false;
    auto record = (*link)->ReadStream("FILMITEM", kItemRecordBytes);
    if (!record.ok() || record->size() != kItemRecordBytes)
        return false;
    film.AddItem(ParseItem(*record, registry.PictureCount()));
    auto textList = (*link)->OpenStorage("TEXTLIST");
    if (!textList.ok())
        return true;
    return ReadCaptions(film, **textList, n, registry.TextCount());
}

std::size_t Utf16Units(std::string_view utf8)
{
    std::size_t units = 0;
    for (unsigned char c : utf8) {
        if ((c & 0xC0) != 0x80)
            units += c >= 0xF0 ? 2 : 1;
    }
    return units;
}

} // namespace

FilmFile ParseFileReference(std::span<const std::uint8_t, kFileReferenceBytes> record)
{
    return {FixedText(std::span(record).first(260)), FixedText(std::span(record).subspan(260, 256))};
}

std::int32_t ClampEffectNumber(std::int32_t effect, int count)
{
    if (effect > count)
        return count > 0 ? count - 1 : 0;
    return effect;
}

int LoadFilmStorage(Film& film, std::unique_ptr<CompoundStorage> root, FilmLoadOutcome* outcome)
{
    const effects::EffectRegistry registry;
    auto fail = [outcome](std::string why) {
        if (outcome != nullptr)
            outcome->failure = std::move(why);
        return 0;
    };
    auto hold = [outcome](std::unique_ptr<CompoundStorage> storage) {
        if (outcome != nullptr)
            outcome->heldOpen = std::move(storage);
        else
            CompoundStorage::KeepOpenUntilExit(std::move(storage));
    };

    FilmFile music;
    if (auto bytes = root->ReadStream("BGMUSIC", kFileReferenceBytes);
        bytes.ok() && bytes->size() == kFileReferenceBytes)
        music = ParseFileReference(std::span(*bytes).first<kFileReferenceBytes>());

    auto version = root->ReadStream("VERSION", 4);
    if (!version.ok() || version->size() != 4) {
        hold(std::move(root));
        return fail(version.ok() ? base::StrCat("the film file's version is ", version->size(),
                                                " bytes long instead of 4")
                                 : std::string("the film file has no version"));
    }
    const auto number = static_cast<std::uint32_t>(base::LoadI32LE(*version, 0));
    if (number != kFilmVersion) {
        hold(std::move(root));
        if (number > kFilmVersion)
            platform::ReportBox(nullptr, platform::kBoxOk, 0, nullptr, 0, "%s", kNewerVersionMessage);
        return fail(
            base::StrCat("the film file has version ", number, "; this player reads version ", kFilmVersion));
    }

    if (auto loop = ReadWord(*root, "LOOP"))
        film.SetLoop(*loop);
    if (auto mode = ReadWord(*root, "AUTOPLAY"))
        film.SetAdvanceMode(*mode);
    film.SetMusic(JoinFilmFile(music));

    auto elements = root->Elements();
    if (!elements.ok())
        return fail("the film file's elements cannot be listed");
    // The n-th element that is not a stream leads to FILMLINKn, whatever its own name.
    std::int32_t n = 0;
    for (const auto& element : *elements) {
        if (element.kind == ElementKind::Stream)
            continue;
        ++n;
        if (!ReadItem(film, *root, n, registry))
            return fail(base::StrCat("item ", n, " of the film file cannot be read"));
    }
    return 1;
}

int Film::Load(const std::string& path)
{
    if (Utf16Units(path) > kMaxFilmPathUnits)
        return 0;
    auto root = CompoundStorage::OpenFile(path);
    if (!root.ok())
        return 0;
    return LoadFilmStorage(*this, std::move(root).value());
}

} // namespace lumenar::film
