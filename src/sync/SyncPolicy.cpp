#include "sync/SyncPolicy.h"

#include <atomic>
#include <charconv>
#include <cstdlib>
#include <optional>
#include <string_view>

namespace engine {

namespace {

    std::chrono::milliseconds retryDelayFromEnvironment()
    {
        constexpr std::chrono::milliseconds standard { 2000 };
        const char* text = std::getenv("KORBANHOLD_RETRY_BACKOFF_MS");
        if (!text || !*text)
            return standard;
        std::string_view digits(text);
        long milliseconds = 0;
        auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), milliseconds);
        if (error != std::errc() || end != digits.data() + digits.size() || milliseconds <= 0)
            return standard;
        return std::chrono::milliseconds(milliseconds);
    }

    // 0: not set, 1: strict, 2: guarded.
    std::atomic<int> processMode { 0 };

}

SyncPolicy::SyncPolicy(bool strict)
    : m_strict(strict)
    , m_firstRetryDelay(retryDelayFromEnvironment())
{
}

SyncPolicy SyncPolicy::strict() { return SyncPolicy(true); }
SyncPolicy SyncPolicy::guarded() { return SyncPolicy(false); }

SyncPolicy SyncPolicy::fromEnvironment()
{
    const char* strictSetting = std::getenv("KORBANHOLD_STRICT");
    return SyncPolicy(strictSetting && std::string_view(strictSetting) == "1");
}

SyncPolicy SyncPolicy::forProcess()
{
    switch (processMode.load()) {
    case 1:
        return strict();
    case 2:
        return guarded();
    default:
        return fromEnvironment();
    }
}

void SyncPolicy::setForProcess(SyncPolicy policy) { processMode.store(policy.isStrict() ? 1 : 2); }

}
