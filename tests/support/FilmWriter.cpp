#include "tests/support/FilmWriter.h"

#include "film/FilmReceiver.h"
#include "film/FilmStreamWriter.h"
#include "tests/support/WriteFile.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

namespace lumenar::testing {

namespace {

void Check(bool ok, const char* what)
{
    if (!ok) {
        std::fprintf(stderr, "film writer: %s failed\n", what);
        std::abort();
    }
}

void Put(Bytes& out, std::size_t offset, const Bytes& bytes)
{
    std::memcpy(out.data() + offset, bytes.data(), bytes.size());
}

void PutText(Bytes& out, std::size_t offset, std::size_t size, const std::string& text)
{
    std::memcpy(out.data() + offset, text.data(), std::min(size, text.size()));
}

} // namespace

Bytes WriteCompoundFile(const std::vector<Node>& root)
{
    auto bytes = platform::WriteCompoundFile(root);
    if (!bytes.ok())
        std::fprintf(stderr, "film writer: %s\n", bytes.error().message.c_str());
    Check(bytes.ok(), "compound file");
    return std::move(bytes).value();
}

void WriteCompoundFileTo(const std::string& path, const std::vector<Node>& root)
{
    Check(WriteFile(path, testing::WriteCompoundFile(root)), "write file");
}

Bytes Word(std::uint32_t value)
{
    return {static_cast<std::uint8_t>(value), static_cast<std::uint8_t>(value >> 8),
            static_cast<std::uint8_t>(value >> 16), static_cast<std::uint8_t>(value >> 24)};
}

Bytes FileReference(const film::FilmFile& file)
{
    Bytes out(516, 0);
    PutText(out, 0, 260, file.cstrPath);
    PutText(out, 260, 256, file.cstrName);
    return out;
}

Bytes ItemRecord(const film::FilmItem& item, const film::FilmFile& slotC, const film::FilmFile& slotE)
{
    Bytes out(3144, 0);
    switch (item.kind) {
    case film::kFilmItemPhoto:
        Put(out, 0, FileReference(item.photo));
        Put(out, 516, FileReference(item.mask));
        break;
    case film::kFilmItemClip:
        Put(out, 0, FileReference(item.clipFile));
        Put(out, 516, FileReference(item.clipPicture1));
        Put(out, 1548, FileReference(item.clipPicture2));
        break;
    case film::kFilmItemPowerPoint:
        Put(out, 0, FileReference(item.showFile));
        break;
    default:
        break;
    }
    Put(out, 1032, FileReference(slotC));
    Put(out, 2064, FileReference(slotE));
    Put(out, 2580, FileReference(item.sound));
    const std::int32_t words[] = {item.width,    item.height,  item.displaySeconds, item.effect,
                                  item.effectMs, item.index,   item.kind,           item.soundMode,
                                  item.rect[0],  item.rect[1], item.rect[2],        item.rect[3]};
    for (std::size_t i = 0; i < std::size(words); ++i)
        Put(out, 3096 + 4 * i, Word(static_cast<std::uint32_t>(words[i])));
    return out;
}

Bytes CaptionRecord(const film::FilmText& text, std::int32_t storedOrdinal)
{
    Bytes out(360, 0);
    Put(out, 0, Word(static_cast<std::uint32_t>(storedOrdinal)));
    Put(out, 4, Word(static_cast<std::uint32_t>(text.effect)));
    PutText(out, 8, 256, text.text);
    std::memcpy(out.data() + 264, &text.style, sizeof text.style);
    return out;
}

std::vector<Node> FilmNodes(const FilmDescription& film)
{
    std::vector<Node> root;
    if (film.version)
        root.push_back(Node::Stream("VERSION", Word(*film.version)));
    if (film.music)
        root.push_back(Node::Stream("BGMUSIC", FileReference(*film.music)));
    if (film.loop)
        root.push_back(Node::Stream("LOOP", Word(static_cast<std::uint32_t>(*film.loop))));
    if (film.autoplay)
        root.push_back(Node::Stream("AUTOPLAY", Word(static_cast<std::uint32_t>(*film.autoplay))));
    for (std::size_t i = 0; i < film.items.size(); ++i) {
        const ItemDescription& item = film.items[i];
        std::vector<Node> link{Node::Stream("FILMITEM", ItemRecord(item.item))};
        if (item.captions) {
            std::vector<Node> texts;
            for (std::size_t k = 0; k < item.captions->size(); ++k)
                texts.push_back(
                    Node::Stream("TEXT" + std::to_string(k + 1),
                                 CaptionRecord((*item.captions)[k], static_cast<std::int32_t>(k + 7))));
            link.push_back(Node::Storage("TEXTLIST", std::move(texts)));
        }
        root.push_back(Node::Storage("FILMLINK" + std::to_string(i + 1), std::move(link)));
    }
    for (const Node& extra : film.extraRootElements)
        root.push_back(extra);
    return root;
}

Bytes StreamOfFilmFile(const Bytes& file)
{
    // Byte by byte: g++ 12 at -O2 takes a ranged insert of the short markers for an overflow.
    Bytes stream;
    for (std::string_view part : {film::kFilmMarker, std::string_view(), film::kMediaMarker}) {
        for (char c : part)
            stream.push_back(static_cast<std::uint8_t>(c));
        if (part.empty())
            for (std::uint8_t byte : file)
                stream.push_back(byte);
    }
    return stream;
}

Bytes FilmFileOfVersion(std::uint32_t version)
{
    FilmDescription description;
    description.version = version;
    description.items = {{PhotoItem(film::SizedName(10, "p.jpg")), std::nullopt}};
    return testing::WriteCompoundFile(FilmNodes(description));
}

film::FilmItem PhotoItem(std::string photoName, std::int32_t effect, std::int32_t displaySeconds)
{
    film::FilmItem item;
    item.kind = film::kFilmItemPhoto;
    item.photo = {"", std::move(photoName)};
    item.width = 640;
    item.height = 480;
    item.displaySeconds = displaySeconds;
    item.effect = effect;
    item.effectMs = 1500;
    item.rect[2] = 640;
    item.rect[3] = 480;
    return item;
}

film::FilmText Caption(std::string text, std::int32_t effect, std::uint32_t seed)
{
    film::FilmText caption;
    caption.text = std::move(text);
    caption.effect = effect;
    auto* bytes = reinterpret_cast<std::uint8_t*>(&caption.style);
    for (std::size_t i = 0; i < sizeof caption.style; ++i)
        bytes[i] = static_cast<std::uint8_t>(seed * 31 + i * 7);
    std::memset(caption.style.font.faceName, 0, sizeof caption.style.font.faceName);
    std::strcpy(caption.style.font.faceName, "Arial");
    return caption;
}

std::string TempPath(const std::string& stem)
{
    static std::atomic<int> counter{0};
    const char* dir = std::getenv("TMPDIR");
    return std::string(dir != nullptr ? dir : "/tmp") + "/lumenar-test-" + std::to_string(getpid()) + "-" +
           std::to_string(counter++) + "-" + stem;
}

std::string WriteTempFile(const Bytes& bytes, const std::string& stem)
{
    const std::string path = TempPath(stem);
    Check(WriteFile(path, bytes), "write a temporary file");
    return path;
}

} // namespace lumenar::testing
