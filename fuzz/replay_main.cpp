// Replays every file of the given folders through LLVMFuzzerTestOneInput, so that the seed corpus of each fuzz
// target runs as an ordinary test in builds without libFuzzer.
//
// It takes libFuzzer's two memory options, so that a replay holds a decoder to the same bounds as a fuzzing run:
//   -malloc_limit_mb=N  one allocation (operator new) of more than N MiB ends the replay with a report;
//   -rss_limit_mb=N     a peak resident size above N MiB after an input ends the replay with a report.
// Both are left out of sanitizer builds, whose allocators and shadow memory have limits and sizes of their own.
#include <sys/resource.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <new>
#include <string_view>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define KORBANHOLD_REPLAY_LIMITS 0
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define KORBANHOLD_REPLAY_LIMITS 0
#endif
#endif
#ifndef KORBANHOLD_REPLAY_LIMITS
#define KORBANHOLD_REPLAY_LIMITS 1
#endif

namespace {

std::size_t mallocLimitBytes = 0; // 0: no limit
std::size_t rssLimitKilobytes = 0;
const char* currentInput = "";

// A value of option `name` ("-name=N") in `argument`, in MiB.
bool takeOption(std::string_view argument, std::string_view name, std::size_t& megabytes)
{
    if (!argument.starts_with(name) || argument.size() <= name.size())
        return false;
    megabytes = std::strtoull(argument.data() + name.size(), nullptr, 10);
    return true;
}

bool withinRssLimit()
{
    if (!KORBANHOLD_REPLAY_LIMITS || rssLimitKilobytes == 0)
        return true;
    rusage usage {};
    ::getrusage(RUSAGE_SELF, &usage);
    if (static_cast<std::size_t>(usage.ru_maxrss) <= rssLimitKilobytes)
        return true;
    std::fprintf(stderr, "replay: out of memory: the peak resident size is %ld KiB, more than -rss_limit_mb, after %s\n",
        usage.ru_maxrss, currentInput);
    return false;
}

}

#if KORBANHOLD_REPLAY_LIMITS
// Every other form of operator new of the standard library ends up here, and operator delete frees with free().
void* operator new(std::size_t size)
{
    if (mallocLimitBytes != 0 && size > mallocLimitBytes) {
        std::fprintf(stderr, "replay: out of memory: one allocation of %zu bytes, more than -malloc_limit_mb, in %s\n",
            size, currentInput);
        std::abort();
    }
    if (void* memory = std::malloc(size == 0 ? 1 : size))
        return memory;
    throw std::bad_alloc();
}
#endif

int main(int argc, char** argv)
{
    size_t replayed = 0;
    for (int i = 1; i < argc; ++i) {
        std::size_t megabytes = 0;
        if (takeOption(argv[i], "-malloc_limit_mb=", megabytes)) {
            mallocLimitBytes = megabytes << 20;
            continue;
        }
        if (takeOption(argv[i], "-rss_limit_mb=", megabytes)) {
            rssLimitKilobytes = megabytes << 10;
            continue;
        }
        std::error_code error;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(argv[i], error)) {
            if (!entry.is_regular_file())
                continue;
            std::ifstream in(entry.path(), std::ios::binary);
            std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
            const std::string name = entry.path().string();
            currentInput = name.c_str();
            LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
            const bool withinLimit = withinRssLimit();
            currentInput = "";
            if (!withinLimit)
                return 1;
            ++replayed;
        }
        if (error) {
            std::fprintf(stderr, "cannot read corpus %s: %s\n", argv[i], error.message().c_str());
            return 1;
        }
    }
    std::printf("replayed %zu inputs\n", replayed);
    return replayed > 0 ? 0 : 1;
}
