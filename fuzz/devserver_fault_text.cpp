// Arbitrary fault descriptions as the devserver's command line takes them: refused with a reason, never a crash.

#include "devserver/Faults.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    try {
        devserver::faultFromText(std::string_view(reinterpret_cast<const char*>(data), size));
    } catch (const devserver::FaultError&) {
    }
    return 0;
}
