// The rename process: an item whose file number the table knows stayed in place (and may have changed), was
// renamed inside its folder, or moved to another folder.

#include "sync/SyncFilesXpcService.h"

#include "sync/PathText.h"
#include "platform/FileManager.h"
#include "sync/Raises.h"
#include "sync/RecordKeys.h"

namespace engine {

using platform::Value;

void SyncFilesXpcService::performFileRenameProcess(const std::string& fileID)
{
    std::lock_guard lock(m_fieldsMutex);
    auto fileNumber = parseFileNumberText(fileID);
    auto tablePosition = fileNumber ? m_tableIndex.firstPositionOf(*fileNumber) : std::nullopt;
    auto index = fileNumber ? m_scan.firstIndexOf(*fileNumber) : std::nullopt;
    if (!tablePosition || !index)
        raiseIndexBeyondBounds(notFound, m_userDefaultsArray.count());
    renameItem(*tablePosition, *index, m_scan.pathAt(*index));
}

// An item without attributes (gone) has size 0 and no date.
bool SyncFilesXpcService::contentChanged(const EntryView& entry, const std::optional<platform::FileAttributes>& item)
{
    bool sizeChanged = entry.kilobytes() != fileSizeKilobytes(item ? item->size : 0);
    bool dateChanged = !(item && entry.text(RecordKey::ModifiedDate) == m_modifiedDates.text(item->modificationDate));
    // Strict: only both together count, either alone is not enough. Guarded, either counts for a file; a folder's
    // date changes with every item added or taken out, which its items report themselves.
    bool isFile = item && item->type != platform::FileType::Directory;
    if (isFile && m_policy.modifiedWhenEitherTextChanged())
        return sizeChanged || dateChanged;
    return sizeChanged && dateChanged;
}

void SyncFilesXpcService::keepItem(std::size_t position, std::size_t index)
{
    m_userDefaultsArray.markSeen(position, settingsValue(settings::computerId));
    modifyIfChanged(position, index);
}

void SyncFilesXpcService::modifyIfChanged(std::size_t position, std::size_t index)
{
    EntryView entry = m_userDefaultsArray.at(position);
    if (!contentChanged(entry, m_scan.attributesAt(index)))
        return;
    auto current = currentAttributesAt(index);
    if (current && contentChanged(entry, current))
        modifyItemAt(position, index, current);
}

// j is the first position of the file number in the table as the pass read it. After a move earlier in the pass has
// taken an entry out, it addresses the entry that moved up into it; that shift is kept as it is.
void SyncFilesXpcService::renameItem(std::size_t j, std::size_t i, const std::string& path)
{
    const Value* computerId = settingsValue(settings::computerId);

    // Mark the entry as seen, so that the deletion process leaves it.
    m_userDefaultsArray.markSeen(j, computerId);
    EntryView entry = m_userDefaultsArray.at(j);
    // The texts are equal exactly when the entry's text is the walk's decimal text of this file number.
    if (entry.fileNumber() != m_scan.attributesAt(i).fileNumber)
        return;

    std::string_view oldPath = entry.pathText();
    if (!oldPath.data()) {
        const auto oldPathValue = entry.find(RecordKey::BaseSystemFilePath);
        if (!oldPathValue)
            raiseMissingValue(keys::baseSystemFilePath);
        oldPathValue->string(); // raises: a path operation on what is not a string
    }
    bool samePath = oldPath == path;
    bool sameFolder = samePath || deletingLastPathComponent(oldPath) == deletingLastPathComponent(path);
    bool sameName = samePath || lastPathComponent(oldPath) == lastPathComponent(path);

    if (sameFolder && sameName) {
        if (!contentChanged(entry, m_scan.attributesAt(i)))
            return;
        // The walk's attributes decide first, so that an item they show unchanged costs no second look at the file
        // system; a change is confirmed on the item as it is now, which the modified record then holds.
        auto current = currentAttributesAt(i);
        if (contentChanged(entry, current) && platform::FileManager::fileExistsAtPath(std::string(oldPath)))
            modifyItem(i, current);
        return;
    }
    if (sameFolder) {
        Value record = renamedRecord(entry, Value(path), computerId);
        m_userDefaultsArray.replace(j, record);
        m_changedListArray.append(std::move(record));
        // The renamed record keeps the old size and date: an item also changed in the same pass (edited after the
        // rename, or a new file that was given a freed file number at once) is reported modified as well.
        if (m_policy.reportsChangesOfRenamedItems())
            modifyIfChanged(j, i);
        return;
    }
    // Moved: reported as the old path deleted and the new one created. A move that also renamed the item marks
    // its "Deleted" record "removeKey" = "1", a plain move "0".
    Value removal = movedAwayRecord(entry, sameName ? "0" : "1", computerId);
    m_userDefaultsArray.remove(j);
    m_changedListArray.append(std::move(removal));
    createItem(i);
}

}
