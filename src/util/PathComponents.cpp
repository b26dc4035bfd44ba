#include "util/PathComponents.h"

namespace util {

namespace {

std::string_view withoutTrailingSlashes(std::string_view path)
{
    while (path.size() > 1 && path.back() == '/')
        path.remove_suffix(1);
    return path;
}

}

std::string_view lastPathComponent(std::string_view path)
{
    path = withoutTrailingSlashes(path);
    if (path == "/")
        return path;
    const std::size_t slash = path.rfind('/');
    return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

std::string_view deletingLastPathComponent(std::string_view path)
{
    path = withoutTrailingSlashes(path);
    const std::size_t slash = path.rfind('/');
    if (slash == std::string_view::npos)
        return {};
    std::string_view folder = path.substr(0, slash);
    while (!folder.empty() && folder.back() == '/')
        folder.remove_suffix(1);
    return folder.empty() ? std::string_view("/") : folder;
}

}
