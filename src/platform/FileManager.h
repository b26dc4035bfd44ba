#pragma once

// platform::FileManager: the file operations the sync engine and the REST client need, with the framework's
// semantics: deep enumeration of a folder, an item's attributes, existence and copy.
//
// Paths are byte strings (UTF-8 on every system we run on); nothing here normalises or re-encodes them.

#include "platform/Error.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace platform {

enum class FileType : std::uint8_t {
    Directory,
    Regular,
    SymbolicLink,
    Socket,
    CharacterSpecial,
    BlockSpecial,
    // Named pipes and anything else: the framework has no type name of their own for them.
    Unknown,
};

// The framework's name of a type: "NSFileTypeDirectory", "NSFileTypeRegular", "NSFileTypeSymbolicLink",
// "NSFileTypeSocket", "NSFileTypeCharacterSpecial", "NSFileTypeBlockSpecial", "NSFileTypeUnknown".
std::string_view fileTypeName(FileType type);

// What the framework's attributes dictionary of an item holds that this system uses. Read without following a final
// symbolic link: the attributes of a link are the link's own.
struct FileAttributes {
    // The file-system file number (the inode).
    std::uint64_t fileNumber = 0;
    FileType type = FileType::Unknown;
    // In bytes; for a folder, whatever the file system reports for it.
    std::uint64_t size = 0;
    // Seconds since 1970-01-01 UTC, with the file system's sub-second part (nanoseconds where it keeps them).
    double modificationDate = 0;

    std::string_view typeName() const { return fileTypeName(type); }
    bool operator==(const FileAttributes&) const = default;
};

// One item of a deep enumeration.
struct DirectoryItem {
    // Relative to the enumerated folder, components joined by "/".
    std::string path;
    // Read in the same pass as the listing; absent when the item could not be read (it vanished after it was
    // listed, or its folder may be listed but not searched).
    std::optional<FileAttributes> attributes;
};

class FileManager {
public:
    // Every item below `path`, as the framework's path enumerator gives them:
    // - pre-order: a folder comes right before its contents;
    // - the items of one folder in byte order of their names;
    // - hidden items (names starting with ".") included;
    // - symbolic links are listed and never followed, also links to folders;
    // - a folder that cannot be opened is listed but not entered, with one log line;
    // - `path` itself is not an item; a `path` that does not exist, or is not a folder, gives no items.
    // Each item comes with its attributes, so a caller needs no second look at the item. Large trees are read by
    // two threads, one folder at a time each; the order does not depend on it.
    static std::vector<DirectoryItem> subpathsAtPath(const std::string& path);
    // The same items in the same order, each handed to `visit` with its path relative to `path` (valid for the call
    // only) and its attributes, without a list of them all; `listed`, when given, is told how many there are before
    // the first.
    using SubpathVisitor
        = std::function<void(std::string_view relativePath, const std::optional<FileAttributes>& attributes)>;
    static void visitSubpaths(const std::string& path, const SubpathVisitor& visit,
        const std::function<void(std::size_t items)>& listed = nullptr);

    // The attributes of the item at `path` (not following a final symbolic link); absent when it cannot be read.
    static std::optional<FileAttributes> attributesOfItemAtPath(const std::string& path);

    // True when something exists at `path`, following symbolic links: a link whose target is missing does not
    // exist.
    static bool fileExistsAtPath(const std::string& path);

    // Copies the file, symbolic link or whole folder at `path` to `toPath`, keeping permission bits and modification
    // dates; links inside are copied as links. Fails when `toPath` exists (even as a broken link) or its folder does
    // not; a copy that fails part way is removed again. On failure returns false and fills `error` if given.
    static bool copyItemAtPath(const std::string& path, const std::string& toPath, Error* error = nullptr);
};

}
