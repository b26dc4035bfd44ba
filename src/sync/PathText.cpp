#include "sync/PathText.h"

#include "sync/Raises.h"

namespace engine {

namespace {
    std::string_view withoutTrailingSlashes(std::string_view path)
    {
        while (path.size() > 1 && path.back() == '/')
            path.remove_suffix(1);
        return path;
    }
}

std::string replacingOccurrences(std::string text, std::string_view target, std::string_view replacement)
{
    if (target.empty())
        return text;
    for (auto at = text.find(target); at != std::string::npos; at = text.find(target, at + replacement.size()))
        text.replace(at, target.size(), replacement);
    return text;
}

std::string_view lastPathComponent(std::string_view path)
{
    path = withoutTrailingSlashes(path);
    if (path == "/")
        return path;
    auto slash = path.rfind('/');
    return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

std::string_view deletingLastPathComponent(std::string_view path)
{
    path = withoutTrailingSlashes(path);
    auto slash = path.rfind('/');
    if (slash == std::string_view::npos)
        return {};
    std::string_view parent = path.substr(0, slash);
    while (!parent.empty() && parent.back() == '/')
        parent.remove_suffix(1);
    return parent.empty() ? std::string_view("/") : parent;
}

std::vector<std::string_view> splitAtSlashes(std::string_view text)
{
    std::vector<std::string_view> parts;
    std::size_t start = 0;
    for (;;) {
        auto slash = text.find('/', start);
        if (slash == std::string_view::npos) {
            parts.push_back(text.substr(start));
            return parts;
        }
        parts.push_back(text.substr(start, slash - start));
        start = slash + 1;
    }
}

std::string topLevelItemPath(std::string_view syncedFolder, std::string_view path)
{
    std::size_t depth = splitAtSlashes(syncedFolder).size();
    auto parts = splitAtSlashes(path);
    if (parts.size() <= depth)
        raiseIndexBeyondBounds(depth, parts.size());
    std::string result;
    for (std::size_t index = 1; index <= depth; ++index) {
        result += '/';
        result += parts[index];
    }
    return result;
}

}
