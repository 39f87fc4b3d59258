#pragma once

#include "base/Result.h"

#include <string>
#include <string_view>
#include <vector>

namespace lumenar::control {

/// The control's class identity, as hosts and the registration store name it.
inline constexpr std::string_view kClassId = "{3F6A2C41-8D1E-4B57-9A0C-5E71D248B613}";
inline constexpr std::string_view kInterfaceId = "{3F6A2C42-8D1E-4B57-9A0C-5E71D248B613}";
inline constexpr std::string_view kLibraryId = "{3F6A2C40-8D1E-4B57-9A0C-5E71D248B613}";
inline constexpr std::string_view kProgId = "Lumenar.SequenceCtl.1";
inline constexpr std::string_view kVersionIndependentProgId = "Lumenar.SequenceCtl";
inline constexpr std::string_view kDisplayName = "Vistrel Control";
inline constexpr std::string_view kFilmMimeType = "application/x-vistrel-film";

/// Where registration writes, relative to the user's data folder.
inline constexpr std::string_view kStorePath = "lumenar/registry";
inline constexpr std::string_view kDesktopEntryPath = "applications/lumenar-player.desktop";
inline constexpr std::string_view kMimePackagePath = "mime/packages/lumenar-film.xml";
/// What registration created (folders, and files with a hash of what it wrote into them), so that
/// unregistration removes exactly that and nothing a user made or changed.
inline constexpr std::string_view kRecordPath = "lumenar/registration";

/// The user's data folder: $XDG_DATA_HOME, else $HOME/.local/share. InvalidInput when neither is set
/// to an absolute path.
base::Result<std::string> UserDataFolder();

/// One entry of the registration store: a key, a value name ("@" for the key's own value) and a value.
struct StoreEntry
{
    std::string key;
    std::string name;
    std::string value;
    bool operator==(const StoreEntry&) const = default;
};

/// The class entries for a server at `serverPath`.
std::vector<StoreEntry> ClassEntries(std::string_view serverPath);

/// Writes the class entries into `dataFolder`'s registration store (a text file of lines
/// "KEY<TAB>NAME<TAB>VALUE"; entries of other classes stay), the desktop entry that opens films with
/// `playerPath play %u`, and the film mime type (by the extension ".film" and by the film marker at
/// offset 0); then refreshes the desktop and mime databases when their tools are installed. Creates
/// the folders it needs and records them and the files it wrote in kRecordPath. Never overwrites a
/// desktop entry or mime package it did not write (or that was changed since): fails with
/// InvalidInput naming it, before anything is written. Fails with Io naming the file that could not
/// be written. Any thread.
base::Status RegisterServer(const std::string& dataFolder, std::string_view serverPath,
                            std::string_view playerPath);

/// Removes exactly what RegisterServer wrote: our store entries (the store file too when nothing else
/// is left in it), and the recorded files that still hold what registration wrote into them; then
/// rebuilds the desktop and mime databases, and removes the folders registration created once they
/// hold nothing else (a mime folder that holds only the database built from no packages counts as
/// empty). Other files stay. Not being registered is not an error. Any thread.
base::Status UnregisterServer(const std::string& dataFolder);

} // namespace lumenar::control
