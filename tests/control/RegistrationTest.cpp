#include "control/Registration.h"

#include "tests/support/FilmWriter.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

namespace lumenar::control {
namespace {

namespace fs = std::filesystem;

std::string Read(const fs::path& path)
{
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

void Write(const fs::path& path, const std::string& text)
{
    fs::create_directories(path.parent_path());
    std::ofstream(path) << text;
}

/// Every regular file under `root` with its contents, leaving out what the desktop and mime tools
/// generate (their caches and the per-type files they derive from the packages).
std::map<std::string, std::string> Snapshot(const fs::path& root)
{
    std::map<std::string, std::string> files;
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
        const std::string relative = fs::relative(entry.path(), root).string();
        const bool generated = relative.rfind("mime/", 0) == 0 && relative.rfind("mime/packages/", 0) != 0;
        if (entry.is_regular_file() && !generated && relative != "applications/mimeinfo.cache")
            files[relative] = Read(entry.path());
    }
    return files;
}

class RegistrationTest : public ::testing::Test
{
protected:
    RegistrationTest() : root_(testing::TempPath("xdg")) { fs::create_directories(root_); }
    ~RegistrationTest() override { fs::remove_all(root_); }
    fs::path root_;
};

TEST_F(RegistrationTest, WritesTheClassEntriesDesktopEntryAndFilmType)
{
    ASSERT_TRUE(RegisterServer(root_, "/opt/lumenar/liblumenar.so", "/opt/lumenar/lumenar").ok());
    const std::string store = Read(root_ / kStorePath);
    struct Row
    {
        const char* line;
    } rows[] = {
        {"Lumenar.SequenceCtl.1\t@\tVistrel Control"},
        {"Lumenar.SequenceCtl\\CurVer\t@\tLumenar.SequenceCtl.1"},
        {"CLSID\\{3F6A2C41-8D1E-4B57-9A0C-5E71D248B613}\\InprocServer32\t@\t/opt/lumenar/liblumenar.so"},
        {"CLSID\\{3F6A2C41-8D1E-4B57-9A0C-5E71D248B613}\\InprocServer32\tThreadingModel\tApartment"},
        {"CLSID\\{3F6A2C41-8D1E-4B57-9A0C-5E71D248B613}\\ToolboxBitmap32\t@\t/opt/lumenar/liblumenar.so, "
         "102"},
        {"CLSID\\{3F6A2C41-8D1E-4B57-9A0C-5E71D248B613}\\MiscStatus\\1\t@\t131473"},
        {"CLSID\\{3F6A2C41-8D1E-4B57-9A0C-5E71D248B613}\\VersionIndependentProgID\t@\tLumenar.SequenceCtl"},
        {"TypeLib\\{3F6A2C40-8D1E-4B57-9A0C-5E71D248B613}\\1.0\t@\tLumenar 1.0 Type Library"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.line);
        EXPECT_NE(store.find(std::string(row.line) + "\n"), std::string::npos);
    }
    const std::string desktop = Read(root_ / kDesktopEntryPath);
    EXPECT_NE(desktop.find("Exec=\"/opt/lumenar/lumenar\" play %u\n"), std::string::npos);
    EXPECT_NE(desktop.find("MimeType=application/x-vistrel-film;\n"), std::string::npos);
    const std::string mime = Read(root_ / kMimePackagePath);
    EXPECT_NE(mime.find("<glob pattern=\"*.film\"/>"), std::string::npos);
    EXPECT_NE(mime.find("value=\"VistrelanFilmDescription\" offset=\"0\""), std::string::npos);
}

TEST_F(RegistrationTest, UnregisterRemovesExactlyWhatRegisterWrote)
{
    // Someone else's store entries and files in the same folders.
    Write(root_ / kStorePath,
          "# Lumenar per-user registration store: KEY<TAB>NAME<TAB>VALUE, NAME \"@\" is the "
          "key's own value.\nOther.Control.1\t@\tOther\n");
    Write(root_ / "applications/other.desktop", "[Desktop Entry]\nName=Other\n");
    Write(root_ / "mime/packages/other.xml", "<mime-info/>\n");
    Write(root_ / "lumenar/notes.txt", "keep me\n");
    const auto before = Snapshot(root_);
    for (int round = 0; round < 2; ++round) { // Registering twice leaves one set of entries.
        SCOPED_TRACE(round);
        ASSERT_TRUE(RegisterServer(root_, "/x/liblumenar.so", "/x/lumenar").ok());
    }
    const std::string store = Read(root_ / kStorePath);
    EXPECT_NE(store.find("Other.Control.1\t@\tOther\n"), std::string::npos);
    const std::string progLine = "Lumenar.SequenceCtl.1\t@\tVistrel Control\n";
    EXPECT_EQ(store.find(progLine), store.rfind(progLine));
    ASSERT_TRUE(UnregisterServer(root_).ok());
    EXPECT_EQ(Snapshot(root_), before);
    ASSERT_TRUE(UnregisterServer(root_).ok()) << "unregistering twice is not an error";
}

} // namespace
} // namespace lumenar::control
