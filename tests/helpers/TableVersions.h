#pragma once

// Versions of a watched-files table for the crash-safety test of the preference database: version g differs from
// version g - 1 in some records, in its length and in its "generation" key, so that a domain torn between two
// stores matches no version.

#include "platform/Value.h"

#include <algorithm>
#include <cstdint>
#include <string>

namespace testsupport {

inline constexpr const char* tableVersionsDomain = "Ulmaridon.SyncFilesXpcService";

inline platform::Value tableVersion(std::int64_t generation)
{
    const std::int64_t count = 60 + (generation * 37) % 40;
    platform::Array records;
    records.reserve(static_cast<std::size_t>(count));
    for (std::int64_t i = 0; i < count; ++i) {
        const std::string number = std::to_string(i);
        // Every seventh record changes with each generation; the others stay, so a store writes a few rows only.
        const std::string fileID = i % 7 == generation % 7 ? std::to_string(generation) : "0";
        records.push_back(platform::Value::dictionary({ { "FileIDKey", fileID }, { "BaseSystemFileIDKey", number },
            { "BaseSystemFilePathKey", "/home/ann/Korbanhold/f" + number } }));
    }
    return platform::Value::dictionary({ { "generation", platform::Value::integer(generation) },
        { "FileWatchedDataKey", platform::Value::arrayOf(std::move(records)) } });
}

// The generation whose table `table` is exactly ("FileWatchedDataKey" of that version), else -1. The records that
// changed last carry the generation in "FileIDKey".
inline std::int64_t generationOfTable(const platform::Value& table)
{
    if (!table.isArray())
        return -1;
    std::int64_t generation = 0;
    for (const platform::Value& record : table.elements())
        if (const platform::Value* fileID = record.isDictionary() ? record.find("FileIDKey") : nullptr)
            generation = std::max<std::int64_t>(generation, std::stoll(fileID->string()));
    return *tableVersion(generation).find("FileWatchedDataKey") == table ? generation : -1;
}

// The generation of `domain` when it is exactly that version, else -1.
inline std::int64_t generationOf(const platform::Value& domain)
{
    const platform::Value* generation = domain.find("generation");
    if (!generation || !generation->isNumber())
        return -1;
    const std::int64_t g = generation->number().int64Value();
    return domain == tableVersion(g) ? g : -1;
}

}
