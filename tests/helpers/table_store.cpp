// A child program for the crash-safety test of the preference database: stores the versions of TableVersions.h
// one after the other, from the one after the stored version on, until it is killed. The preferences folder comes
// from the environment.
//
//   table_store   prints "stored" once its first store is done; exit status 1 with a line on stderr when the stored
//                 domain is no version, or a store failed

#include "TableVersions.h"

#include "platform/UserDefaults.h"

#include <cstdio>

int main()
{
    platform::UserDefaults store("table_store", platform::preferencesFolder(), platform::databaseDomainFolder());
    const auto stored = store.persistentDomainForName(testsupport::tableVersionsDomain);
    std::int64_t generation = stored ? testsupport::generationOf(*stored) : 0;
    if (generation < 0) {
        std::fprintf(stderr, "the stored domain is no version of the table\n");
        return 1;
    }
    for (bool first = true;; first = false) {
        store.setPersistentDomain(testsupport::tableVersion(++generation), testsupport::tableVersionsDomain);
        if (!store.synchronize()) {
            std::fprintf(stderr, "a store failed\n");
            return 1;
        }
        if (first) {
            std::printf("stored\n");
            std::fflush(stdout);
        }
    }
}
