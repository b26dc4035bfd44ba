#include "RandomFolderOperations.h"

#include <algorithm>
#include <utility>

namespace e2etest {

namespace {

namespace fs = std::filesystem;

enum class Operation {
    Create,
    MakeFolder,
    Append,
    EditInPlace,
    SedInPlace,
    Rename,
    MoveToFolder,
    RenameFolder,
    MoveFolder,
    Remove,
    RemoveFolder,
    BackupStyleSave,
    HardLink,
    DeleteThenCreate,
};

// How often each operation is chosen; a folder with many files gets more deletions and fewer creations, so that a
// long run stays small.
std::vector<std::pair<Operation, int>> weights(bool crowded)
{
    return {
        { Operation::Create, crowded ? 1 : 4 },
        { Operation::MakeFolder, crowded ? 0 : 1 },
        { Operation::Append, 2 },
        { Operation::EditInPlace, 1 },
        { Operation::SedInPlace, 2 },
        { Operation::Rename, 2 },
        { Operation::MoveToFolder, 2 },
        { Operation::RenameFolder, 1 },
        { Operation::MoveFolder, 1 },
        { Operation::Remove, crowded ? 4 : 1 },
        { Operation::RemoveFolder, crowded ? 2 : 1 },
        { Operation::BackupStyleSave, 2 },
        { Operation::HardLink, 1 },
        { Operation::DeleteThenCreate, 2 },
    };
}

constexpr std::size_t crowdedAbove = 30;

std::string inFolder(const std::string& folder, const std::string& name)
{
    return folder == "." ? name : folder + "/" + name;
}

std::string parentOf(const std::string& path)
{
    const auto slash = path.rfind('/');
    return slash == std::string::npos ? "." : path.substr(0, slash);
}

std::string nameOf(const std::string& path)
{
    const auto slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

bool isAtOrBelow(const std::string& path, const std::string& folder)
{
    return path == folder || path.starts_with(folder + "/");
}

}

RandomFolderOperations::RandomFolderOperations(
    std::filesystem::path folder, std::string anchor, std::mt19937_64& random)
    : m_folder(std::move(folder))
    , m_anchor(std::move(anchor))
    , m_random(random)
{
}

RandomFolderOperations::Contents RandomFolderOperations::listContents() const
{
    Contents contents;
    for (const auto& entry : fs::recursive_directory_iterator(m_folder)) {
        const std::string path = entry.path().lexically_relative(m_folder).string();
        if (entry.is_directory())
            contents.folders.push_back(path);
        else if (path != m_anchor)
            contents.files.push_back(path);
    }
    std::sort(contents.files.begin(), contents.files.end());
    std::sort(contents.folders.begin(), contents.folders.end());
    contents.folders.insert(contents.folders.begin(), ".");
    return contents;
}

const std::string& RandomFolderOperations::pick(const std::vector<std::string>& paths)
{
    return paths[std::uniform_int_distribution<std::size_t>(0, paths.size() - 1)(m_random)];
}

std::string RandomFolderOperations::otherFolder(const Contents& contents, const std::string& path)
{
    std::vector<std::string> others;
    std::copy_if(contents.folders.begin(), contents.folders.end(), std::back_inserter(others),
        [&](const std::string& folder) { return folder != parentOf(path) && !isAtOrBelow(folder, path); });
    return others.empty() ? std::string() : pick(others);
}

std::string RandomFolderOperations::freshName(const std::string& prefix, const std::string& suffix)
{
    return prefix + std::to_string(++m_counter) + suffix;
}

std::string RandomFolderOperations::freeTarget(const std::string& folder, const std::string& name,
    const std::string& prefix, const std::string& suffix)
{
    const std::string target = inFolder(folder, name);
    return fs::exists(m_folder / target) ? inFolder(folder, freshName(prefix, suffix)) : target;
}

std::string RandomFolderOperations::newContent()
{
    return "printf 'line " + std::to_string(++m_counter) + "\\n' > ";
}

std::string RandomFolderOperations::next()
{
    const Contents contents = listContents();
    const auto choices = weights(contents.files.size() > crowdedAbove);
    int total = 0;
    for (const auto& [operation, weight] : choices)
        total += weight;
    int draw = std::uniform_int_distribution<int>(0, total - 1)(m_random);
    Operation operation = Operation::Create;
    for (const auto& [candidate, weight] : choices) {
        if (draw < weight) {
            operation = candidate;
            break;
        }
        draw -= weight;
    }

    const bool hasFiles = !contents.files.empty();
    const bool hasSubfolders = contents.folders.size() > 1;
    const std::vector<std::string> subfolders(contents.folders.begin() + 1, contents.folders.end());
    switch (operation) {
    case Operation::MakeFolder: {
        const std::string folder = inFolder(pick(contents.folders), freshName("d"));
        return "mkdir " + folder + " && " + newContent() + inFolder(folder, freshName("f", ".txt"));
    }
    case Operation::Append:
        if (hasFiles)
            return "printf 'more\\n' >> " + pick(contents.files);
        break;
    case Operation::EditInPlace:
        if (hasFiles)
            return newContent() + pick(contents.files);
        break;
    case Operation::SedInPlace:
        if (hasFiles)
            return "sed -i '1s/^/x/' " + pick(contents.files);
        break;
    case Operation::Rename:
        if (hasFiles) {
            const std::string& file = pick(contents.files);
            return "mv " + file + " " + inFolder(parentOf(file), freshName("f", ".txt"));
        }
        break;
    case Operation::MoveToFolder:
        if (hasFiles) {
            const std::string& file = pick(contents.files);
            if (const std::string folder = otherFolder(contents, file); !folder.empty())
                return "mv " + file + " " + freeTarget(folder, nameOf(file), "f", ".txt");
        }
        break;
    case Operation::RenameFolder:
        if (hasSubfolders) {
            const std::string& folder = pick(subfolders);
            return "mv " + folder + " " + inFolder(parentOf(folder), freshName("d"));
        }
        break;
    case Operation::MoveFolder:
        if (hasSubfolders) {
            const std::string& folder = pick(subfolders);
            if (const std::string target = otherFolder(contents, folder); !target.empty())
                return "mv " + folder + " " + freeTarget(target, nameOf(folder), "d", "");
        }
        break;
    case Operation::Remove:
        if (hasFiles)
            return "rm " + pick(contents.files);
        break;
    case Operation::RemoveFolder:
        if (hasSubfolders)
            return "rm -r " + pick(subfolders);
        break;
    case Operation::BackupStyleSave:
        if (hasFiles) {
            const std::string& file = pick(contents.files);
            const bool intoAnotherFolder = std::bernoulli_distribution(0.3)(m_random);
            const std::string folder = intoAnotherFolder ? pick(contents.folders) : parentOf(file);
            const std::string backup = freeTarget(folder, nameOf(file) + ".bak", "f", ".txt.bak");
            return "mv " + file + " " + backup + " && " + newContent() + file;
        }
        break;
    case Operation::HardLink:
        if (hasFiles)
            return "ln " + pick(contents.files) + " " + inFolder(pick(contents.folders), freshName("f", ".txt"));
        break;
    case Operation::DeleteThenCreate:
        if (hasFiles) {
            const std::string& file = pick(contents.files);
            return "rm " + file + " && " + newContent() + inFolder(pick(contents.folders), freshName("f", ".txt"));
        }
        break;
    case Operation::Create:
        break;
    }
    return newContent() + inFolder(pick(contents.folders), freshName("f", ".txt"));
}

}
