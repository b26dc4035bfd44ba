#pragma once

// TEMPORARY: stands in for the platform services (file manager, date formats, OS version)
// until they are merged; each function is replaced by a direct call of the platform service and this file removed.

#include "platform/Value.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace engine::bridge {

struct Attributes {
    std::uint64_t fileNumber = 0;
    bool isDirectory = false;
    std::uint64_t size = 0;
    double modificationDate = 0;
};

std::string formatRecordDate(double secondsSince1970);
std::string formatFullPathTime(double secondsSince1970);
bool isLessThan10_10();

std::optional<Attributes> attributesOfItem(const std::string& path);
bool fileExists(const std::string& path);
// Deep enumeration in the enumerator's order; attributes are absent when the item could not be read.
void enumerate(const std::string& base,
    const std::function<void(const std::string& relative, const std::optional<Attributes>&)>& visit);

}
