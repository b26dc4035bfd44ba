// How long korbanhold-devserver takes to answer one batch report of 100,000 "Created" changes, posted over HTTP on
// loopback as the client posts it (pretty-printed JSON), with the database in a file in WAL mode.
//
// Usage: bench_devserver_batch [changes] [rounds]

#include "devserver/DevServer.h"
#include "messages/QueryParser.h"
#include "platform/Json.h"

#include <curl/curl.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <sys/resource.h>
#include <unistd.h>
#include <vector>

namespace {

// The body as the client sends it: the "syncData" array of its encoded change records, pretty-printed.
std::string batchBody(int changes)
{
    std::vector<messages::SyncFilesInTableAndCloudQuery> records;
    records.reserve(static_cast<std::size_t>(changes));
    for (int index = 0; index < changes; ++index) {
        // A tree of 100 folders of files, as a first sync of a full folder reports it.
        const std::string path = "Users\\ann\\Korbanhold\\folder" + std::to_string(index % 100) + "\\file"
            + std::to_string(index) + ".txt";
        records.push_back({ "Created", "", path, "12", "Users\\ann\\Korbanhold", "1", "1", "2024-05-01 10:00:00",
            std::to_string(1000000 + index), "" });
    }
    const auto encoded = messages::QueryParser::parseSyncFilesInTableAndCloudQuery(records);
    return platform::writeJson(*encoded.find("syncData"), { .prettyPrinted = true });
}

std::size_t collect(char* data, std::size_t size, std::size_t count, void* target)
{
    static_cast<std::string*>(target)->append(data, size * count);
    return size * count;
}

double cpuSeconds()
{
    rusage usage {};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_utime.tv_sec + usage.ru_stime.tv_sec + (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

struct Measure {
    double seconds = 0;
    // Processor time of the whole process (server and client) meanwhile: on a busy machine it tells the cost of
    // the request better than the elapsed time.
    double cpuSeconds = 0;
};

// Posts the body and measures the time from the start of the request to the end of the reply.
Measure post(const std::string& url, const std::string& body, long& status, std::string& reply)
{
    CURL* curl = curl_easy_init();
    curl_slist* headers = curl_slist_append(nullptr, "Content-Type: application/json");
    curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl, CURLOPT_POSTFIELDS, body.data());
    curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers);
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, &collect);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &reply);
    const auto start = std::chrono::steady_clock::now();
    const double cpuStart = cpuSeconds();
    const CURLcode code = curl_easy_perform(curl);
    const double cpu = cpuSeconds() - cpuStart;
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
    curl_slist_free_all(headers);
    curl_easy_cleanup(curl);
    if (code != CURLE_OK)
        status = -code;
    return { elapsed.count(), cpu };
}

}

int main(int argc, char** argv)
{
    const int changes = argc > 1 ? std::atoi(argv[1]) : 100000;
    const int rounds = argc > 2 ? std::atoi(argv[2]) : 3;
    curl_global_init(CURL_GLOBAL_DEFAULT);

    const std::string body = batchBody(changes);
    std::printf("batch report of %d \"Created\" changes, %.1f MB of JSON\n", changes, body.size() / 1e6);

    std::vector<Measure> measures;
    for (int round = 0; round < rounds; ++round) {
        // A fresh database each round, so that every round inserts every path.
        const auto database = std::filesystem::temp_directory_path()
            / ("korbanhold-bench-" + std::to_string(getpid()) + "-" + std::to_string(round) + ".sqlite");
        {
            devserver::DevServer server({ .databasePath = database.string() });
            server.start();
            long status = 0;
            std::string reply;
            measures.push_back(post(server.baseUrl() + "SyncFileChanges.svc/SyncFilesInTableAndCloud", body, status, reply));
            std::printf("round %d: HTTP %ld, %zu bytes of reply, %.3f s (processor time %.3f s)\n", round + 1, status,
                reply.size(), measures.back().seconds, measures.back().cpuSeconds);
        }
        for (const char* suffix : { "", "-wal", "-shm" })
            std::filesystem::remove(database.string() + suffix);
    }
    std::sort(measures.begin(), measures.end(), [](const Measure& a, const Measure& b) { return a.seconds < b.seconds; });
    std::printf("reply time: best %.3f s, median %.3f s (processor time of the best: %.3f s)\n", measures.front().seconds,
        measures[measures.size() / 2].seconds, measures.front().cpuSeconds);
    curl_global_cleanup();
    return 0;
}
