#pragma once

// File-level helpers of the preferences store: where the folder is, how a domain file is read in one piece, and
// how it is replaced atomically so that a reader in another process sees either the old or the new file, never a
// torn one.

#include <ctime>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <sys/types.h>
#include <vector>

namespace platform {

// The preferences folder: `preferencesDir` when set, else `xdgConfigHome`/korbanhold/Preferences, else
// `home`/.config/korbanhold/Preferences. Empty values count as unset, as the XDG rules say.
std::filesystem::path preferencesFolderFor(const char* preferencesDir, const char* xdgConfigHome, const char* home);
// The same rule over this process's environment ($KORBANHOLD_PREFERENCES_DIR, $XDG_CONFIG_HOME, $HOME, and the
// password database's home folder when HOME is unset).
std::filesystem::path preferencesFolder();

// The folder of preference domains that hold state rather than settings (the service's watched-files table): the
// preferences folder when $KORBANHOLD_PREFERENCES_DIR is set (everything of a test or a second instance stays
// together), else the state folder (StateFolder.h).
std::filesystem::path databaseDomainFolder();

// Creates `folder` and its missing parents with mode 0700 when it does not exist. Raises std::system_error.
void ensureFolder(const std::filesystem::path& folder);

// One version of a file as one stat() sees it. A replacement by rename gives a new inode, and its rename sets a
// new status-change time, so two versions share an identity only when they were both renamed into place within
// one tick of the file-system clock (see FileIdentity::settledBefore).
struct FileIdentity {
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    timespec modified {};
    timespec changed {};

    static FileIdentity of(const struct stat& status);
    bool operator==(const FileIdentity& other) const;
    // True when the file's last change lies before `clock`, a reading of the coarse real-time clock (the clock that
    // stamps files) taken before the file was opened. Every later replacement then carries a later change time, so
    // an equal identity seen later is this very version. A file changed in the same tick as the reading may still
    // be followed, within that tick, by another version that reuses its inode and size: it must be read again.
    bool settledBefore(const timespec& clock) const;
};

timespec coarseRealTime();

// The identity of the file at `path`, or absent with `error` set to the errno of stat().
std::optional<FileIdentity> identityOf(const std::filesystem::path& path, int& error);

struct FileContents {
    FileIdentity identity; // of the version that was read
    std::string bytes;
};

// Reads a whole file. Raises std::system_error.
FileContents readWholeFile(const std::filesystem::path& path);

// Reads a file piece by piece, each piece of at most `pieceSize` bytes to `piece` in order, so that a large file costs
// one piece of memory. Raises std::system_error, and whatever `piece` raises.
void readFileInPieces(const std::filesystem::path& path, std::size_t pieceSize,
    const std::function<void(std::string_view)>& piece);

// Replaces `folder`/`name` by a file holding `contents`: a temporary file in the same folder (created 0600), written
// and fsync'ed, renamed over the old file, then the folder fsync'ed. Creates the folder and its missing parents with
// mode 0700. Temporary files are hidden (their names start with a dot) and never end in ".json". Raises
// std::system_error; on failure the old file is left as it was.
void replaceFileAtomically(const std::filesystem::path& folder, const std::string& name, std::string_view contents);

// Removes the temporary files that writers which are gone left in `folder` (a writer killed between creating its
// temporary file and renaming it). A temporary file's name carries its writer's pid and start time, so the files
// of a writer that still runs, in this process or another, are left alone. Gives how many were removed.
std::size_t removeTemporaryFilesOfGoneWriters(const std::filesystem::path& folder);

// Removes `folder`/`name` and fsyncs the folder. Returns false when there was no such file; raises
// std::system_error on other failures.
bool removeFileDurably(const std::filesystem::path& folder, const std::string& name);

// The names of the regular files (and links to them) of `folder` whose names end in `suffix`, without the suffix,
// in byte order. A folder that does not exist has none.
std::vector<std::string> fileStemsWithSuffix(const std::filesystem::path& folder, std::string_view suffix);

}
