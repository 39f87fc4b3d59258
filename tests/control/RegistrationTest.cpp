#include "control/Registration.h"

#include "tests/support/FilmWriter.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <sstream>
#include <string>
#include <vector>

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

/// Every file (with its contents) and folder (ending in '/') under `root`, leaving out what the desktop
/// and mime tools generate (their caches and the per-type files they derive from the packages).
std::map<std::string, std::string> Snapshot(const fs::path& root)
{
    std::map<std::string, std::string> entries;
    if (!fs::exists(root))
        return entries;
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
        const std::string relative = fs::relative(entry.path(), root).string();
        // Paths inside the data folder, whether it is `root` itself or its "share" folder.
        const std::string inData = relative.rfind("share/", 0) == 0 ? relative.substr(6) : relative;
        const bool generated = (inData.rfind("mime/", 0) == 0 && inData.rfind("mime/packages", 0) != 0) ||
                               inData == "applications/mimeinfo.cache";
        if (generated)
            continue;
        if (entry.is_directory())
            entries[relative + "/"] = "";
        else
            entries[relative] = Read(entry.path());
    }
    return entries;
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
    const char* lines[] = {
        "Lumenar.SequenceCtl.1\t@\tVistrel Control",
        "Lumenar.SequenceCtl\\CurVer\t@\tLumenar.SequenceCtl.1",
        "CLSID\\{3F6A2C41-8D1E-4B57-9A0C-5E71D248B613}\\InprocServer32\t@\t/opt/lumenar/liblumenar.so",
        "CLSID\\{3F6A2C41-8D1E-4B57-9A0C-5E71D248B613}\\InprocServer32\tThreadingModel\tApartment",
        ("CLSID\\{3F6A2C41-8D1E-4B57-9A0C-5E71D248B613}\\ToolboxBitmap32\t@\t/opt/lumenar/liblumenar.so, "
         "102"),
        "CLSID\\{3F6A2C41-8D1E-4B57-9A0C-5E71D248B613}\\MiscStatus\\1\t@\t131473",
        "CLSID\\{3F6A2C41-8D1E-4B57-9A0C-5E71D248B613}\\VersionIndependentProgID\t@\tLumenar.SequenceCtl",
        "TypeLib\\{3F6A2C40-8D1E-4B57-9A0C-5E71D248B613}\\1.0\t@\tLumenar 1.0 Type Library",
    };
    for (const char* line : lines)
        EXPECT_NE(store.find(std::string(line) + "\n"), std::string::npos) << line;
    const std::string desktop = Read(root_ / kDesktopEntryPath);
    EXPECT_NE(desktop.find("Exec=\"/opt/lumenar/lumenar\" play %u\n"), std::string::npos);
    EXPECT_NE(desktop.find("MimeType=application/x-vistrel-film;\n"), std::string::npos);
    const std::string mime = Read(root_ / kMimePackagePath);
    EXPECT_NE(mime.find("<glob pattern=\"*.film\"/>"), std::string::npos);
    EXPECT_NE(mime.find("value=\"VistrelanFilmDescription\" offset=\"0\""), std::string::npos);
}

TEST_F(RegistrationTest, RoundTripsLeaveEveryoneElsesFilesAsTheyWere)
{
    const fs::path data = root_ / "share";
    const std::string userDesktop = "[Desktop Entry]\nName=My own player\n";
    const std::string userPackage = "<mime-info/>\n";
    struct Row
    {
        const char* name;
        std::function<void()> before;      // Files there before registration.
        bool registers;                    // Else refused, with nothing written.
        std::function<void()> between;     // What the user does while registered.
        std::vector<std::string> alsoKept; // Entries unregistration leaves beyond those of before.
    };
    const Row rows[] = {
        // Unregistration left the folders and the mime database it had made.
        {"no data folder yet", [] {}, true, [] {}, {}},
        {"someone else's entries and files in the same folders",
         [&] {
             Write(data / kStorePath, "# Lumenar per-user registration store: KEY<TAB>NAME<TAB>VALUE, NAME "
                                      "\"@\" is the key's own value.\nOther.Control.1\t@\tOther\n");
             Write(data / "applications/other.desktop", "[Desktop Entry]\nName=Other\n");
             Write(data / "mime/packages/other.xml", userPackage);
             Write(data / "lumenar/notes.txt", "keep me\n");
         },
         true,
         [] {},
         {}},
        // Registration overwrote these, and unregistration then deleted them.
        {"a user's own desktop entry",
         [&] { Write(data / kDesktopEntryPath, userDesktop); },
         false,
         [] {},
         {}},
        {"a user's own mime package", [&] { Write(data / kMimePackagePath, userPackage); }, false, [] {}, {}},
        {"the desktop entry changed after registration",
         [] {},
         true,
         [&] { Write(data / kDesktopEntryPath, userDesktop); },
         {"share/", "share/applications/", std::string("share/") + std::string(kDesktopEntryPath)}},
        {"a package added after registration",
         [] {},
         true,
         [&] { Write(data / "mime/packages/new.xml", userPackage); },
         {"share/", "share/mime/", "share/mime/packages/", "share/mime/packages/new.xml"}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        fs::remove_all(root_);
        fs::create_directories(root_);
        row.before();
        const auto before = Snapshot(root_);
        for (int round = 0; round < 2; ++round) { // Registering twice leaves one set of entries.
            SCOPED_TRACE(round);
            const base::Status registered = RegisterServer(data, "/x/liblumenar.so", "/x/lumenar");
            ASSERT_EQ(registered.ok(), row.registers);
            if (!registered.ok()) {
                EXPECT_NE(registered.error().message.find("was not written by 'lumenar register'"),
                          std::string::npos);
                EXPECT_EQ(Snapshot(root_), before) << "a refused registration writes nothing";
            }
        }
        if (row.registers) {
            const std::string store = Read(data / kStorePath);
            const std::string progLine = "Lumenar.SequenceCtl.1\t@\tVistrel Control\n";
            EXPECT_EQ(store.find(progLine), store.rfind(progLine));
            EXPECT_TRUE(fs::exists(data / "mime/mime.cache")) << "the mime database was built";
        }
        row.between();
        const auto registered = Snapshot(root_);
        ASSERT_TRUE(UnregisterServer(data).ok());
        auto after = Snapshot(root_);
        for (const std::string& kept : row.alsoKept) {
            SCOPED_TRACE(kept);
            ASSERT_EQ(after.count(kept), 1u);
            EXPECT_EQ(after[kept], registered.at(kept));
            after.erase(kept);
        }
        EXPECT_EQ(after, before);
        if (fs::exists(data / "mime/packages/other.xml")) {
            EXPECT_TRUE(fs::exists(data / "mime/mime.cache")) << "the database was rebuilt, not deleted";
        }
        ASSERT_TRUE(UnregisterServer(data).ok()) << "unregistering twice is not an error";
    }
}

} // namespace
} // namespace lumenar::control
