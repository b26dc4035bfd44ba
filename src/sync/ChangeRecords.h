#pragma once

// Builders of every record the engine makes, each with the keys in the order the making operation inserts them
// (the order in which a stored table lists them). Every value is inserted plainly: an absent value (a null pointer
// here) raises, exactly where the record being built would lack it, and ends the pass through its guard.

#include "platform/Value.h"
#include "sync/TableEntry.h"

#include <optional>
#include <string_view>

namespace engine {

// What the processes read about a folder item, as record texts. An item whose attributes could not be read has no
// date text, and a record built from it raises where the date goes in.
struct ItemTexts {
    platform::Value fileNumber;
    platform::Value path;
    platform::Value isFile;
    platform::Value fileSize;
    std::optional<platform::Value> modifiedDate;
};

// A stored table record as the pass normalises it, read through the view of its unseen entry ("removeKey" = "1",
// the settings' computer identifier, "FileIDKey" made a string).
platform::Value normalisedRecord(const EntryView& entry);
// Raises exactly as building the normalised record would, without building it.
void requireNormalisedFields(const EntryView& entry);

// A table entry refreshed by the rename process: "removeKey" = "0", "FileIDKey" cleaned.
platform::Value seenRecord(const EntryView& entry, const platform::Value* computerId);

// "Created": a new item, not yet known to the server ("FileIDKey" empty).
platform::Value createdRecord(const ItemTexts& item, const platform::Value* computerId);

// "Modified": an item at a known path under a new file number; keeps the server identifier of the entry it
// replaces.
platform::Value modifiedRecord(const ItemTexts& item, const platform::Value& fileID, const platform::Value* computerId);

// "Renamed": an item renamed inside its folder; the attributes are the entry's, not the item's new ones.
platform::Value renamedRecord(const EntryView& entry, const platform::Value& newPath, const platform::Value* computerId);

// "Deleted" for the old path of a moved item; `removeMark` is "0" for a plain move, "1" for a move with a new name.
platform::Value movedAwayRecord(const EntryView& entry, std::string_view removeMark, const platform::Value* computerId);

// "Deleted" for an entry whose item the pass did not find; it has no "removeKey".
platform::Value deletedRecord(const EntryView& entry, const platform::Value* computerId);

}
