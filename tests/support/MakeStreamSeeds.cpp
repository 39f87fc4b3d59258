// Writes a small corpus of film streams for the film receiver's fuzz target: argv[1] is the folder.
// Each seed starts with the 8 chunk sizes (each byte + 1) the target cycles through.
#include "film/FilmStreamWriter.h"
#include "tests/support/FilmWriter.h"
#include "tests/support/WriteFile.h"

#include <cstdio>
#include <string>

using namespace lumenar;

namespace {

std::vector<std::uint8_t> Bytes(std::size_t size, std::uint8_t seed)
{
    std::vector<std::uint8_t> out(size);
    for (std::size_t i = 0; i < size; ++i)
        out[i] = static_cast<std::uint8_t>(seed + i * 13);
    return out;
}

void AddPhoto(film::Film& film, std::vector<film::ItemMedia>& media, std::size_t photo, std::size_t mask,
              std::size_t sound, const char* soundName)
{
    film::FilmItem item = testing::PhotoItem(photo == 0 ? "photo.jpg" : film::SizedName(photo, "photo.jpg"));
    item.mask.cstrName = film::SizedName(mask, "mask.jpg");
    item.sound.cstrName = film::SizedName(sound, soundName);
    const std::int32_t number = film.AddItem(item);
    film.AddText(number, testing::Caption("Seed", 2));
    media.push_back({.photo = Bytes(photo, 1), .mask = Bytes(mask, 2), .sound = Bytes(sound, 3)});
}

bool Write(const std::string& path, std::vector<std::uint8_t> chunks, const film::Film& film,
           const std::vector<film::ItemMedia>& media, const std::vector<std::uint8_t>& music)
{
    auto stream = film::WriteFilmStream(film, media, music, Bytes(5, 9));
    if (!stream.ok()) {
        std::fprintf(stderr, "make_stream_seeds: %s\n", stream.error().message.c_str());
        return false;
    }
    chunks.insert(chunks.end(), stream->begin(), stream->end());
    return testing::WriteFile(path, chunks);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: make_stream_seeds FOLDER\n");
        return 2;
    }
    const std::string dir = std::string(argv[1]) + "/";
    bool ok = true;

    film::Film empty;
    ok &= Write(dir + "empty", {255, 0, 1, 7, 200, 3, 64, 9}, empty, {}, {});

    film::Film photos;
    std::vector<film::ItemMedia> photoMedia;
    photos.SetMusic("C:\\Music\\" + film::SizedName(300, "song.wav"));
    AddPhoto(photos, photoMedia, 120, 40, 0, "n.wav");
    AddPhoto(photos, photoMedia, 0, 0, 0, "n.wav"); // Removed on arrival.
    AddPhoto(photos, photoMedia, 90, 0, 60, "n.wav");
    AddPhoto(photos, photoMedia, 50, 0, 48, "n.ca");
    ok &= Write(dir + "photos", {0, 0, 0, 0, 0, 0, 0, 0}, photos, photoMedia, Bytes(300, 4));
    ok &= Write(dir + "photos-small-chunks", {1, 2, 3, 5, 8, 13, 21, 34}, photos, photoMedia, Bytes(300, 4));

    film::Film mixed;
    std::vector<film::ItemMedia> mixedMedia;
    mixed.SetMusic("D:\\track01.cda");
    film::FilmItem clip;
    clip.kind = film::kFilmItemClip;
    clip.clipFile.cstrName = film::SizedName(70, "c.avi");
    clip.clipPicture1.cstrName = film::SizedName(20, "a.jpg");
    clip.sound.cstrName = film::SizedName(30, "c.wav");
    mixed.AddItem(clip);
    mixedMedia.push_back({.clipPicture1 = Bytes(20, 5), .clipFile = Bytes(70, 6), .sound = Bytes(30, 7)});
    film::FilmItem show;
    show.kind = film::kFilmItemPowerPoint;
    show.showFile.cstrName = "55s.pps";
    mixed.AddItem(show);
    mixedMedia.push_back({});
    AddPhoto(mixed, mixedMedia, 33, 11, 0, "n.wav");
    ok &= Write(dir + "clip-and-show", {17, 17, 17, 17, 17, 17, 17, 17}, mixed, mixedMedia, {});
    return ok ? 0 : 1;
}
