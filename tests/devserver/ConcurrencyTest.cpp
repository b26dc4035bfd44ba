// Several clients posting batch reports at once: every batch is applied whole, and the table ends as the batches
// say, whatever their interleaving.

#include "devserver/DevServerTest.h"

#include <atomic>
#include <set>
#include <thread>

using namespace devservertest;
using platform::Value;

namespace {

constexpr int clients = 8;
constexpr int batchesPerClient = 20;
constexpr int filesPerFolder = 10;
const std::string sharedPath = "shared\\common";

std::string folderOf(int client, const std::string& name) { return "c" + std::to_string(client) + "\\" + name; }

// The batch number `batch` of client `client`: a new folder with its files, the shared path again, and now and then
// a rename or a deletion of an earlier folder of the same client. Every batch leaves the number of the client's paths
// a multiple of (folder + files).
std::vector<Change> batchOf(int client, int batch)
{
    const auto folder = folderOf(client, "f" + std::to_string(batch));
    std::vector<Change> changes { { "Created", folder } };
    for (int file = 0; file < filesPerFolder; ++file)
        changes.push_back({ "Created", folder + "\\" + std::to_string(file) });
    changes.push_back({ "Created", sharedPath });
    if (batch % 4 == 3) {
        changes.push_back({ .type = "Renamed", .fullPath = folderOf(client, "r" + std::to_string(batch - 1)),
            .oldFullPath = folderOf(client, "f" + std::to_string(batch - 1)) });
    }
    if (batch % 5 == 4)
        changes.push_back({ "Deleted", folderOf(client, "f" + std::to_string(batch - 2)) });
    return changes;
}

// The same changes applied to a set of paths, one after the other.
void apply(std::set<std::string>& paths, const Change& change)
{
    const auto below = [](const std::string& path, const std::string& folder) {
        return path.starts_with(folder + "\\");
    };
    if (change.type == "Created") {
        paths.insert(change.fullPath);
    } else if (change.type == "Deleted") {
        std::erase_if(paths, [&](const std::string& path) { return path == change.fullPath || below(path, change.fullPath); });
    } else if (change.type == "Renamed") {
        std::set<std::string> moved;
        for (const auto& path : paths) {
            if (path == change.oldFullPath || below(path, change.oldFullPath))
                moved.insert(change.fullPath + path.substr(change.oldFullPath.size()));
            else
                moved.insert(path);
        }
        paths = std::move(moved);
    }
}

}

TEST(ConcurrentClients, EightClientsPostingBatchesLeaveAConsistentTable)
{
    DevServerProcess server;
    std::atomic<int> writersLeft { clients };
    std::vector<std::vector<std::string>> statuses(clients);
    std::vector<std::set<std::string>> sharedIds(clients);

    std::vector<std::thread> writers;
    for (int client = 0; client < clients; ++client) {
        writers.emplace_back([&, client] {
            for (int number = 0; number < batchesPerClient; ++number) {
                const auto changes = batchOf(client, number);
                const auto reply = postBatch(server, changes).json();
                for (std::size_t index = 0; index < reply.count(); ++index) {
                    statuses[client].push_back(reply.at(index).find("ReturnStatus")->string());
                    if (changes[index].fullPath == sharedPath)
                        sharedIds[client].insert(reply.at(index).find("FileID")->string());
                }
            }
            --writersLeft;
        });
    }

    // Meanwhile a reader never sees part of a batch: each client's paths come in whole folders.
    int snapshots = 0;
    do {
        const auto table = fileTable(server, "7");
        std::vector<int> counts(clients, 0);
        for (const auto& [path, id] : table) {
            if (path != sharedPath)
                ++counts[std::stoi(path.substr(1))];
        }
        for (int client = 0; client < clients; ++client)
            ASSERT_EQ(counts[client] % (1 + filesPerFolder), 0) << "client " << client << " in snapshot " << snapshots;
        ++snapshots;
    } while (writersLeft > 0);
    for (auto& writer : writers)
        writer.join();

    std::set<std::string> expected { sharedPath };
    for (int client = 0; client < clients; ++client) {
        EXPECT_EQ(std::count(statuses[client].begin(), statuses[client].end(), "0"),
            static_cast<long>(statuses[client].size()));
        std::set<std::string> own;
        for (int number = 0; number < batchesPerClient; ++number) {
            for (const auto& change : batchOf(client, number))
                apply(own, change);
        }
        expected.insert(own.begin(), own.end());
    }
    const auto table = fileTable(server, "7");
    std::set<std::string> found;
    std::set<long long> ids;
    for (const auto& [path, id] : table) {
        found.insert(path);
        ids.insert(id);
    }
    EXPECT_EQ(found, expected);
    EXPECT_EQ(ids.size(), table.size()) << "two paths share a file id";

    // Every client was told the same id for the path they all created.
    std::set<std::string> allSharedIds;
    for (const auto& idsOfClient : sharedIds)
        allSharedIds.insert(idsOfClient.begin(), idsOfClient.end());
    EXPECT_EQ(allSharedIds, std::set<std::string> { std::to_string(table.at(sharedPath)) });
    EXPECT_GT(snapshots, 0);
}
