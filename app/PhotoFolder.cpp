#include "app/PhotoFolder.h"

#include "app/InputFiles.h"
#include "app/PhotoNormaliser.h"
#include "base/StrCat.h"
#include "film/FilmStreamWriter.h"
#include "platform/CodePage.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

namespace lumenar::app {

namespace {

using base::StrCat;

char Lower(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool IsDigit(char c)
{
    return c >= '0' && c <= '9';
}

bool IsPhotoName(const std::string& name)
{
    // Hidden files are left out: "._IMG_1.jpg" is a copied Mac's resource fork, not a photo.
    const std::size_t dot = name.rfind('.');
    if (name.empty() || name[0] == '.' || dot == std::string::npos)
        return false;
    std::string extension = name.substr(dot + 1);
    std::transform(extension.begin(), extension.end(), extension.begin(), Lower);
    return extension == "jpg" || extension == "jpeg" || extension == "png" || extension == "webp";
}

// A manifest value in double quotes, with its quotes and backslashes escaped.
std::string Quoted(std::string_view text)
{
    std::string out = "\"";
    for (char c : text) {
        if (c == '"' || c == '\\')
            out += '\\';
        out += c;
    }
    return out + "\"";
}

std::string WithoutExtension(const std::string& name)
{
    const std::size_t dot = name.rfind('.');
    return dot == std::string::npos || dot == 0 ? name : name.substr(0, dot);
}

} // namespace

bool NaturalLess(std::string_view a, std::string_view b)
{
    std::size_t i = 0, j = 0;
    while (i < a.size() && j < b.size()) {
        if (IsDigit(a[i]) && IsDigit(b[j])) {
            // Compare the numbers without their leading zeros: the longer one is larger, else digit by digit.
            std::size_t ai = i, bj = j;
            while (ai < a.size() && a[ai] == '0')
                ++ai;
            while (bj < b.size() && b[bj] == '0')
                ++bj;
            std::size_t aEnd = ai, bEnd = bj;
            while (aEnd < a.size() && IsDigit(a[aEnd]))
                ++aEnd;
            while (bEnd < b.size() && IsDigit(b[bEnd]))
                ++bEnd;
            if (aEnd - ai != bEnd - bj)
                return aEnd - ai < bEnd - bj;
            const int order = a.substr(ai, aEnd - ai).compare(b.substr(bj, bEnd - bj));
            if (order != 0)
                return order < 0;
            // Equal numbers: fewer leading zeros first, so that the order is total.
            if (ai - i != bj - j)
                return ai - i < bj - j;
            i = aEnd;
            j = bEnd;
            continue;
        }
        if (Lower(a[i]) != Lower(b[j]))
            return static_cast<unsigned char>(Lower(a[i])) < static_cast<unsigned char>(Lower(b[j]));
        ++i;
        ++j;
    }
    if (a.size() - i != b.size() - j)
        return a.size() - i < b.size() - j;
    return a < b; // Names that differ only in case: a fixed order all the same.
}

base::Result<std::vector<std::string>> ListPhotoFiles(const std::string& folder)
{
    std::error_code error;
    std::filesystem::directory_iterator entries(folder, error);
    if (error)
        return base::Error{base::ErrorCode::NotFound,
                           StrCat("cannot read the folder (", error.message(), ")")};
    std::vector<std::string> names;
    for (const auto& entry : entries) {
        const std::string name = entry.path().filename().string();
        if (IsPhotoName(name) && entry.is_regular_file(error))
            names.push_back(name);
    }
    if (names.empty())
        return base::Error{base::ErrorCode::NotFound, "the folder holds no photo (.jpg, .jpeg, .png, .webp)"};
    std::sort(names.begin(), names.end(),
              [](const std::string& a, const std::string& b) { return NaturalLess(a, b); });
    return names;
}

namespace {

// The first code page that holds every caption, so that file names in any script become captions;
// the film's default page when none does (packing then names the caption that does not fit).
int CaptionCodePage(const std::vector<std::string>& captions)
{
    for (int page : {1252, 1250, 1251, 1253, 1254, 1255, 1256, 1257, 1258, 932, 936, 949, 950})
        if (std::all_of(captions.begin(), captions.end(),
                        [page](const std::string& text) { return platform::FromUtf8(text, page).ok(); }))
            return page;
    return platform::kDefaultCodePage;
}

} // namespace

std::string FolderManifest(const std::vector<std::string>& names, const FolderFilmOptions& options)
{
    std::string text = "advance automatic\nloop 0\n";
    if (options.captionNames) {
        std::vector<std::string> captions;
        for (const std::string& name : names)
            captions.push_back(WithoutExtension(name));
        if (const int page = CaptionCodePage(captions); page != platform::kDefaultCodePage)
            text += StrCat("codepage ", page, "\n");
    }
    for (const std::string& name : names) {
        text += StrCat("photo ", Quoted(name), "\n  seconds ", options.seconds, "\n  effect ", options.effect,
                       "\n  effect-ms ", options.effectMs, "\n");
        if (options.captionNames)
            text += StrCat("  caption text=", Quoted(WithoutExtension(name)),
                           " x=20 y=548 height=-28 colour=0xFFFFFF shadow=1\n");
    }
    return text;
}

ManifestPictureFilter NormalisingFilter(std::FILE* notes)
{
    return [notes](FilmPicture picture, PictureRole role, int item) -> base::Result<FilmPicture> {
        NormalisedPhoto photo = LUM_TRY(NormalisePhoto(picture.bytes));
        if (!photo.change.empty() && notes != nullptr)
            std::fprintf(notes, "%s %d (%s): %s\n", role == PictureRole::Photo ? "photo" : "mask of photo",
                         item, picture.name.c_str(), photo.change.c_str());
        if (photo.becameJpeg)
            picture.name = WithoutExtension(picture.name) + ".jpg";
        picture.bytes = std::move(photo.bytes);
        return picture;
    };
}

base::Result<ManifestFilm> ReadPhotoFolder(const std::string& folder, const FolderFilmOptions& options,
                                           std::FILE* notes)
{
    const std::vector<std::string> names = LUM_TRY(ListPhotoFiles(folder));
    const std::filesystem::path root(folder);
    auto film = ReadFilmManifest(
        FolderManifest(names, options),
        [&root](const std::string& name) -> base::Result<std::vector<std::uint8_t>> {
            auto bytes = ReadInputFile((root / name).string());
            if (!bytes.ok())
                return base::Error{bytes.error().code, StrCat(name, ": ", bytes.error().message)};
            return bytes;
        },
        NormalisingFilter(notes));
    // The manifest is made here, so its line numbers mean nothing to the user: the file name is enough.
    if (!film.ok() && film.error().message.rfind("line ", 0) == 0) {
        const std::size_t colon = film.error().message.find(": ");
        if (colon != std::string::npos)
            return base::Error{film.error().code, film.error().message.substr(colon + 2)};
    }
    return film;
}

base::Result<std::vector<std::uint8_t>> PackPhotoFolder(const std::string& folder,
                                                        const FolderFilmOptions& options, std::FILE* notes)
{
    const ManifestFilm film = LUM_TRY(ReadPhotoFolder(folder, options, notes));
    return film::WriteFilmStream(film.film, film.media, film.music);
}

} // namespace lumenar::app
