#include "devserver/ServiceMethods.h"

#include "devserver/BatchMethod.h"

#include <algorithm>
#include <array>
#include <utility>

namespace devserver {

// PENDING: the other methods arrive with the operation table of src/messages.
static constexpr std::array<std::pair<std::string_view, MethodHandler>, 1> methods { {
    { "SyncFileChanges.svc/SyncFilesInTableAndCloud", &syncFilesInTableAndCloud },
} };

MethodHandler findMethod(std::string_view methodPath)
{
    const auto* found = std::find_if(
        methods.begin(), methods.end(), [&](const auto& method) { return method.first == methodPath; });
    return found == methods.end() ? nullptr : found->second;
}

std::vector<std::string_view> methodPaths()
{
    std::vector<std::string_view> paths;
    for (const auto& method : methods)
        paths.push_back(method.first);
    return paths;
}

}
