// A folder of files that stands for a stick, a fresh database beside it, and the C interface as
// tests like to call it.
#ifndef TESTS_PLATFORM_MEDIA_LIBRARY_H
#define TESTS_PLATFORM_MEDIA_LIBRARY_H

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "MediaContent.h"
#include "MediaContent/MediaService.h"

namespace media_test {

// A temporary folder that goes with the object.
class TemporaryFolder {
public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    const std::string& Path() const { return m_path; }
    std::string operator/(const std::string& name) const { return m_path + '/' + name; }

private:
    std::string m_path;
};

// Makes the file with its folders; an old file of the name is overwritten.
void WriteFile(const std::string& path, const std::string& content = "x");

// True as soon as `condition` holds, false when it does not within a minute.
bool WaitFor(const std::function<bool()>& condition);

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
std::map<std::string, std::string> Folders(const Filter& filter = {});  // path to id
Item Describe(media_info_h media);
std::string Text(const std::function<int(char**)>& getter);

std::map<std::string, std::string> IdsByPath(const Filter& filter = {});
std::string StorageAt(const std::string& mountPath);  // its id, "" when there is none
media_storage_scan_status_e ScanStatus(const std::string& storageId);

// Configures the service for a database in a temporary folder; shuts it down at the end and
// expects that no scan and no record is left.
class MediaTest : public testing::Test {
protected:
    MediaTest();
    ~MediaTest() override;

    void Connect();
    void Disconnect();
    // Mounts the folder `name` of the sticks' folder and waits for the end of its scan.
    std::string Mount(const std::string& name, const std::string& uuid);
    void WaitForScan(const std::string& storageId);
    void Unmount(const std::string& name);
    void ScanFolder(const std::string& path, bool recursive,
                    media_content_error_e expected = MEDIA_CONTENT_ERROR_NONE);
    std::string Stick(const std::string& name) const { return m_sticks / name; }
    std::string DatabaseFile() const { return m_state / "media.db"; }

private:
    TemporaryFolder m_sticks;
    TemporaryFolder m_state;
    int m_connections = 0;
};

}  // namespace media_test

#endif
