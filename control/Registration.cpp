#include "control/Registration.h"

#include "base/StrCat.h"
#include "platform/Process.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
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

namespace fs = std::filesystem;

fs::path Under(const std::string& folder, std::string_view relative)
{
    return fs::path(folder) / std::string(relative);
}

std::optional<std::string> ReadWhole(const fs::path& path)
{
    std::ifstream in(path, std::ios::binary);
    if (!in)
        return std::nullopt;
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

base::Status WriteText(const fs::path& path, const std::string& text)
{
    std::error_code error;
    const fs::path part = path.string() + ".part";
    {
        std::ofstream out(part, std::ios::binary | std::ios::trunc);
        out << text;
        out.close();
        if (!out) {
            fs::remove(part, error);
            return Error{ErrorCode::Io, StrCat("cannot write ", part.string())};
        }
    }
    fs::rename(part, path, error);
    if (error)
        return Error{ErrorCode::Io, StrCat("cannot write ", path.string(), ": ", error.message())};
    return {};
}

std::vector<std::string> ReadLines(const fs::path& path)
{
    std::vector<std::string> lines;
    std::ifstream in(path);
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

// FNV-1a, 64 bits: tells whether a file still holds what registration wrote into it.
std::string ContentHash(std::string_view text)
{
    std::uint64_t hash = 0xcbf29ce484222325u;
    for (char c : text) {
        hash ^= static_cast<unsigned char>(c);
        hash *= 0x100000001b3u;
    }
    char hex[17];
    std::snprintf(hex, sizeof hex, "%016llx", static_cast<unsigned long long>(hash));
    return hex;
}

/// What registration created: folders (absolute, in the order they were made) and files (relative to
/// the data folder) with the hash of what was written into them.
struct Record
{
    std::vector<std::string> folders;
    std::map<std::string, std::string> files;
};

constexpr std::string_view kRecordHeader =
    "# Written by 'lumenar register': the folders it made and the files it wrote (with a hash of their\n"
    "# contents), so that 'lumenar unregister' removes exactly these.";

Record ReadRecord(const std::string& dataFolder)
{
    Record record;
    for (const std::string& line : ReadLines(Under(dataFolder, kRecordPath))) {
        const std::size_t tab = line.find('\t');
        if (tab == std::string::npos)
            continue;
        const std::string kind = line.substr(0, tab);
        const std::string rest = line.substr(tab + 1);
        if (kind == "folder") {
            record.folders.push_back(rest);
        } else if (const std::size_t hashTab = rest.rfind('\t');
                   kind == "file" && hashTab != std::string::npos) {
            record.files[rest.substr(0, hashTab)] = rest.substr(hashTab + 1);
        }
    }
    return record;
}

base::Status WriteRecord(const std::string& dataFolder, const Record& record)
{
    std::string text = std::string(kRecordHeader) + "\n";
    for (const std::string& folder : record.folders)
        text += StrCat("folder\t", folder, "\n");
    for (const auto& [file, hash] : record.files)
        text += StrCat("file\t", file, "\t", hash, "\n");
    return WriteText(Under(dataFolder, kRecordPath), text);
}

// Whether the file at `relative` may be replaced or removed: registration wrote it and it still holds
// exactly that, or it holds exactly what registration is about to write.
bool Ours(const std::string& dataFolder, const Record& record, std::string_view relative,
          std::string_view wouldWrite = {})
{
    const std::optional<std::string> text = ReadWhole(Under(dataFolder, relative));
    if (!text)
        return false;
    const auto recorded = record.files.find(std::string(relative));
    return (recorded != record.files.end() && recorded->second == ContentHash(*text)) ||
           (!wouldWrite.empty() && *text == wouldWrite);
}

// Makes `folder` and any missing folders above it, recording each one made.
base::Status MakeFolders(const fs::path& folder, Record& record)
{
    std::vector<fs::path> missing;
    std::error_code error;
    for (fs::path at = folder; !at.empty() && !fs::exists(fs::symlink_status(at, error));
         at = at.parent_path()) {
        missing.push_back(at);
        if (at == at.parent_path())
            break;
    }
    for (auto at = missing.rbegin(); at != missing.rend(); ++at) {
        if (!fs::create_directory(*at, error) && error)
            return Error{ErrorCode::Io,
                         StrCat("cannot make the folder ", at->string(), ": ", error.message())};
        if (std::find(record.folders.begin(), record.folders.end(), at->string()) == record.folders.end())
            record.folders.push_back(at->string());
    }
    return {};
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
    std::error_code error;
    if (fs::is_directory(Under(dataFolder, "applications"), error))
        platform::RunQuietly({"update-desktop-database", Under(dataFolder, "applications").string()});
    if (fs::is_directory(Under(dataFolder, "mime"), error))
        platform::RunQuietly({"update-mime-database", Under(dataFolder, "mime").string()});
}

bool Created(const Record& record, const fs::path& folder)
{
    return std::find(record.folders.begin(), record.folders.end(), folder.string()) != record.folders.end();
}

// After our files went: a folder registration made that holds only the database built from what is
// left (nothing) goes; any other database is rebuilt, so that it no longer names our type.
void RebuildOrDropDatabases(const std::string& dataFolder, const Record& record)
{
    std::error_code error;
    const fs::path mime = Under(dataFolder, "mime");
    const fs::path packages = mime / "packages";
    if (fs::is_directory(mime, error)) {
        const bool noPackages = !fs::exists(packages, error) || fs::is_empty(packages, error);
        if (Created(record, mime) && noPackages)
            fs::remove_all(mime, error);
        else
            platform::RunQuietly({"update-mime-database", mime.string()});
    }
    const fs::path applications = Under(dataFolder, "applications");
    if (fs::is_directory(applications, error)) {
        const fs::path cache = applications / "mimeinfo.cache";
        bool onlyCache = true;
        for (const auto& entry : fs::directory_iterator(applications, error))
            onlyCache = onlyCache && entry.path() == cache;
        if (Created(record, applications) && onlyCache)
            fs::remove(cache, error);
        else
            platform::RunQuietly({"update-desktop-database", applications.string()});
    }
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
    if (dataFolder.find_first_of("\t\n") != std::string::npos)
        return Error{ErrorCode::InvalidInput, "the data folder's name holds a tab or a line break"};
    Record record = ReadRecord(dataFolder);
    const std::string desktop = DesktopEntry(playerPath);
    const std::string package = MimePackage();
    const std::pair<std::string_view, const std::string&> files[] = {{kDesktopEntryPath, desktop},
                                                                     {kMimePackagePath, package}};
    // A user's own file of the same name is never replaced: refuse before anything is written.
    for (const auto& [relative, text] : files) {
        std::error_code error;
        if (fs::exists(fs::symlink_status(Under(dataFolder, relative), error)) &&
            !Ours(dataFolder, record, relative, text))
            return Error{ErrorCode::InvalidInput,
                         StrCat(relative, " was not written by 'lumenar register' (or was changed since); "
                                          "move it away to register")};
    }

    const fs::path store = Under(dataFolder, kStorePath);
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

    // The record is written before the files, so that whatever a failure leaves behind is known.
    for (std::string_view relative : {kStorePath, kDesktopEntryPath, kMimePackagePath})
        LUM_TRY(MakeFolders(Under(dataFolder, relative).parent_path(), record));
    for (const auto& [relative, contents] : files)
        record.files[std::string(relative)] = ContentHash(contents);
    LUM_TRY(WriteRecord(dataFolder, record));
    LUM_TRY(WriteText(store, text));
    for (const auto& [relative, contents] : files)
        LUM_TRY(WriteText(Under(dataFolder, relative), contents));
    RefreshDatabases(dataFolder);
    return {};
}

base::Status UnregisterServer(const std::string& dataFolder)
{
    const fs::path store = Under(dataFolder, kStorePath);
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
    if (fs::exists(store)) {
        if (others) {
            std::string text;
            for (const std::string& line : kept)
                text += line + "\n";
            LUM_TRY(WriteText(store, text));
        } else if (!fs::remove(store, error) && error) {
            return Error{ErrorCode::Io, StrCat("cannot remove ", store.string(), ": ", error.message())};
        }
    }
    const Record record = ReadRecord(dataFolder);
    for (std::string_view relative : {kDesktopEntryPath, kMimePackagePath}) {
        // A file changed since registration is the user's now.
        if (!Ours(dataFolder, record, relative))
            continue;
        const fs::path path = Under(dataFolder, relative);
        if (!fs::remove(path, error) && error)
            return Error{ErrorCode::Io, StrCat("cannot remove ", path.string(), ": ", error.message())};
    }
    RebuildOrDropDatabases(dataFolder, record);
    fs::remove(Under(dataFolder, kRecordPath), error);
    for (auto folder = record.folders.rbegin(); folder != record.folders.rend(); ++folder) {
        if (fs::is_directory(*folder, error) && fs::is_empty(*folder, error))
            fs::remove(*folder, error);
    }
    return {};
}

} // namespace lumenar::control
