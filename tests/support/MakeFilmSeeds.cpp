// Writes a small corpus of film files for the film reader's fuzz target: argv[1] is the folder.
#include "tests/support/FilmWriter.h"

#include <cstdio>
#include <string>

using namespace lumenar;
using namespace lumenar::testing;

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: make_film_seeds FOLDER\n");
        return 2;
    }
    const std::string dir = argv[1];
    FilmDescription empty;
    FilmDescription full;
    full.music = film::FilmFile{"C:\\Music\\", "song.mp3"};
    full.loop = 0;
    full.autoplay = film::kAdvanceManual;
    full.items.push_back(
        {PhotoItem("123456photo.jpg", 12), std::vector<film::FilmText>{Caption("Hello", 3)}});
    film::FilmItem clip;
    clip.kind = film::kFilmItemClip;
    clip.clipFile = {"", "999clip.avi"};
    clip.clipPicture1 = {"", "10first.jpg"};
    clip.clipPicture2 = {"", "20last.jpg"};
    full.items.push_back({clip, std::nullopt});
    full.items.push_back({PhotoItem("77p.jpg", 150),
                          std::vector<film::FilmText>{Caption("One", 60, 2), Caption("Two\r\nlines", 1, 3)}});
    // Names and sizes of a hostile-input campaign: names that climb out of folders or hold separators
    // and bytes past ASCII, byte counts past 32 bits, effect numbers past the tables, a caption longer
    // than its field.
    FilmDescription hostile;
    hostile.music = film::FilmFile{"..\\..\\", "4294967296_..\\..\\song.wav"};
    for (const char* name : {"../../../etc/passwd.jpg", "99999999999999999999_x.jpg", "\xff\xfe\x80.jpg",
                             "4294967295_a/b\\c.jpg"}) {
        film::FilmItem item = PhotoItem(name, 99999, -1);
        item.sound = film::FilmFile{"C:\\", std::string(name) + ".ca"};
        item.effect = -5;
        hostile.items.push_back({item, std::nullopt});
    }
    hostile.items[0].captions = std::vector<film::FilmText>{Caption(std::string(300, 'x'), 12345)};
    WriteCompoundFileTo(dir + "/hostile.flm", FilmNodes(hostile));
    FilmDescription newer;
    newer.version = 201;
    WriteCompoundFileTo(dir + "/empty.flm", FilmNodes(empty));
    WriteCompoundFileTo(dir + "/full.flm", FilmNodes(full));
    WriteCompoundFileTo(dir + "/newer.flm", FilmNodes(newer));
    return 0;
}
