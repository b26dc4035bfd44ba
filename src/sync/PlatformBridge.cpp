#include "sync/PlatformBridge.h"


#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <ctime>
#include <dirent.h>
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


}
