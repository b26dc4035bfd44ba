#pragma once

// Random changes to a synced folder as people and programs make them, each one a shell command of ordinary tools
// (printf, sed -i, mv, ln, rm, mkdir) run inside the folder: create, append, edit in place, sed -i, rename, move
// between folders, folder rename and move, rm and rm -r, a backup-style save (into the same folder or another one), a
// hard link, and a delete followed at once by a create (which lets the file system hand the freed file number on).
//
// An operation is chosen among those the folder's contents allow, from the folder as it is when it is asked for, so
// that the same seed on the same starting folder gives the same operations. New names are unique within a run, so
// that no command fails on a name taken.

#include <filesystem>
#include <random>
#include <string>
#include <vector>

namespace e2etest {

class RandomFolderOperations {
public:
    // `anchor`: a file at the top of `folder` that no operation touches, so that the folder is never emptied (an
    // emptied folder is held back until a person confirms the deletions).
    RandomFolderOperations(std::filesystem::path folder, std::string anchor, std::mt19937_64& random);

    // The command of one operation, to be run with /bin/sh inside the folder.
    std::string next();

private:
    struct Contents {
        // Relative paths, sorted; `folders` starts with "." for the synced folder itself.
        std::vector<std::string> files;
        std::vector<std::string> folders;
    };

    Contents listContents() const;
    const std::string& pick(const std::vector<std::string>& paths);
    // A folder other than the one that holds `path`, and not `path` itself or below it; "" when there is none.
    std::string otherFolder(const Contents& contents, const std::string& path);
    std::string freshName(const std::string& prefix, const std::string& suffix = "");
    // `folder`/`name`, or a fresh name (`prefix`, a number, `suffix`) in `folder` when `name` is taken there.
    std::string freeTarget(const std::string& folder, const std::string& name, const std::string& prefix,
        const std::string& suffix);
    std::string newContent();

    std::filesystem::path m_folder;
    std::string m_anchor;
    std::mt19937_64& m_random;
    unsigned m_counter = 0;
};

}
