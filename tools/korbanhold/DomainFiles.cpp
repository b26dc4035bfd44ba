#include "DomainFiles.h"

#include "platform/PreferenceFiles.h"

#include <system_error>

namespace korbanhold {

platform::UserDefaults preferencesStore()
{
    return platform::UserDefaults("korbanhold", platform::preferencesFolder(), platform::databaseDomainFolder());
}

DomainFile readDomainFile(platform::UserDefaults& store, std::string_view name)
{
    DomainFile file;
    file.path = store.pathOf(std::string(name));
    std::error_code error;
    file.exists = std::filesystem::exists(file.path, error);
    file.domain = store.persistentDomainForName(name);
    return file;
}

}
