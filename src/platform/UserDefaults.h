#pragma once

// platform::UserDefaults: the user-defaults store. Standard defaults of the running program, and named persistent
// domains shared with the product's other processes.
//
// Storage: one file per domain, "<domain>.json", in the preferences folder (see preferencesFolder() in
// PreferenceFiles.h), holding the domain's dictionary in the JSON form of PreferenceJson.h. The domains that hold
// state rather than settings (isDatabaseDomain: the service's own, with the watched-files table) are instead a
// SQLite database each, "<domain>.sqlite" in the state folder, written row by row (PreferenceDatabase.h); everything
// said below about reads, writes and readers in other processes holds for them too. The standard defaults
// are the domain named after the program's application domain, so another process reads them as that persistent
// domain (the service's are "Ulmaridon.SyncFilesXpcService").
//
// Writes replace a whole domain file atomically; a reader in another process sees the old domain or the new one,
// never a mixture. There is no merge: when two processes write one domain, the last writer wins.
//
// Reads go through a cache of this object, revalidated on every read by one stat() of the domain file (inode, size,
// modification and status-change times in nanoseconds): a domain that did not change costs one system call and no
// parsing, whatever its size, and the dictionary handed out shares its storage with the cache. A file that was
// changed within the same tick of the file-system clock as it was read is read again on the next read (see
// FileIdentity::settledBefore), so that no change can hide behind an equal identity.
//
// A domain file that cannot be read, is not JSON, or holds something other than a dictionary (an empty file
// included) reads as absent, and one log line names the file and the reason, once per version of the file. The
// next write of the domain replaces it.
//
// Every change is written at once, so synchronize() has nothing left to write; it reports whether the writes since
// the last call succeeded. A write that fails logs one line and leaves the file as it was.
//
// Thread-safe: one object may be used from several threads at once.

#include "platform/PreferenceDatabase.h"
#include "platform/PreferenceFiles.h"
#include "platform/Value.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace platform {

class UserDefaults {
public:
    // `applicationDomain` names the domain of the standard defaults; `folder` is the preferences folder, and
    // `stateFolder` the folder of the database domains (the preferences folder when not given).
    UserDefaults(std::string applicationDomain, std::filesystem::path folder);
    UserDefaults(std::string applicationDomain, std::filesystem::path folder, std::filesystem::path stateFolder);
    ~UserDefaults();
    UserDefaults(const UserDefaults&) = delete;
    UserDefaults& operator=(const UserDefaults&) = delete;

    // The store of this process: the application domain set by setApplicationDomain() (the program's name when
    // none was set) in the preferences folder that the environment names.
    static UserDefaults& standardUserDefaults();
    // Names the application domain of standardUserDefaults(); call it at the start of main, before first use.
    static void setApplicationDomain(std::string name);

    const std::string& applicationDomain() const { return m_applicationDomain; }
    const std::filesystem::path& folder() const { return m_folder; }

    // --- Standard defaults (the application domain).
    std::optional<Value> objectForKey(std::string_view key);
    // Stores `value` under `forKey` and writes the domain; an absent value removes the key.
    void setObject(const std::optional<Value>& value, std::string_view forKey);
    // The value under `forKey`, a list's elements given to `reader` one by one unless it is still the list of
    // `knownVersion` (PreferenceDatabase::readList). A database domain keeps no list elements, so this is how a
    // reader that keeps its own form of a large list reads it; a file domain gives its cached elements as values.
    StoredList readList(std::string_view forKey, std::uint64_t knownVersion, ListElementReader& reader);
    // Stores the list under `forKey` row by row when the standard defaults are a database domain
    // (PreferenceDatabase::writeListRows): `rows` give the new list element by element against the list of
    // `readVersion` (readList's or an earlier store's), and `recordAt(p)` the element of row p when it is written.
    // See ListRowsStore for the outcome.
    struct ListRowsStore {
        // False: nothing was written, because the defaults are a file; store the whole list with setObject().
        bool handled = false;
        // The version of the list as now stored, which later stores by rows are told against; absent when the
        // database could not be written (logged, and synchronize() returns false).
        std::optional<std::uint64_t> version;
    };
    ListRowsStore setListRows(std::string_view forKey, std::uint64_t readVersion, const std::vector<ListRow>& rows,
        const std::function<Value(std::size_t)>& recordAt);
    // True when every write since the last call succeeded.
    bool synchronize();

