#include "EndToEnd/Support/Crew.h"

#include <stdlib.h>

#include <random>

#include "EndToEnd/Support/ServiceTest.h"

namespace test {

int FromEnvironment(const char* name, int otherwise) {
    const char* text = getenv(name);
    return text ? atoi(text) : otherwise;
}

void LiveRandomly(const std::string& socket, unsigned seed, const std::atomic<bool>& stop) {
    std::mt19937 random(seed);
    MediaClient client(socket);
    std::string storageId;
    while (!stop) {
        switch (random() % 6) {
            case 0: {
                const Json::Value storages = Parse(client.Run("GetStorages"))["storages"];
                if (!storages.empty()) storageId = storages[0]["id"].asString();
                break;
            }
            case 1:
                EXPECT_EQ(client.Run("Disconnect"), "1");
                EXPECT_EQ(client.Run("Connect"), "1");
                break;
            default:
                if (storageId.empty()) break;
                EXPECT_GE(client.Query(storageId, "photo", "", "false"), 0);
                client.Fetch(0, 10);
        }
        client.Raw().TakeAll();
    }
}

}  // namespace test
