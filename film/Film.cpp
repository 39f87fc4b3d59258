#include "film/Film.h"

#include "records/CaptionFont.h"
#include "platform/Path.h"

#include <algorithm>
#include <cstring>

namespace lumenar::film {

std::string JoinFilmFile(const FilmFile& file)
{
    if (file.cstrPath.empty())
        return file.cstrName;
    std::string path = file.cstrPath;
    if (path.back() != '\\')
        path += '\\';
    return path + file.cstrName;
}

std::int32_t LeadingNumber(std::string_view name)
{
    const std::string base = platform::SplitPath(name).name;
    std::uint32_t value = 0;
    for (char c : base) {
        if (c < '0' || c > '9')
            break;
        value = value * 10u + static_cast<std::uint32_t>(c - '0');
    }
    return static_cast<std::int32_t>(value);
}

bool FilmText::operator==(const FilmText& other) const
{
    return ordinal == other.ordinal && effect == other.effect && text == other.text &&
           std::memcmp(&style, &other.style, sizeof style) == 0;
}

bool FilmItem::operator==(const FilmItem& other) const
{
    return photo == other.photo && mask == other.mask && clipFile == other.clipFile &&
           clipPicture1 == other.clipPicture1 && clipSpare1 == other.clipSpare1 &&
           clipPicture2 == other.clipPicture2 && clipSpare2 == other.clipSpare2 &&
           showFile == other.showFile && sound == other.sound && userWord == other.userWord &&
           width == other.width && height == other.height && displaySeconds == other.displaySeconds &&
           effect == other.effect && effectMs == other.effectMs && index == other.index &&
           kind == other.kind && soundMode == other.soundMode &&
           std::equal(std::begin(rect), std::end(rect), std::begin(other.rect)) && texts == other.texts;
}

Film::Film() : captionStyle_(std::make_unique<records::TextRecord>(records::DefaultCaptionStyle()))
{
}

FilmItem* Film::Find(std::int32_t index)
{
    auto it = std::find_if(items_.begin(), items_.end(),
                           [index](const FilmItem& item) { return item.index == index; });
    return it == items_.end() ? nullptr : &*it;
}

std::int32_t Film::AddItem(const FilmItem& item)
{
    FilmItem copy = item;
    copy.texts.clear();
    copy.index = items_.empty() ? 1 : items_.back().index + 1;
    itemCount_ = copy.index;
    items_.push_back(std::move(copy));
    return items_.back().index;
}

FilmItem Film::GetItem(std::int32_t index) const
{
    for (const FilmItem& item : items_) {
        if (item.index == index)
            return item;
    }
    FilmItem none;
    none.index = -1;
    none.kind = kFilmItemNone;
    return none;
}

void Film::SetItem(std::int32_t index, const FilmItem& item)
{
    if (FilmItem* stored = Find(index))
        *stored = item;
}

void Film::RemoveItem(std::int32_t index)
{
    auto it = std::find_if(items_.begin(), items_.end(),
                           [index](const FilmItem& item) { return item.index == index; });
    if (it == items_.end())
        return;
    items_.erase(it);
    --itemCount_;
    std::int32_t number = 1;
    for (FilmItem& item : items_)
        item.index = number++;
}

void Film::AddText(std::int32_t itemIndex, const FilmText& text)
{
    FilmItem* item = Find(itemIndex);
    if (item == nullptr)
        return;
    FilmText copy = text;
    copy.ordinal = item->texts.empty() ? 1 : item->texts.back().ordinal + 1;
    item->texts.push_back(std::move(copy));
}

void Film::SetMusic(std::string_view fullPath)
{
    auto split = platform::SplitPath(fullPath);
    musicFolder_ = std::move(split.folder);
    musicName_ = std::move(split.name);
}

} // namespace lumenar::film
