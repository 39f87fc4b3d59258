#include "app/PlayFolder.h"

#include "app/InputFiles.h"
#include "app/PhotoFolder.h"
#include "platform/TempFile.h"

#include <filesystem>
#include <system_error>

namespace lumenar::app {

FolderFilmFile::~FolderFilmFile()
{
    if (!path_.empty()) {
        std::error_code ignored; // A file already gone is what we wanted.
        std::filesystem::remove(path_, ignored);
    }
}

base::Result<FolderFilmFile> FolderFilmFile::Pack(const std::string& folder)
{
    const std::vector<std::uint8_t> stream = LUM_TRY(PackPhotoFolder(folder, FolderFilmOptions{}, nullptr));
    std::error_code error;
    const std::filesystem::path temporary = std::filesystem::temp_directory_path(error);
    if (error)
        return base::Error{base::ErrorCode::Io, "no temporary folder for the film (" + error.message() + ")"};
    FolderFilmFile file;
    file.path_ = LUM_TRY(platform::CreateTempFile(temporary.string(), "lum"));
    LUM_TRY(WriteOutputFile(file.path_, stream));
    return file;
}

bool IsFolder(const std::string& path)
{
    std::error_code error;
    return std::filesystem::is_directory(path, error);
}

} // namespace lumenar::app
