#include "control/Registration.h"

#include "base/StrCat.h"
#include "platform/Process.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace lumenar::control {

using base::Error;
using base::ErrorCode;
using base::StrCat;

namespace {

constexpr std::string_view kStoreHeader =
    "# Lumenar per-user registration store: KEY<TAB>NAME<TAB>VALUE, NAME \"@\" is the key's own value.";

/// Toolbox bitmap resource and the control's miscellaneous status for the content aspect.
constexpr int kToolboxBitmap = 102;
constexpr int kMiscStatusContent = 131473;

std::filesystem::path Under(const std::string& folder, std::string_view relative)
{
    return std::filesystem::path(folder) / std::string(relative);
}

base::Status WriteText(const std::filesystem::path& path, const std::string& text)
{
    std::error_code error;
    std::filesystem::create_directories(path.parent_path(), error);
    const std::filesystem::path part = path.string() + ".part";
    {
        std::ofstream out(part, std::ios::binary | std::ios::trunc);
        out << text;
        if (!out.flush())
            return Error{ErrorCode::Io, StrCat("cannot write ", part.string())};
    }
    std::filesystem::rename(part, path, error);
    if (error)
        return Error{ErrorCode::Io, StrCat("cannot write ", path.string(), ": ", error.message())};
    return {};
}

std::vector<std::string> ReadLines(const std::filesystem::path& path)
{
    std::vector<std::string> lines;
    std::ifstream in(path);
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

std::string EntryLine(const StoreEntry& entry)
{
    return entry.key + "\t" + entry.name + "\t" + entry.value;
}

bool IsOurs(const std::string& line, const std::vector<StoreEntry>& entries)
{
    const std::size_t tab = line.find('\t');
    if (tab == std::string::npos)
        return false;
    const std::string key = line.substr(0, tab);
    for (const StoreEntry& entry : entries)
        if (entry.key == key)
            return true;
    return false;
}

/// Keys do not depend on the server's path, so unregistration finds them without it.
std::vector<StoreEntry> OurKeys()
{
    return ClassEntries("");
}

std::string DesktopEntry(std::string_view playerPath)
{
    std::string quoted = "\"";
    for (char c : playerPath) {
        if (c == '"' || c == '`' || c == '$' || c == '\\')
            quoted += '\\';
        quoted += c;
    }
    quoted += '"';
    return StrCat("[Desktop Entry]\n"
                  "Type=Application\n"
                  "Name=Lumenar\n"
                  "GenericName=Film player\n"
                  "Comment=Play Vistrel films\n"
                  "Exec=",
                  quoted,
                  " play %u\n"
                  "MimeType=",
                  kFilmMimeType,
                  ";\n"
                  "Terminal=false\n"
                  "NoDisplay=false\n"
                  "Categories=AudioVideo;Player;\n");
}

std::string MimePackage()
{
    // The film marker may follow a preamble; the type only claims streams that start with it.
    return StrCat("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                  "<mime-info xmlns=\"http://www.freedesktop.org/standards/shared-mime-info\">\n"
                  "  <mime-type type=\"",
                  kFilmMimeType,
                  "\">\n"
                  "    <comment>Vistrel film</comment>\n"
                  "    <magic priority=\"50\">\n"
                  "      <match type=\"string\" value=\"VistrelanFilmDescription\" offset=\"0\"/>\n"
                  "    </magic>\n"
                  "    <glob pattern=\"*.film\"/>\n"
                  "  </mime-type>\n"
                  "</mime-info>\n");
}

void RefreshDatabases(const std::string& dataFolder)
{
    platform::RunQuietly({"update-desktop-database", Under(dataFolder, "applications").string()});
    platform::RunQuietly({"update-mime-database", Under(dataFolder, "mime").string()});
}

} // namespace

base::Result<std::string> UserDataFolder()
{
    const char* xdg = std::getenv("XDG_DATA_HOME");
    if (xdg != nullptr && xdg[0] == '/')
        return std::string(xdg);
    const char* home = std::getenv("HOME");
    if (home != nullptr && home[0] == '/')
        return std::string(home) + "/.local/share";
    return Error{ErrorCode::InvalidInput, "neither XDG_DATA_HOME nor HOME is an absolute folder"};
}

std::vector<StoreEntry> ClassEntries(std::string_view serverPath)
{
    const std::string clsid = StrCat("CLSID\\", kClassId);
    const std::string typelib = StrCat("TypeLib\\", kLibraryId, "\\1.0");
    const std::string iface = StrCat("Interface\\", kInterfaceId);
    const std::string server(serverPath);
    return {
        {std::string(kProgId), "@", std::string(kDisplayName)},
        {StrCat(kProgId, "\\CLSID"), "@", std::string(kClassId)},
        {std::string(kVersionIndependentProgId), "@", std::string(kDisplayName)},
        {StrCat(kVersionIndependentProgId, "\\CLSID"), "@", std::string(kClassId)},
        {StrCat(kVersionIndependentProgId, "\\CurVer"), "@", std::string(kProgId)},
        {clsid, "@", std::string(kDisplayName)},
        {clsid + "\\ProgID", "@", std::string(kProgId)},
        {clsid + "\\VersionIndependentProgID", "@", std::string(kVersionIndependentProgId)},
        {clsid + "\\Programmable", "@", ""},
        {clsid + "\\InprocServer32", "@", server},
        {clsid + "\\InprocServer32", "ThreadingModel", "Apartment"},
        {clsid + "\\Control", "@", ""},
        {clsid + "\\Insertable", "@", ""},
        {clsid + "\\ToolboxBitmap32", "@", StrCat(server, ", ", kToolboxBitmap)},
        {clsid + "\\MiscStatus", "@", "0"},
        {clsid + "\\MiscStatus\\1", "@", std::to_string(kMiscStatusContent)},
        {clsid + "\\TypeLib", "@", std::string(kLibraryId)},
        {clsid + "\\Version", "@", "1.0"},
        {typelib, "@", "Lumenar 1.0 Type Library"},
        {typelib + "\\0\\linux64", "@", server},
        {typelib + "\\FLAGS", "@", "0"},
        {typelib + "\\HELPDIR", "@",
         server.substr(0, server.rfind('/') == std::string::npos ? 0 : server.rfind('/'))},
        {iface, "@", "ISequenceCtl"},
        {iface + "\\TypeLib", "@", std::string(kLibraryId)},
        {iface + "\\TypeLib", "Version", "1.0"},
    };
}

base::Status RegisterServer(const std::string& dataFolder, std::string_view serverPath,
                            std::string_view playerPath)
{
    const std::filesystem::path store = Under(dataFolder, kStorePath);
    const std::vector<StoreEntry> entries = ClassEntries(serverPath);
    std::string text;
    std::vector<std::string> lines = ReadLines(store);
    if (lines.empty() || lines[0] != kStoreHeader)
        text += std::string(kStoreHeader) + "\n";
    for (const std::string& line : lines)
        if (!IsOurs(line, entries))
            text += line + "\n";
    for (const StoreEntry& entry : entries)
        text += EntryLine(entry) + "\n";
    LUM_TRY(WriteText(store, text));
    LUM_TRY(WriteText(Under(dataFolder, kDesktopEntryPath), DesktopEntry(playerPath)));
    LUM_TRY(WriteText(Under(dataFolder, kMimePackagePath), MimePackage()));
    RefreshDatabases(dataFolder);
    return {};
}

base::Status UnregisterServer(const std::string& dataFolder)
{
    const std::filesystem::path store = Under(dataFolder, kStorePath);
    const std::vector<StoreEntry> keys = OurKeys();
    std::vector<std::string> kept;
    bool others = false;
    for (const std::string& line : ReadLines(store)) {
        if (IsOurs(line, keys))
            continue;
        kept.push_back(line);
        others = others || (line != kStoreHeader && !line.empty());
    }
    std::error_code error;
    if (std::filesystem::exists(store)) {
        if (others) {
            std::string text;
            for (const std::string& line : kept)
                text += line + "\n";
            LUM_TRY(WriteText(store, text));
        } else if (!std::filesystem::remove(store, error) && error) {
            return Error{ErrorCode::Io, StrCat("cannot remove ", store.string(), ": ", error.message())};
        }
    }
    for (std::string_view relative : {kDesktopEntryPath, kMimePackagePath}) {
        const std::filesystem::path path = Under(dataFolder, relative);
        if (!std::filesystem::remove(path, error) && error)
            return Error{ErrorCode::Io, StrCat("cannot remove ", path.string(), ": ", error.message())};
    }
    RefreshDatabases(dataFolder);
    return {};
}

} // namespace lumenar::control
