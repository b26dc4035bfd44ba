#include "sync/PlatformBridge.h"

#include "platform/Json.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <ctime>
#include <dirent.h>
#include <fstream>
#include <sstream>
#include <sys/stat.h>
#include <vector>

namespace engine::bridge {

static std::string formatLocal(double seconds, const char* pattern)
{
    std::time_t time = static_cast<std::time_t>(std::floor(seconds));
    std::tm parts {};
    localtime_r(&time, &parts);
    char text[64];
    std::strftime(text, sizeof text, pattern, &parts);
    return text;
}

std::string formatRecordDate(double secondsSince1970) { return formatLocal(secondsSince1970, "%Y-%m-%d %I:%M:%S"); }
std::string formatFullPathTime(double secondsSince1970) { return formatLocal(secondsSince1970, "%m-%d-%Y %I:%M:%S %p"); }

bool isLessThan10_10()
{
    const char* text = std::getenv("KORBANHOLD_APPKIT_VERSION");
    double release = text ? std::floor(std::strtod(text, nullptr)) : 2487.0;
    return release >= 1138.0 && release < 1343.0;
}

std::optional<Attributes> attributesOfItem(const std::string& path)
{
    struct stat info {};
    if (lstat(path.c_str(), &info) != 0)
        return std::nullopt;
    return Attributes { info.st_ino, S_ISDIR(info.st_mode), static_cast<std::uint64_t>(info.st_size),
        static_cast<double>(info.st_mtim.tv_sec) + info.st_mtim.tv_nsec / 1e9 };
}

bool fileExists(const std::string& path)
{
    struct stat info {};
    return stat(path.c_str(), &info) == 0;
}

static void enumerateBelow(const std::string& base, const std::string& prefix,
    const std::function<void(const std::string&, const std::optional<Attributes>&)>& visit)
{
    DIR* folder = opendir((base + "/" + prefix).c_str());
    if (!folder)
        return;
    std::vector<std::string> names;
    while (auto* entry = readdir(folder)) {
        std::string name = entry->d_name;
        if (name != "." && name != "..")
            names.push_back(name);
    }
    closedir(folder);
    std::sort(names.begin(), names.end());
    for (const auto& name : names) {
        std::string relative = prefix.empty() ? name : prefix + "/" + name;
        auto attributes = attributesOfItem(base + "/" + relative);
        visit(relative, attributes);
        if (attributes && attributes->isDirectory)
            enumerateBelow(base, relative, visit);
    }
}

void enumerate(const std::string& base,
    const std::function<void(const std::string&, const std::optional<Attributes>&)>& visit)
{
    enumerateBelow(base, "", visit);
}

static std::string domainFile(std::string_view name)
{
    const char* folder = std::getenv("KORBANHOLD_PREFERENCES_DIR");
    return std::string(folder ? folder : "/tmp") + "/" + std::string(name) + ".json";
}

std::optional<platform::Value> persistentDomain(std::string_view name)
{
    std::ifstream in(domainFile(name));
    if (!in)
        return std::nullopt;
    std::stringstream text;
    text << in.rdbuf();
    try {
        auto value = platform::readJson(text.str());
        if (value.isDictionary())
            return value;
    } catch (const platform::Exception&) {
    }
    return std::nullopt;
}

void setPersistentDomain(const platform::Value& domain, std::string_view name)
{
    std::string path = domainFile(name);
    {
        std::ofstream out(path + ".tmp", std::ios::trunc);
        out << platform::writeJson(domain);
    }
    std::rename((path + ".tmp").c_str(), path.c_str());
}

std::optional<platform::Value> standardObject(std::string_view key)
{
    auto domain = persistentDomain("Ulmaridon.SyncFilesXpcService");
    return domain ? domain->objectForKey(key) : std::nullopt;
}

void setStandardObject(const platform::Value& value, std::string_view key)
{
    auto domain = persistentDomain("Ulmaridon.SyncFilesXpcService").value_or(platform::Value::dictionary());
    domain.setObject(value, key);
    setPersistentDomain(domain, "Ulmaridon.SyncFilesXpcService");
}

}
