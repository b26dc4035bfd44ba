// A child program for the preference tests: replaces one preference domain many times, or reads it over and over
// while others replace it, checking that every version read is one that a writer wrote whole. The preferences
// folder comes from the environment, as for every program of the product.
//
//   domain_stress write DOMAIN WRITER COUNT   writes versions 0 .. COUNT-1 of writer WRITER
//   domain_stress read DOMAIN STOPFILE        reads until STOPFILE exists (then once more); prints
//                                             "reads=R parses=P versions=V last=WRITER:SEQUENCE"
// Exit status 0 when all went well, 1 with a line on stderr otherwise, 2 on a usage error.

#include "platform/UserDefaults.h"

#include <cstdio>
#include <map>
#include <string>
#include <unistd.h>

using platform::UserDefaults;
using platform::Value;

namespace {

// Version `sequence` of writer `writer`: a payload whose length varies from version to version, so that a file
// torn between two versions cannot pass for either.
Value versionRecord(std::int64_t writer, std::int64_t sequence)
{
    Value payload = Value::array();
    const std::int64_t length = 1 + (writer * 37 + sequence * 11) % 64;
    const std::string prefix = "w" + std::to_string(writer) + "-s" + std::to_string(sequence) + "-i";
    for (std::int64_t i = 0; i < length; ++i)
        payload.append(Value(prefix + std::to_string(i)));
    return Value::dictionary({ { "writer", Value::integer(writer) }, { "sequence", Value::integer(sequence) },
        { "payload", payload } });
}

int fail(const std::string& message)
{
    std::fprintf(stderr, "%s\n", message.c_str());
    return 1;
}

int write(const std::string& domain, std::int64_t writer, std::int64_t count)
{
    UserDefaults store("domain_stress", platform::preferencesFolder());
    for (std::int64_t sequence = 0; sequence < count; ++sequence)
        store.setPersistentDomain(versionRecord(writer, sequence), domain);
    return store.synchronize() ? 0 : fail("a write failed");
}

int read(const std::string& domain, const std::string& stopFile)
{
    const auto folder = platform::preferencesFolder();
    std::map<std::int64_t, std::int64_t> lastSequenceOfWriter;
    std::uint64_t reads = 0;
    std::uint64_t parses = 0;
    std::uint64_t versions = 0;
    std::string last;
    for (bool stopping = false, stopped = false; !stopped; stopped = stopping) {
        stopping = ::access(stopFile.c_str(), F_OK) == 0;
        // A new store per read, so that every read parses the file as it is on disk at that moment.
        UserDefaults store("domain_stress", folder);
        const auto read = store.persistentDomainForName(domain);
        ++reads;
        parses += store.parseCount();
        if (!read)
            return fail("read " + std::to_string(reads) + ": the domain reads as absent");
        const auto* writer = read->find("writer");
        const auto* sequence = read->find("sequence");
        if (!writer || !sequence || !writer->isNumber() || !sequence->isNumber())
            return fail("read " + std::to_string(reads) + ": no writer and sequence in " + read->description());
        const auto writerNumber = writer->number().int64Value();
        const auto sequenceNumber = sequence->number().int64Value();
        if (!(*read == versionRecord(writerNumber, sequenceNumber)))
            return fail("read " + std::to_string(reads) + ": not a version that was written: " + read->description());
        // Versions of one writer replace each other in order, so a reader never sees one go back.
        auto [previous, isNewWriter] = lastSequenceOfWriter.try_emplace(writerNumber, sequenceNumber);
        if (!isNewWriter && sequenceNumber < previous->second)
            return fail("writer " + std::to_string(writerNumber) + " went back from " + std::to_string(previous->second)
                + " to " + std::to_string(sequenceNumber));
        const std::string current = std::to_string(writerNumber) + ":" + std::to_string(sequenceNumber);
        versions += current != last;
        last = current;
        previous->second = sequenceNumber;
    }
    std::printf("reads=%llu parses=%llu versions=%llu last=%s\n", static_cast<unsigned long long>(reads),
        static_cast<unsigned long long>(parses), static_cast<unsigned long long>(versions), last.c_str());
    return 0;
}

}

int main(int argc, char** argv)
{
    const std::string mode = argc > 1 ? argv[1] : "";
    if (mode == "write" && argc == 5)
        return write(argv[2], std::stoll(argv[3]), std::stoll(argv[4]));
    if (mode == "read" && argc == 4)
        return read(argv[2], argv[3]);
    std::fprintf(stderr, "usage: domain_stress write DOMAIN WRITER COUNT | read DOMAIN STOPFILE\n");
    return 2;
}
