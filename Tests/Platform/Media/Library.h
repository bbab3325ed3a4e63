// A folder of files that stands for a stick, a fresh database beside it, and the C interface as
// tests like to call it.
#ifndef TESTS_PLATFORM_MEDIA_LIBRARY_H
#define TESTS_PLATFORM_MEDIA_LIBRARY_H

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "MediaContent.h"
#include "MediaContent/MediaService.h"
#include "Support/Basics.h"

namespace media_test {

using test::Until;
using Texts = std::map<std::string, std::string>;

constexpr auto kRefused = MEDIA_CONTENT_ERROR_INVALID_PARAMETER;

// Makes the file with its folders; an old file of the name is overwritten.
void WriteFile(const std::string& path, const std::string& content = "x");

struct Item {
    std::string id;
    std::string path;
    std::string title;
    media_content_type_e type;
    bool operator==(const Item& other) const {
        return id == other.id && path == other.path && title == other.title && type == other.type;
    }
};

// A filter as tests write it down.
struct Filter {
    std::string storage{};
    std::string condition{};
    media_content_collation_e conditionCollation = MEDIA_CONTENT_COLLATE_DEFAULT;
    std::string order{};
    media_content_order_e direction = MEDIA_CONTENT_ORDER_DESC;
    media_content_collation_e orderCollation = MEDIA_CONTENT_COLLATE_DEFAULT;
    int offset = 0;
    int count = -1;
};
using FilterHandle = std::unique_ptr<media_filter_s, int (*)(media_filter_h)>;
FilterHandle Make(const Filter& filter);

// Each adds a test failure when the call does not return `expected`.
int Count(const Filter& filter, int expected = MEDIA_CONTENT_ERROR_NONE);
std::vector<Item> List(const Filter& filter, int expected = MEDIA_CONTENT_ERROR_NONE);
std::vector<Item> ListFolder(const std::string& folderId, const Filter& filter = {});
int CountFolder(const std::string& folderId, const Filter& filter = {});
Texts Folders(const Filter& filter = {});  // path to id
Item Describe(media_info_h media);
std::string Text(const std::function<int(char**)>& getter);

std::string StorageAt(const std::string& mountPath);  // its id, "" when there is none
media_storage_scan_status_e ScanStatus(const std::string& storageId);

// These two look into a database file directly, while no service has it open. The first adds a test
// failure when SQLite finds the file damaged or the kept counts differ from the rows; the other
// runs one statement and returns its first number.
void ExpectSound(const std::string& databaseFile);
long long Ask(const std::string& databaseFile, const std::string& sql);

// Configures the service for a database in a temporary folder; shuts it down at the end and
// expects that no scan and no record is left.
class MediaTest : public testing::Test {
protected:
    MediaTest();
    ~MediaTest() override;

    void Connect() { ASSERT_EQ(media_content_connect(), 0); }
    void Disconnect() { ASSERT_EQ(media_content_disconnect(), 0); }
    // Mounts the folder `name` of the sticks' folder.
    void StartMount(const std::string& name, const std::string& uuid);
    // ... waits for the end of its scan, and returns its id.
    std::string Mount(const std::string& name, const std::string& uuid);
    void WaitForScan(const std::string& storageId);
    void Unmount(const std::string& name) { platform::StorageUnmounted(Stick(name)); }
    void ScanFolder(const std::string& name, bool recursive);
    // Tells that these files or folders of the stick have changed: without any, that anything may
    // have, and waits for the end of that scan.
    void TellChanged(const std::string& stick, const std::vector<std::string>& names = {});
    // The ids of what is listed below the folder, by their paths from there.
    Texts Ids(const std::string& name, const Filter& filter = {}) const;
    std::string Stick(const std::string& name) const { return m_sticks / name; }
    std::string DatabaseFile() const { return m_state / "media.db"; }

private:
    test::TempFolder m_sticks;
    test::TempFolder m_state;
};

}  // namespace media_test

#endif
