#pragma once

// Names shared with the host application, the file watcher and the server: the preference domains, their keys, the
// keys of change records and of shared-file records, and the fixed values the engine writes. They are part of the
// interface and are spelled exactly as the other programs spell them, including "isFilekey" and
// "filemodifiedDateKey", and the setting read as "computerIdKey" but written into records as "computerIDKey".

#include <string_view>

namespace engine {

namespace domains {
    inline constexpr std::string_view fileWatcher = "Ulmaridon.FileWatcherXpcService";
    inline constexpr std::string_view korbanhold = "Ulmaridon.Korbanhold";
    inline constexpr std::string_view sharedFiles = "Ulmaridon.SharedFilesXpcService";
}

namespace settings {
    inline constexpr std::string_view fileWatcherStatus = "FileWatcherStatusKey";
    inline constexpr std::string_view korbanholdPath = "korbanholdPathKey";
    inline constexpr std::string_view computerId = "computerIdKey";
    inline constexpr std::string_view userId = "userIdKey";
    inline constexpr std::string_view sharedFileData = "SharedFileDataKey";
    // In the service's own standard defaults, not in a named domain.
    inline constexpr std::string_view fileWatchedData = "FileWatchedDataKey";
}

// Keys of a change record, of a watched-files table entry and of a folder-walk record.
namespace keys {
    inline constexpr std::string_view baseSystemFileID = "BaseSystemFileIDKey";
    inline constexpr std::string_view baseSystemFilePath = "BaseSystemFilePathKey";
    inline constexpr std::string_view changeType = "changeTypeKey";
    inline constexpr std::string_view oldPath = "oldPathKey";
    inline constexpr std::string_view isFile = "isFilekey";
    inline constexpr std::string_view fileSize = "fileSizeKey";
    inline constexpr std::string_view modifiedDate = "filemodifiedDateKey";
    inline constexpr std::string_view fileID = "FileIDKey";
    inline constexpr std::string_view remove = "removeKey";
    inline constexpr std::string_view computerID = "computerIDKey";
}

// Keys of a shared-file record.
namespace sharedKeys {
    inline constexpr std::string_view fileID = "FileID";
    inline constexpr std::string_view fileName = "FileName";
    inline constexpr std::string_view ownerFileID = "OwnerFileID";
    inline constexpr std::string_view userComputerMapID = "UserComputerMapID";
    inline constexpr std::string_view blocked = "Blocked";
    inline constexpr std::string_view deleteMark = "DeleteKey";
}

namespace changeTypes {
    inline constexpr std::string_view created = "Created";
    inline constexpr std::string_view modified = "Modified";
    inline constexpr std::string_view renamed = "Renamed";
    inline constexpr std::string_view deleted = "Deleted";
}

}
