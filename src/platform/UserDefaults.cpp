#include "platform/UserDefaults.h"

#include "platform/Log.h"
#include "platform/PreferenceJson.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <malloc.h>
#include <system_error>
#include <utility>

namespace platform {

namespace {

constexpr std::string_view domainFileSuffix = ".json";
constexpr std::string_view databaseFileSuffix = ".sqlite";

// A domain file this large leaves enough memory behind, once its values go, to be worth a trim of the heap.
constexpr off_t largeDomainBytes = 8 * 1024 * 1024;

std::mutex applicationDomainMutex;
std::string configuredApplicationDomain;

std::string applicationDomainOfThisProgram()
{
    std::lock_guard lock(applicationDomainMutex);
    return configuredApplicationDomain.empty() ? std::string(program_invocation_short_name)
                                               : configuredApplicationDomain;
}

std::string fileNameOf(const std::string& domain) { return domain + std::string(domainFileSuffix); }

// No file, or no folder (a file stands where the folder should be): simply no domain, nothing to report.
bool isMissing(int error) { return error == ENOENT || error == ENOTDIR; }

// A domain name becomes a file name in the preferences folder, so it must not leave the folder or hide itself.
void checkDomainName(std::string_view name)
{
    if (name.empty() || name.starts_with('.') || name.find('/') != std::string_view::npos
        || name.find('\0') != std::string_view::npos)
        Exception::raiseInvalidArgument("Invalid preference domain name \"" + std::string(name) + "\"");
}

}

UserDefaults::UserDefaults(std::string applicationDomain, std::filesystem::path folder)
    : UserDefaults(std::move(applicationDomain), folder, folder)
{
}

UserDefaults::UserDefaults(std::string applicationDomain, std::filesystem::path folder, std::filesystem::path stateFolder)
    : m_applicationDomain(std::move(applicationDomain))
    , m_folder(std::move(folder))
    , m_stateFolder(std::move(stateFolder))
{
    checkDomainName(m_applicationDomain);
    if (const std::size_t removed = removeTemporaryFilesOfGoneWriters(m_folder))
        log("Removed %@ temporary files left in %@ by writers that are gone", removed, m_folder.string());
}

UserDefaults::~UserDefaults() = default;

UserDefaults& UserDefaults::standardUserDefaults()
{
    static UserDefaults standard(applicationDomainOfThisProgram(), preferencesFolder(), databaseDomainFolder());
    return standard;
}

bool UserDefaults::isDatabaseDomain(std::string_view name) { return name == "Ulmaridon.SyncFilesXpcService"; }

void UserDefaults::setApplicationDomain(std::string name)
{
    std::lock_guard lock(applicationDomainMutex);
    configuredApplicationDomain = std::move(name);
}

// ---------------------------------------------------------------- Standard defaults

std::optional<Value> UserDefaults::objectForKey(std::string_view key)
{
    std::lock_guard lock(m_mutex);
    const auto domain = loadDomain(m_applicationDomain);
    return domain ? domain->objectForKey(key) : std::nullopt;
}

// Domain files are compact and leave "/" unescaped, so that paths stay readable to a person who opens the file.
static JsonWriteOptions domainFileOptions()
{
    JsonWriteOptions options;
    options.escapeSlashes = false;
    return options;
}

void UserDefaults::setObject(const std::optional<Value>& value, std::string_view forKey)
{
    std::lock_guard lock(m_mutex);
    // The cached dictionary is shared, not copied: changing one key copies only the domain's list of entries.
    Value domain = loadDomain(m_applicationDomain).value_or(Value::dictionary());
    if (value)
        domain.setObject(*value, forKey);
    else if (domain.find(forKey))
        domain.removeObjectForKey(forKey);
    else
        return;
    store(m_applicationDomain, domain, nullptr);
}

StoredList UserDefaults::readList(std::string_view forKey, std::uint64_t knownVersion, ListElementReader& reader)
{
    std::lock_guard lock(m_mutex);
    if (PreferenceDatabase* database = databaseOf(m_applicationDomain)) {
        const std::uint64_t loadsBefore = database->loadCount();
        StoredList list = database->readList(forKey, knownVersion, reader);
        noteLoadOfLargeDatabase(*database, m_applicationDomain, loadsBefore);
        return list;
    }
    const auto domain = loadDomain(m_applicationDomain);
    return readListOfValue(domain ? domain->find(forKey) : nullptr, m_cache[m_applicationDomain].storeVersion,
        knownVersion, reader);
}

UserDefaults::ListRowsStore UserDefaults::setListRows(std::string_view forKey, std::uint64_t readVersion,
    const std::vector<ListRow>& rows, const std::function<Value(std::size_t)>& recordAt)
{
    std::lock_guard lock(m_mutex);
    PreferenceDatabase* database = databaseOf(m_applicationDomain);
    if (!database)
        return {};
    try {
        return { true, database->writeListRows(forKey, readVersion, rows, recordAt) };
    } catch (const PreferenceDatabaseError& error) {
        reportFailedWrite(m_applicationDomain, error);
        return { true, std::nullopt };
    }
}

bool UserDefaults::synchronize()
{
    std::lock_guard lock(m_mutex);
    return !std::exchange(m_writesFailed, false);
}

// ---------------------------------------------------------------- Persistent domains

std::optional<Value> UserDefaults::persistentDomainForName(std::string_view name)
{
    checkDomainName(name);
    std::lock_guard lock(m_mutex);
    return loadDomain(std::string(name));
}

void UserDefaults::setPersistentDomain(const Value& domain, std::string_view forName)
{
    checkDomainName(forName);
    if (!domain.isDictionary())
        Exception::raiseInvalidArgument("A preference domain must be a dictionary, not "
            + std::string(domain.className()));
    // Encoded before taking the lock: a large domain does not hold up other threads' reads while it is encoded.
    // A database domain encodes only the values it writes, in its transaction.
    const std::string text = isDatabaseDomain(forName) ? std::string() : writePreferenceJson(domain, domainFileOptions());
    std::lock_guard lock(m_mutex);
    store(std::string(forName), domain, &text);
}

void UserDefaults::removePersistentDomainForName(std::string_view name)
{
    checkDomainName(name);
    std::lock_guard lock(m_mutex);
    const std::string key(name);
    if (const auto cached = m_cache.find(key); cached != m_cache.end())
        forgetCachedVersion(cached->second);
    m_cache.erase(key);
    try {
        if (PreferenceDatabase* database = databaseOf(key))
            database->remove();
        else
            removeFileDurably(m_folder, fileNameOf(key));
    } catch (const std::exception& error) {
        log("Could not remove preference domain %@: %@", key, error.what());
        m_writesFailed = true;
    }
}

std::vector<std::string> UserDefaults::persistentDomainNames() const
{
    auto names = fileStemsWithSuffix(m_folder, domainFileSuffix);
    for (auto& name : fileStemsWithSuffix(m_stateFolder, databaseFileSuffix))
        if (isDatabaseDomain(name))
            names.push_back(std::move(name));
    std::sort(names.begin(), names.end());
    names.erase(std::unique(names.begin(), names.end()), names.end());
    return names;
}

std::uint64_t UserDefaults::parseCount() const
{
    std::lock_guard lock(m_mutex);
    std::uint64_t count = m_parseCount;
    for (const auto& [name, database] : m_databases)
        count += database->loadCount();
    return count;
}

std::uint64_t UserDefaults::rowsWritten() const
{
    return sumOverDatabases(&PreferenceDatabase::rowsWritten);
}

std::uint64_t UserDefaults::elementsEncoded() const
{
    return sumOverDatabases(&PreferenceDatabase::elementsEncoded);
}

std::uint64_t UserDefaults::sumOverDatabases(std::uint64_t (PreferenceDatabase::*count)() const) const
{
    std::lock_guard lock(m_mutex);
    std::uint64_t sum = 0;
    for (const auto& [name, database] : m_databases)
        sum += ((*database).*count)();
    return sum;
}

void UserDefaults::releaseMemoryOfReplacedDomains()
{
    {
        std::lock_guard lock(m_mutex);
        if (!std::exchange(m_largeDomainReplaced, false))
            return;
    }
    ::malloc_trim(0);
}

void UserDefaults::noteLoadOfLargeDatabase(
    const PreferenceDatabase& database, const std::string& name, std::uint64_t loadsBefore)
{
    // Another program stored the domain; a large one's former values are freed once their reader lets go of them.
    std::error_code ignored;
    if (database.loadCount() != loadsBefore && loadsBefore != 0
        && std::filesystem::file_size(pathOf(name), ignored) >= static_cast<std::uintmax_t>(largeDomainBytes))
        m_largeDomainReplaced = true;
}

void UserDefaults::forgetCachedVersion(CachedDomain& cached)
{
    if (cached.version && cached.version->size >= largeDomainBytes)
        m_largeDomainReplaced = true;
    cached.version.reset();
    cached.domain.reset();
}

// ---------------------------------------------------------------- Files and cache (m_mutex held)

std::filesystem::path UserDefaults::pathOf(const std::string& name) const
{
    if (isDatabaseDomain(name))
        return m_stateFolder / (name + std::string(databaseFileSuffix));
    return m_folder / fileNameOf(name);
}

PreferenceDatabase* UserDefaults::databaseOf(const std::string& name)
{
    if (!isDatabaseDomain(name))
        return nullptr;
    auto& database = m_databases[name];
    if (!database)
        database = std::make_unique<PreferenceDatabase>(pathOf(name), m_folder / fileNameOf(name));
    return database.get();
}

void UserDefaults::store(const std::string& name, const Value& domain, const std::string* encoded)
{
    PreferenceDatabase* database = databaseOf(name);
    if (!database) {
        storeDomain(name, encoded ? *encoded : writePreferenceJson(domain, domainFileOptions()));
        return;
    }
    try {
        database->write(domain);
    } catch (const PreferenceDatabaseError& error) {
        reportFailedWrite(name, error);
    }
}

std::optional<Value> UserDefaults::loadDomain(const std::string& name)
{
    if (PreferenceDatabase* database = databaseOf(name)) {
        const std::uint64_t loadsBefore = database->loadCount();
        std::optional<Value> domain = database->read();
        noteLoadOfLargeDatabase(*database, name, loadsBefore);
        return domain;
    }
    CachedDomain& cached = m_cache[name];
    // Read before the stat, so that a version seen by the stat or the read below is judged against it.
    const timespec clock = coarseRealTime();
    int error = 0;
    const auto version = identityOf(pathOf(name), error);
    if (!version) {
        if (!isMissing(error))
            reportUnreadable(cached, pathOf(name), std::nullopt, std::strerror(error));
        forgetCachedVersion(cached);
        return std::nullopt;
    }
    if (cached.version == version && cached.settled)
        return cached.domain;
    return parseDomain(name, cached, clock);
}

std::optional<Value> UserDefaults::parseDomain(const std::string& name, CachedDomain& cached, const timespec& clock)
{
    const auto path = pathOf(name);
    FileContents contents;
    try {
        contents = readWholeFile(path);
    } catch (const std::system_error& error) {
        // Removed between the stat and the open: simply no domain.
        if (!isMissing(error.code().value()))
            reportUnreadable(cached, path, std::nullopt, error.code().message());
        forgetCachedVersion(cached);
        return std::nullopt;
    }
    forgetCachedVersion(cached);
    cached.version = contents.identity;
    cached.storeVersion = newStoreVersion();
    cached.settled = contents.identity.settledBefore(clock);
    ++m_parseCount;
    try {
        if (contents.bytes.empty())
            throw JsonError("the file is empty");
        Value domain = readPreferenceJson(contents.bytes);
        if (!domain.isDictionary())
            throw JsonError("it holds " + std::string(domain.className()) + " instead of a dictionary");
        cached.domain = std::move(domain);
    } catch (const JsonError& error) {
        reportUnreadable(cached, path, contents.identity, error.reason());
    }
    return cached.domain;
}

void UserDefaults::storeDomain(const std::string& name, const std::string& text)
{
    // Our own write is read back from the file on the next read: until the file-system clock has moved on, another
    // process may replace it by a version with the same identity.
    if (const auto cached = m_cache.find(name); cached != m_cache.end())
        forgetCachedVersion(cached->second);
    m_cache.erase(name);
    try {
        replaceFileAtomically(m_folder, fileNameOf(name), text);
    } catch (const std::system_error& error) {
        reportFailedWrite(name, error);
    }
}

void UserDefaults::reportFailedWrite(const std::string& name, const std::exception& error)
{
    log("Could not write preference domain %@: %@", name, error.what());
    m_writesFailed = true;
}

void UserDefaults::reportUnreadable(CachedDomain& cached, const std::filesystem::path& path,
    const std::optional<FileIdentity>& version, const std::string& reason)
{
    if (cached.reportedVersion == version && cached.reportedReason == reason)
        return;
    cached.reportedVersion = version;
    cached.reportedReason = reason;
    log("Preference domain file %@ is not valid and reads as absent: %@", path.string(), reason);
}

}
