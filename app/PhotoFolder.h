#pragma once

#include "app/FilmManifest.h"
#include "base/Result.h"

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

namespace lumenar::app {

/// The picture transition a folder's photos get unless told otherwise: the cross-fade row.
inline constexpr std::int32_t kFolderEffect = 41;

/// How a folder becomes a film.
struct FolderFilmOptions
{
    std::int32_t seconds = 5;            ///< Time on screen of each photo.
    std::int32_t effect = kFolderEffect; ///< Picture-effect row of every transition.
    std::int32_t effectMs = 1000;        ///< Length of every transition.
    bool captionNames = false;           ///< Each photo shows its file name, without the extension.
};

/// True when `a` sorts before `b` in natural order: runs of digits compare as numbers (IMG_2 before
/// IMG_10), everything else byte by byte, case-insensitively for ASCII letters.
bool NaturalLess(std::string_view a, std::string_view b);

/// The names of the photo files (.jpg, .jpeg, .png, .webp, any case) directly in `folder`, in natural
/// order. Other files, hidden ones (names that start with a dot) and folders are left out. Fails when the
/// folder cannot be read or holds no photo.
base::Result<std::vector<std::string>> ListPhotoFiles(const std::string& folder);

/// The manifest that makes the photos `names` (in that order) a film, automatic and played once.
std::string FolderManifest(const std::vector<std::string>& names, const FolderFilmOptions& options);

/// The filter `lumenar pack` passes every photo and mask through (NormalisePhoto). It writes one line
/// to `notes` for each picture that it changed, saying what and why.
ManifestPictureFilter NormalisingFilter(std::FILE* notes);

/// Reads a folder's photos as a film, each photo made fit for the player through NormalisingFilter.
base::Result<ManifestFilm> ReadPhotoFolder(const std::string& folder, const FolderFilmOptions& options,
                                           std::FILE* notes);

/// The folder as a film stream, ready for the player: ReadPhotoFolder, then the stream writer.
base::Result<std::vector<std::uint8_t>> PackPhotoFolder(const std::string& folder,
                                                        const FolderFilmOptions& options, std::FILE* notes);

} // namespace lumenar::app
