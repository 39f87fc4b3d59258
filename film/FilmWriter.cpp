#include "film/FilmWriter.h"

#include "film/FilmReader.h"

#include <cstring>
#include <string>

namespace lumenar::film {
namespace {

void PutWord(std::vector<std::uint8_t>& out, std::size_t offset, std::int32_t value)
{
    const auto bits = static_cast<std::uint32_t>(value);
    for (int i = 0; i < 4; ++i)
        out[offset + i] = static_cast<std::uint8_t>(bits >> (8 * i));
}

// Keeps the field's last byte zero so a reader always finds the terminator.
void PutText(std::vector<std::uint8_t>& out, std::size_t offset, std::size_t size, const std::string& text)
{
    std::memcpy(out.data() + offset, text.data(), std::min(size - 1, text.size()));
}

void PutReference(std::vector<std::uint8_t>& out, std::size_t offset, const FilmFile& file)
{
    const std::vector<std::uint8_t> record = FileReferenceRecord(file);
    std::memcpy(out.data() + offset, record.data(), record.size());
}

std::vector<std::uint8_t> WordBytes(std::int32_t value)
{
    std::vector<std::uint8_t> out(4);
    PutWord(out, 0, value);
    return out;
}

} // namespace

std::vector<std::uint8_t> FileReferenceRecord(const FilmFile& file)
{
    std::vector<std::uint8_t> out(kFileReferenceBytes, 0);
    PutText(out, 0, 260, file.cstrPath);   // Folder.
    PutText(out, 260, 256, file.cstrName); // File name.
    return out;
}

std::vector<std::uint8_t> ItemRecord(const FilmItem& item)
{
    std::vector<std::uint8_t> out(kItemRecordBytes, 0);
    switch (item.kind) {
    case kFilmItemPhoto:
        PutReference(out, 0, item.photo);
        PutReference(out, 516, item.mask);
        break;
    case kFilmItemClip:
        PutReference(out, 0, item.clipFile);
        PutReference(out, 516, item.clipPicture1);
        PutReference(out, 1548, item.clipPicture2);
        break;
    case kFilmItemPowerPoint:
        PutReference(out, 0, item.showFile);
        break;
    default:
        break;
    }
    PutReference(out, 2580, item.sound);
    // Offset 3096 on: width, height, displaySeconds, effect, effectMs, index, kind, soundMode, rect.
    const std::int32_t words[] = {item.width,    item.height,  item.displaySeconds, item.effect,
                                  item.effectMs, item.index,   item.kind,           item.soundMode,
                                  item.rect[0],  item.rect[1], item.rect[2],        item.rect[3]};
    for (std::size_t i = 0; i < std::size(words); ++i)
        PutWord(out, 3096 + 4 * i, words[i]);
    return out;
}

std::vector<std::uint8_t> CaptionRecord(const FilmText& text, std::int32_t storedOrdinal)
{
    std::vector<std::uint8_t> out(kCaptionRecordBytes, 0);
    PutWord(out, 0, storedOrdinal); // Ignored by the reader.
    PutWord(out, 4, text.effect);
    PutText(out, 8, 256, text.text);
    static_assert(sizeof text.style == 96);
    std::memcpy(out.data() + 264, &text.style, sizeof text.style);
    return out;
}

std::vector<platform::CompoundNode> FilmFileNodes(const Film& film)
{
    using platform::CompoundNode;
    std::vector<CompoundNode> root;
    root.push_back(CompoundNode::Stream("VERSION", WordBytes(static_cast<std::int32_t>(kFilmVersion))));
    // The reader joins folder and name with a backslash; the whole path as the name gives it back as is.
    if (!film.GetMusicPath().empty())
        root.push_back(CompoundNode::Stream("BGMUSIC", FileReferenceRecord({"", film.GetMusicPath()})));
    root.push_back(CompoundNode::Stream("LOOP", WordBytes(film.GetLoop())));
    root.push_back(CompoundNode::Stream("AUTOPLAY", WordBytes(film.GetAdvanceMode())));
    for (std::int32_t number = 1; number <= film.ItemCount(); ++number) {
        const FilmItem item = film.GetItem(number);
        std::vector<CompoundNode> link{CompoundNode::Stream("FILMITEM", ItemRecord(item))};
        if (!item.texts.empty()) {
            std::vector<CompoundNode> texts;
            for (std::size_t k = 0; k < item.texts.size(); ++k)
                texts.push_back(CompoundNode::Stream("TEXT" + std::to_string(k + 1),
                                                     CaptionRecord(item.texts[k], item.texts[k].ordinal)));
            link.push_back(CompoundNode::Storage("TEXTLIST", std::move(texts)));
        }
        root.push_back(CompoundNode::Storage("FILMLINK" + std::to_string(number), std::move(link)));
    }
    return root;
}

base::Result<std::vector<std::uint8_t>> WriteFilmFile(const Film& film)
{
    return platform::WriteCompoundFile(FilmFileNodes(film));
}

} // namespace lumenar::film