    // --- Persistent domains. Names are file names: not empty, no "/", not starting with "."; another name raises
    // NSInvalidArgumentException.
    // The whole domain, or absent when it does not exist (or its file is not valid).
    std::optional<Value> persistentDomainForName(std::string_view name);
    // Replaces the whole domain by `domain`, which must be a dictionary whose values JSON can carry (with the tagged
    // form for dates and data); otherwise raises NSInvalidArgumentException and writes nothing.
    void setPersistentDomain(const Value& domain, std::string_view forName);
    void removePersistentDomainForName(std::string_view name);
    // The names of every domain in the folder, in byte order.
    std::vector<std::string> persistentDomainNames() const;
    // The file that holds the domain `name`, whether or not it exists.
    std::filesystem::path pathOf(const std::string& name) const;
    // True for the domains kept in a database: "Ulmaridon.SyncFilesXpcService", the service's own, whose
    // watched-files table changes by a few records with every accepted report.
    static bool isDatabaseDomain(std::string_view name);

    // How many times this object has parsed a domain file (for tests and measurements).
    std::uint64_t parseCount() const;
    // How many list rows this object has written to its database domains (for tests and measurements).
    std::uint64_t rowsWritten() const;
    // How many list elements this object has encoded to store them in its database domains (for tests and
    // measurements): a store by rows encodes the rows it writes, a store of a whole list every element.
    std::uint64_t elementsEncoded() const;

    // Gives the memory of large domains that were replaced since the last call back to the system (malloc_trim),
    // once whoever held their old values has let go of them: the allocator keeps freed memory for later otherwise,
    // and a domain of a hundred megabytes leaves gigabytes behind. Cheap when no large domain was replaced.
    void releaseMemoryOfReplacedDomains();

private:
    // What this object last read of one domain file.
    struct CachedDomain {
        std::optional<FileIdentity> version; // the version read, absent when there was no file to read
        bool settled = false; // `version` proves that the file is unchanged (FileIdentity::settledBefore)
        std::optional<Value> domain; // absent when the file was not a valid domain
        std::uint64_t storeVersion = 0; // names `domain` for readList()
        // The last problem logged for this domain, so that one bad version is logged once.
        std::optional<FileIdentity> reportedVersion;
        std::string reportedReason;
    };

    std::optional<Value> loadDomain(const std::string& name);
    // The database of `name`, or null when the domain is a JSON file.
    PreferenceDatabase* databaseOf(const std::string& name);
    // A count of every database domain's, summed.
    std::uint64_t sumOverDatabases(std::uint64_t (PreferenceDatabase::*count)() const) const;
    // Stores a domain, through its database or as its file; a failure is logged and remembered for synchronize().
    void store(const std::string& name, const Value& domain, const std::string* encoded);
    // Notes that `database` loaded its domain again since `loadsBefore`: when it is large, the trim is worth it.
    void noteLoadOfLargeDatabase(const PreferenceDatabase& database, const std::string& name, std::uint64_t loadsBefore);
    // Notes that the cached version of a domain goes; a large one makes releaseMemoryOfReplacedDomains() trim.
    void forgetCachedVersion(CachedDomain& cached);
    std::optional<Value> parseDomain(const std::string& name, CachedDomain& cached, const timespec& clock);
    // Writes the domain file from its encoded text. Encoding comes first (writePreferenceJson), so that a domain
    // that cannot be written raises before anything on disk changes.
    void storeDomain(const std::string& name, const std::string& text);
    // A write that failed: one log line, and synchronize() returns false.
    void reportFailedWrite(const std::string& name, const std::exception& error);
    static void reportUnreadable(CachedDomain& cached, const std::filesystem::path& path,
        const std::optional<FileIdentity>& version, const std::string& reason);

    const std::string m_applicationDomain;
    const std::filesystem::path m_folder;
    const std::filesystem::path m_stateFolder;
    mutable std::mutex m_mutex;
    std::map<std::string, CachedDomain, std::less<>> m_cache;
    std::map<std::string, std::unique_ptr<PreferenceDatabase>, std::less<>> m_databases;
    std::uint64_t m_parseCount = 0;
    bool m_writesFailed = false;
    bool m_largeDomainReplaced = false;
};

}
