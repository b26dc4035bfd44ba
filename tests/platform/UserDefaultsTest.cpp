#include "platform/UserDefaults.h"

#include "platform/PreferenceFiles.h"
#include "platform/StateFolder.h"
#include "PreferenceTestSupport.h"
#include "support/LogCapture.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <cmath>
#include <sys/stat.h>
#include <thread>

using platform::Exception;
using platform::UserDefaults;
using platform::Value;
using testsupport::TempDir;

namespace {

constexpr const char* serviceDomain = "Ulmaridon.SyncFilesXpcService";
constexpr const char* fileWatcherDomain = "Ulmaridon.FileWatcherXpcService";

mode_t permissionsOf(const std::filesystem::path& path)
{
    struct stat status {};
    EXPECT_EQ(::stat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777;
}

std::vector<std::string> namesIn(const std::filesystem::path& folder)
{
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

// A store of the service's standard defaults over a fresh preferences folder.
class UserDefaultsStore : public ::testing::Test {
protected:
    TempDir folder;
    UserDefaults store { serviceDomain, folder.path() };
};

}

// ---------------------------------------------------------------- Standard defaults

TEST_F(UserDefaultsStore, StandardDefaultsAreTheApplicationDomainFileThatOtherProcessesReadAsADomain)
{
    store.setObject(Value::array({ Value("record") }), "FileWatchedDataKey");
    EXPECT_TRUE(store.synchronize());

    // The service's own domain is a database (PreferenceDatabaseTest.cpp); the others are JSON files.
    EXPECT_TRUE(std::filesystem::is_regular_file(folder / "Ulmaridon.SyncFilesXpcService.sqlite"));
    EXPECT_EQ(store.objectForKey("FileWatchedDataKey"), Value::array({ Value("record") }));
    UserDefaults otherProcess("korbanhold", folder.path());
    EXPECT_EQ(otherProcess.persistentDomainForName(serviceDomain),
        Value::dictionary({ { "FileWatchedDataKey", Value::array({ Value("record") }) } }));
}

TEST_F(UserDefaultsStore, AKeyOfAMissingDomainIsAbsent)
{
    EXPECT_EQ(store.objectForKey("FileWatchedDataKey"), std::nullopt);
}

TEST_F(UserDefaultsStore, SettingAnAbsentValueRemovesTheKeyAndKeepsTheOthers)
{
    store.setObject(Value("1"), "first");
    store.setObject(Value("2"), "second");
    store.setObject(std::nullopt, "first");
    EXPECT_EQ(store.objectForKey("first"), std::nullopt);
    EXPECT_EQ(store.persistentDomainForName(serviceDomain), Value::dictionary({ { "second", Value("2") } }));
}

TEST_F(UserDefaultsStore, SettingAKeyReplacesItsValueInPlace)
{
    store.setObject(Value("1"), "first");
    store.setObject(Value("2"), "second");
    store.setObject(Value("3"), "first");
    const auto domain = store.persistentDomainForName(serviceDomain);
    ASSERT_TRUE(domain);
    EXPECT_EQ(domain->keys(), (std::vector<std::string> { "first", "second" }));
    EXPECT_EQ(*domain->find("first"), Value("3"));
}

// ---------------------------------------------------------------- Persistent domains

TEST_F(UserDefaultsStore, AMissingPersistentDomainIsAbsent)
{
    EXPECT_EQ(store.persistentDomainForName("Ulmaridon.Korbanhold"), std::nullopt);
}

TEST_F(UserDefaultsStore, SettingAPersistentDomainReplacesEveryKeyOfIt)
{
    store.setPersistentDomain(Value::dictionary({ { "FileWatcherStatusKey", Value("0") }, { "other", Value("x") } }),
        fileWatcherDomain);
    store.setPersistentDomain(Value::dictionary({ { "FileWatcherStatusKey", Value("1") } }), fileWatcherDomain);
    EXPECT_EQ(store.persistentDomainForName(fileWatcherDomain),
        Value::dictionary({ { "FileWatcherStatusKey", Value("1") } }));
}

TEST_F(UserDefaultsStore, RemovingADomainDeletesItsFileAndRemovingAMissingOneIsHarmless)
{
    store.setPersistentDomain(Value::dictionary({ { "k", Value("v") } }), "Ulmaridon.Korbanhold");
    ASSERT_TRUE(store.persistentDomainForName("Ulmaridon.Korbanhold"));
    store.removePersistentDomainForName("Ulmaridon.Korbanhold");
    EXPECT_EQ(store.persistentDomainForName("Ulmaridon.Korbanhold"), std::nullopt);
    EXPECT_FALSE(std::filesystem::exists(folder / "Ulmaridon.Korbanhold.json"));
    store.removePersistentDomainForName("Ulmaridon.Korbanhold");
    EXPECT_TRUE(store.synchronize());
}

TEST_F(UserDefaultsStore, DomainNamesAreTheDomainFilesOfTheFolderInByteOrder)
{
    EXPECT_TRUE(store.persistentDomainNames().empty());
    for (const char* name : { "b", "Zeta", "a.b" })
        store.setPersistentDomain(Value::dictionary(), name);
    testsupport::writeFile(folder / "notes.txt", "not a domain");
    testsupport::writeFile(folder / ".hidden.json", "{}");
    std::filesystem::create_directory(folder / "folder.json");
    EXPECT_EQ(store.persistentDomainNames(), (std::vector<std::string> { "Zeta", "a.b", "b" }));
}

TEST_F(UserDefaultsStore, ANameThatIsNotAPlainFileNameRaises)
{
    for (const char* name : { "", ".hidden", "..", "a/b", "../escape" }) {
        EXPECT_THROW(store.persistentDomainForName(name), Exception) << name;
        EXPECT_THROW(store.setPersistentDomain(Value::dictionary(), name), Exception) << name;
        EXPECT_THROW(store.removePersistentDomainForName(name), Exception) << name;
    }
    EXPECT_THROW(UserDefaults("a/b", folder.path()), Exception);
    EXPECT_TRUE(namesIn(folder.path()).empty());
}

TEST_F(UserDefaultsStore, ADomainThatIsNotADictionaryRaisesAndWritesNothing)
{
    EXPECT_THROW(store.setPersistentDomain(Value::array(), "x"), Exception);
    EXPECT_THROW(store.setPersistentDomain(Value("text"), "x"), Exception);
    EXPECT_FALSE(std::filesystem::exists(folder / "x.json"));
}

TEST_F(UserDefaultsStore, AValueThatJsonCannotCarryRaisesAndLeavesTheOldDomain)
{
    store.setPersistentDomain(Value::dictionary({ { "k", Value("old") } }), "x");
    EXPECT_THROW(store.setPersistentDomain(Value::dictionary({ { "k", Value::real(NAN) } }), "x"), Exception);
    EXPECT_THROW(store.setObject(Value(std::string("\xFF")), "k"), Exception);
    EXPECT_EQ(store.persistentDomainForName("x"), Value::dictionary({ { "k", Value("old") } }));
    EXPECT_TRUE(store.synchronize());
}

TEST_F(UserDefaultsStore, DatesAndDataSurviveTheFile)
{
    const Value domain
        = Value::dictionary({ { "when", Value::date(1700000000.5) }, { "bytes", Value::data({ 0, 255 }) } });
    store.setPersistentDomain(domain, "x");
    UserDefaults reader(serviceDomain, folder.path());
    const auto read = reader.persistentDomainForName("x");
    ASSERT_TRUE(read);
    EXPECT_EQ(*read, domain);
    EXPECT_TRUE(read->find("when")->isDate());
    EXPECT_TRUE(read->find("bytes")->isData());
}

TEST_F(UserDefaultsStore, ChangingAHandedOutDomainDoesNotChangeTheStore)
{
    store.setPersistentDomain(Value::dictionary({ { "k", Value("v") } }), "x");
    auto domain = store.persistentDomainForName("x");
    domain->setObject(Value("changed"), "k");
    EXPECT_EQ(store.persistentDomainForName("x"), Value::dictionary({ { "k", Value("v") } }));
}

// ---------------------------------------------------------------- Files

TEST(UserDefaultsFiles, TheFolderAndItsMissingParentsAreCreatedPrivateOnFirstWrite)
{
    TempDir base;
    const auto folder = base / "config" / "korbanhold" / "Preferences";
    UserDefaults store(serviceDomain, folder);
    EXPECT_FALSE(std::filesystem::exists(folder)); // reading creates nothing
    EXPECT_EQ(store.persistentDomainForName("x"), std::nullopt);
    EXPECT_FALSE(std::filesystem::exists(folder));

    const mode_t previousMask = ::umask(0);
    store.setPersistentDomain(Value::dictionary(), "x");
    ::umask(previousMask);
    EXPECT_EQ(permissionsOf(base / "config"), 0700u);
    EXPECT_EQ(permissionsOf(base / "config" / "korbanhold"), 0700u);
    EXPECT_EQ(permissionsOf(folder), 0700u);
    EXPECT_EQ(permissionsOf(folder / "x.json"), 0600u);
}

TEST_F(UserDefaultsStore, WritesLeaveNoTemporaryFilesBehind)
{
    for (int i = 0; i < 20; ++i)
        store.setObject(Value::integer(i), "counter");
    store.setPersistentDomain(Value::dictionary(), "other");
    EXPECT_EQ(namesIn(folder.path()),
        (std::vector<std::string> { "Ulmaridon.SyncFilesXpcService.sqlite", "Ulmaridon.SyncFilesXpcService.sqlite-shm",
            "Ulmaridon.SyncFilesXpcService.sqlite-wal", "other.json" }));
}

TEST(UserDefaultsFiles, AWriteThatFailsIsLoggedLeavesNoDomainAndIsReportedBySynchronize)
{
    TempDir base;
    testsupport::writeFile(base / "file", "a file where the folder should be");
    UserDefaults store(serviceDomain, base / "file" / "Preferences");
    testsupport::LogCapture log;
    store.setPersistentDomain(Value::dictionary({ { "k", Value("v") } }), "x");
    EXPECT_EQ(log.countStartingWith("Could not write preference domain x: "), 1u);
    EXPECT_EQ(store.persistentDomainForName("x"), std::nullopt);
    EXPECT_FALSE(store.synchronize());
    EXPECT_TRUE(store.synchronize()); // the failure is reported once
}

TEST(UserDefaultsFiles, TheFolderIsTheOverrideThenXdgConfigHomeThenTheHomeFolder)
{
    using platform::preferencesFolderFor;
    EXPECT_EQ(preferencesFolderFor("/prefs", "/xdg", "/home/me"), "/prefs");
    EXPECT_EQ(preferencesFolderFor(nullptr, "/xdg", "/home/me"), "/xdg/korbanhold/Preferences");
    EXPECT_EQ(preferencesFolderFor("", "/xdg", "/home/me"), "/xdg/korbanhold/Preferences");
    EXPECT_EQ(preferencesFolderFor(nullptr, nullptr, "/home/me"), "/home/me/.config/korbanhold/Preferences");
    EXPECT_EQ(preferencesFolderFor(nullptr, "", "/home/me"), "/home/me/.config/korbanhold/Preferences");
    // A relative XDG_CONFIG_HOME is ignored, as the XDG rules say.
    EXPECT_EQ(preferencesFolderFor(nullptr, "relative", "/home/me"), "/home/me/.config/korbanhold/Preferences");
    EXPECT_THROW(preferencesFolderFor(nullptr, nullptr, nullptr), Exception);
}

TEST(StateFolder, TheStateFolderIsTheOverrideThenXdgStateHomeThenTheHomeFolder)
{
    using platform::stateFolderFor;
    EXPECT_EQ(stateFolderFor("/prefs", "/xdg", "/home/me"), "/prefs");
    EXPECT_EQ(stateFolderFor(nullptr, "/xdg", "/home/me"), "/xdg/korbanhold");
    EXPECT_EQ(stateFolderFor(nullptr, "", "/home/me"), "/home/me/.local/state/korbanhold");
    EXPECT_EQ(stateFolderFor(nullptr, "relative", "/home/me"), "/home/me/.local/state/korbanhold");
    EXPECT_THROW(stateFolderFor(nullptr, nullptr, nullptr), Exception);
}

// ---------------------------------------------------------------- Cache

TEST(UserDefaultsCache, AnUnchangedDomainIsNotParsedAgain)
{
    TempDir folder;
    UserDefaults writer(serviceDomain, folder.path());
    writer.setObject(Value("table"), "FileWatchedDataKey");
    testsupport::waitUntilSettled(folder / "Ulmaridon.SyncFilesXpcService.json");

    UserDefaults reader(serviceDomain, folder.path());
    for (int i = 0; i < 1000; ++i) {
        ASSERT_EQ(reader.objectForKey("FileWatchedDataKey"), Value("table"));
        ASSERT_TRUE(reader.persistentDomainForName(serviceDomain));
    }
    EXPECT_EQ(reader.parseCount(), 1u);
}

TEST(UserDefaultsCache, AChangedDomainIsReadAgainOnTheNextRead)
{
    TempDir folder;
    UserDefaults writer(serviceDomain, folder.path());
    UserDefaults reader(serviceDomain, folder.path());
    for (int i = 0; i < 50; ++i) {
        writer.setPersistentDomain(Value::dictionary({ { "FileWatcherStatusKey", Value(std::to_string(i % 2)) } }),
            fileWatcherDomain);
        const auto read = reader.persistentDomainForName(fileWatcherDomain);
        ASSERT_TRUE(read);
        ASSERT_EQ(*read->find("FileWatcherStatusKey"), Value(std::to_string(i % 2))) << i;
    }
}

TEST(UserDefaultsCache, ADomainRemovedByAnotherWriterReadsAsAbsent)
{
    TempDir folder;
    UserDefaults writer(serviceDomain, folder.path());
    UserDefaults reader(serviceDomain, folder.path());
    writer.setPersistentDomain(Value::dictionary(), "x");
    ASSERT_TRUE(reader.persistentDomainForName("x"));
    writer.removePersistentDomainForName("x");
    EXPECT_EQ(reader.persistentDomainForName("x"), std::nullopt);
}

TEST_F(UserDefaultsStore, SeveralThreadsSettingKeysOfTheStandardDefaultsLoseNoChange)
{
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([this, thread] {
            const std::string key = "key" + std::to_string(thread);
            for (int i = 0; i < 25; ++i) {
                store.setObject(Value::integer(i), key);
                EXPECT_EQ(store.objectForKey(key), Value::integer(i));
                store.persistentDomainForName(fileWatcherDomain);
            }
        });
    }
    for (auto& thread : threads)
        thread.join();
    const auto domain = store.persistentDomainForName(serviceDomain);
    ASSERT_TRUE(domain);
    EXPECT_EQ(domain->count(), 4u);
    for (int thread = 0; thread < 4; ++thread)
        EXPECT_EQ(*domain->find("key" + std::to_string(thread)), Value::integer(24));
}

TEST(UserDefaultsFiles, TheStandardDefaultsOfTheProgramUseItsApplicationDomainAndTheFolderOfTheEnvironment)
{
    // The store of the process is made once, on first use; no other test of this executable uses it.
    TempDir folder;
    ::setenv("KORBANHOLD_PREFERENCES_DIR", folder.string().c_str(), 1);
    UserDefaults::setApplicationDomain(serviceDomain);
    UserDefaults& standard = UserDefaults::standardUserDefaults();
    ::unsetenv("KORBANHOLD_PREFERENCES_DIR");
    EXPECT_EQ(&standard, &UserDefaults::standardUserDefaults());
    EXPECT_EQ(standard.applicationDomain(), serviceDomain);
    EXPECT_EQ(standard.folder(), folder.path());
    standard.setObject(Value("1"), "k");
    EXPECT_TRUE(std::filesystem::is_regular_file(folder / "Ulmaridon.SyncFilesXpcService.sqlite"));
}
