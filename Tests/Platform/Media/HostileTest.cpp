// Trees and databases that mean no good, and moments that are badly chosen.
#include <dirent.h>
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <random>
#include <thread>

#include "Library.h"
#include "MediaContent/Database.h"
#include "Sound.h"

namespace media_test {
namespace {

namespace fs = std::filesystem;

using HostileTest = MediaTest;

// A chain of folders that no path of the system's greatest length reaches.
void MakeBottomlessFolder(const std::string& path) {
    fs::create_directories(path);
    int at = open(path.c_str(), O_RDONLY | O_DIRECTORY);
    const std::string name(200, 'd');
    for (int depth = 0; depth < 30; ++depth) {
        ASSERT_EQ(mkdirat(at, name.c_str(), 0700), 0);
        const int file = openat(at, "photo.jpg", O_WRONLY | O_CREAT, 0600);
        ASSERT_GE(file, 0);
        close(file);
        const int below = openat(at, name.c_str(), O_RDONLY | O_DIRECTORY);
        close(at);
        at = below;
    }
    close(at);
}

// The standard library gives up on such a chain: take it away from the bottom.
void RemoveBottomlessFolder(const std::string& path) {
    const std::string name(200, 'd');
    while (true) {
        std::vector<int> chain = {open(path.c_str(), O_RDONLY | O_DIRECTORY)};
        for (int below; (below = openat(chain.back(), name.c_str(), O_RDONLY | O_DIRECTORY)) >= 0;)
            chain.push_back(below);
        for (size_t i = chain.size(); i-- > 0;) {
            unlinkat(chain[i], "photo.jpg", 0);
            if (i > 0) unlinkat(chain[i - 1], name.c_str(), AT_REMOVEDIR);
            close(chain[i]);
        }
        break;
    }
    rmdir(path.c_str());
}

TEST_F(HostileTest, ScansAHostileTree) {
    const std::string stick = Stick("a");
    WriteFile(stick + "/good.jpg");
    WriteFile(stick + "/" + std::string(251, 'n') + ".jpg");
    WriteFile(stick + "/new\nline.jpg");
    WriteFile(stick + "/\xff\xfe\x80.jpg");
    WriteFile(stick + "/\xc3(/bad folder name.jpg");
    WriteFile(stick + "/quote's \"folder\"/%s%n.jpg");
    WriteFile(stick + "/empty.mp3", "");
    WriteFile(stick + "/.jpg");
    WriteFile(stick + "/noextension");
    WriteFile(stick + "/folder.jpg/inside.jpg");
    fs::create_directories(stick + "/loop");
    fs::create_directory_symlink("..", stick + "/loop/up");
    fs::create_directory_symlink("/", stick + "/loop/out");
    fs::create_symlink("self.jpg", stick + "/loop/self.jpg");
    fs::create_symlink(stick + "/good.jpg", stick + "/loop/link.jpg");
    ASSERT_EQ(mkfifo((stick + "/fifo.jpg").c_str(), 0600), 0);
    if (mknod((stick + "/device.jpg").c_str(), S_IFCHR | 0600, makedev(1, 3)) != 0)
        GTEST_LOG_(INFO) << "no device node here";
    WriteFile(stick + "/sparse.mkv");
    ASSERT_EQ(truncate((stick + "/sparse.mkv").c_str(), 10'000'000'000), 0);
    MakeBottomlessFolder(stick + "/deep");

    Connect();
    const std::string id = Mount("a", "U1");
    EXPECT_EQ(ScanStatus(id), MEDIA_STORAGE_SCAN_COMPLETE);
    const auto ids = IdsByPath({id});
    size_t deep = 0;
    for (const auto& [path, itemId] : ids)
        deep += path.compare(0, stick.size() + 5, stick + "/deep") == 0;
    for (const char* name :
         {"/good.jpg", "/new\nline.jpg", "/\xff\xfe\x80.jpg", "/\xc3(/bad folder name.jpg",
          "/quote's \"folder\"/%s%n.jpg", "/empty.mp3", "/folder.jpg/inside.jpg", "/sparse.mkv"})
        EXPECT_EQ(ids.count(stick + name), 1u) << name;
    EXPECT_EQ(ids.count(stick + "/" + std::string(251, 'n') + ".jpg"), 1u);
    EXPECT_EQ(ids.size() - deep, 9u);
    EXPECT_GT(deep, 10u);
    EXPECT_LT(deep, 30u);
    // Titles are clean text, names are the file system's bytes.
    for (const Item& item : List({id, "MEDIA_DISPLAY_NAME = '\xff\xfe\x80.jpg'"}))
        EXPECT_EQ(item.title, "\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd");
    // A second scan finds nothing to do, and nothing to remove.
    platform::StorageContentChanged(stick, {});
    WaitForScan(id);
    EXPECT_EQ(IdsByPath({id}), ids);
    RemoveBottomlessFolder(stick + "/deep");
}

// ---- the stick goes at a bad moment -----------------------------------------------------------

void MakeManyFiles(const std::string& stick, int files) {
    for (int i = 0; i < files; ++i) {
        const std::string folder = stick + "/f" + std::to_string(i / 100);
        if (i % 100 == 0) fs::create_directories(folder);
        std::ofstream(folder + "/" + std::to_string(i) + (i % 3 ? ".jpg" : ".mp3")) << i;
    }
}

int OpenFilesBelow(const std::string& folder) {
    int count = 0;
    for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
        std::error_code ignored;
        const std::string target = fs::read_symlink(entry.path(), ignored);
        count += target.compare(0, folder.size(), folder) == 0;
    }
    return count;
}

TEST_F(HostileTest, LetsGoOfAStickAtOnce) {
    MakeManyFiles(Stick("a"), 3000);
    Connect();
    platform::MountedStorage storage;
    storage.uuid = "U1";
    storage.mountPath = Stick("a");
    std::mt19937 random(1);
    for (int round = 0; round < 30; ++round) {
        platform::StorageMounted(storage);
        const auto progress = random() % 200;
        WaitFor([&] {
            const auto scans = platform::CurrentScans();
            return scans.empty() || scans[0].filesSeen >= progress;
        });
        platform::StorageUnmounted(Stick("a"));
        EXPECT_EQ(OpenFilesBelow(Stick("a")), 0);
        EXPECT_EQ(Count({}), 0);
    }
    const std::string id = Mount("a", "U1");
    EXPECT_EQ(Count({id}), 3000);
    Disconnect();
    ExpectSound(DatabaseFile());
}

TEST_F(HostileTest, AnswersAFolderScanThatNobodyWaitsForAnyMore) {
    MakeManyFiles(Stick("a"), 1000);
    Connect();
    Mount("a", "U1");
    static std::atomic<int> answers{0};
    answers = 0;
    const auto count = [](media_content_error_e, void*) { ++answers; };
    int asked = 0;
    for (int i = 0; i < 20; ++i)
        asked += media_content_scan_folder(Stick("a").c_str(), true, count, nullptr) == 0;
    platform::StorageUnmounted(Stick("a"));
    EXPECT_EQ(asked, 20);
    EXPECT_EQ(answers, 20);  // each exactly once, and all before the stick is let go
    // The same when the database is closed under them.
    Mount("a", "U1");
    for (int i = 0; i < 20; ++i)
        asked += media_content_scan_folder(Stick("a").c_str(), true, count, nullptr) == 0;
    Disconnect();
    EXPECT_EQ(answers, asked);
}

TEST_F(HostileTest, ReadersGoOnWhileSticksComeAndGo) {
    MakeManyFiles(Stick("a"), 2000);
    MakeManyFiles(Stick("b"), 500);
    Connect();
    Mount("b", "U2");
    std::atomic<bool> stop{false};
    std::atomic<int> pages{0};
    std::vector<std::thread> readers;
    for (int reader = 0; reader < 4; ++reader)
        readers.emplace_back([&, reader] {
            while (!stop) {
                Filter filter{"", "MEDIA_TYPE=0", MEDIA_CONTENT_COLLATE_DEFAULT,
                              "MEDIA_ADDED_TIME"};
                filter.count = 300;
                filter.offset = reader * 100;
                std::set<std::string> ids;
                const auto page = List(filter);
                for (const Item& item : page) ids.insert(item.id);
                EXPECT_EQ(ids.size(), page.size());
                EXPECT_GE(Count({}), 0);
                Folders();
                ++pages;
            }
        });
    for (int round = 0; round < 10; ++round) {
        platform::MountedStorage storage;
        storage.uuid = "U1";
        storage.mountPath = Stick("a");
        platform::StorageMounted(storage);
        WaitFor([&, before = pages.load()] { return pages > before + 8; });
        WriteFile(Stick("a") + "/f0/" + std::to_string(round) + "-new.jpg");
        platform::StorageContentChanged(Stick("a"), {Stick("a") + "/f0"});
        media_info_h media = nullptr;
        if (media_info_insert_to_db((Stick("a") + "/f1/100.jpg").c_str(), &media) == 0)
            media_info_destroy(media);
        platform::StorageUnmounted(Stick("a"));
    }
    stop = true;
    for (std::thread& reader : readers) reader.join();
    EXPECT_EQ(Count({}), 500);
}

TEST_F(HostileTest, ConnectionsComeAndGoOnManyThreads) {
    MakeManyFiles(Stick("a"), 300);
    platform::MountedStorage storage;
    storage.uuid = "U1";
    storage.mountPath = Stick("a");
    platform::StorageMounted(storage);
    std::vector<std::thread> clients;
    for (int client = 0; client < 4; ++client)
        clients.emplace_back([&] {
            for (int round = 0; round < 25; ++round) {
                EXPECT_EQ(media_content_connect(), 0);
                EXPECT_GE(Count({}), 0);
                EXPECT_FALSE(StorageAt(Stick("a")).empty());
                EXPECT_EQ(media_content_disconnect(), 0);
            }
        });
    for (std::thread& client : clients) client.join();
    EXPECT_EQ(media_content_disconnect(), MEDIA_CONTENT_ERROR_INVALID_OPERATION);
}

// ---- the process is killed --------------------------------------------------------------------

using Content = std::map<std::string, std::pair<std::string, int>>;

Content ContentOf(const std::string& databaseFile) {
    platform::Connection connection(databaseFile, SQLITE_OPEN_READWRITE);
    platform::Query query(connection,
                          connection.Prepare("SELECT MEDIA_PATH, MEDIA_TITLE, MEDIA_SIZE, "
                                             "MEDIA_TYPE FROM item_columns_BINARY"));
    Content content;
    while (query.Next())
        content[query.Text(0)] = {query.Text(1) + '/' + query.Text(2),
                                  static_cast<int>(query.Int(3))};
    return content;
}

// What one has and the other has not, a line each.
std::string Difference(const Content& ours, const Content& expected) {
    std::string lines;
    for (const auto& entry : ours)
        if (!expected.count(entry.first) || expected.at(entry.first) != entry.second)
            lines += "+ " + entry.first + ' ' + entry.second.first + '\n';
    for (const auto& entry : expected)
        if (!ours.count(entry.first) || ours.at(entry.first) != entry.second)
            lines += "- " + entry.first + ' ' + entry.second.first + '\n';
    return lines;
}

pid_t StartScan(const std::string& databaseFile, const std::string& stick) {
    const pid_t child = fork();
    if (child == 0) {
        execl(SCAN_PROGRAM, SCAN_PROGRAM, databaseFile.c_str(), stick.c_str(), "U1", nullptr);
        _exit(127);
    }
    return child;
}

int WaitForEnd(pid_t child) {
    int status = 0;
    waitpid(child, &status, 0);
    return status;
}

TEST_F(HostileTest, FiftyKillsLeaveASoundDatabase) {
    MakeManyFiles(Stick("a"), 2500);
    const auto begin = std::chrono::steady_clock::now();
    ASSERT_EQ(WaitForEnd(StartScan(DatabaseFile() + ".timing", Stick("a"))), 0);
    const auto whole = std::chrono::duration_cast<std::chrono::microseconds>(
                           std::chrono::steady_clock::now() - begin)
                           .count();
    std::mt19937 random(7);
    int killed = 0;
    for (int round = 0; round < 50; ++round) {
        // Something to do for every scan: new files, changed ones, moved ones, gone ones.
        for (int i = 0; i < 200; ++i) {
            const std::string folder = Stick("a") + "/f" + std::to_string(random() % 25) + '/';
            const std::string name = std::to_string(random() % 2500) + ".jpg";
            std::error_code ignored;
            if (i % 4 == 0) fs::remove(folder + name, ignored);
            if (i % 4 == 1) fs::rename(folder + name, Stick("a") + "/moved-" + name, ignored);
            if (i % 4 > 1) WriteFile(folder + name, std::to_string(random()));
        }
        const pid_t child = StartScan(DatabaseFile(), Stick("a"));
        const auto moment = std::chrono::microseconds(random() % static_cast<unsigned>(whole));
        std::this_thread::sleep_for(moment);  // the moment is what is random here
        kill(child, SIGKILL);
        killed += WIFSIGNALED(WaitForEnd(child));
        if (fs::exists(DatabaseFile()) && fs::file_size(DatabaseFile()) > 0 &&
            Ask(DatabaseFile(), "SELECT count(*) FROM sqlite_schema") > 0)
            ExpectSound(DatabaseFile());
    }
    EXPECT_GT(killed, 5);
    ASSERT_EQ(WaitForEnd(StartScan(DatabaseFile(), Stick("a"))), 0);
    ASSERT_EQ(WaitForEnd(StartScan(DatabaseFile() + ".fresh", Stick("a"))), 0);
    ExpectSound(DatabaseFile());
    EXPECT_FALSE(fs::exists(DatabaseFile() + ".aside"));
    const Content content = ContentOf(DatabaseFile());
    EXPECT_GT(content.size(), 1000u);
    EXPECT_EQ(Difference(content, ContentOf(DatabaseFile() + ".fresh")), "");
}

// ---- the database is damaged ------------------------------------------------------------------

class DamageTest : public MediaTest {
protected:
    void SetUp() override {
        MakeManyFiles(Stick("a"), 1500);
        Connect();
        Mount("a", "U1");
        Disconnect();
    }
    // The first calls may meet the damage; after that everything is as new.
    void ExpectRecovery() {
        Connect();
        EXPECT_TRUE(WaitFor([&] {
            int count = 0;
            return media_info_get_media_count_from_db(nullptr, &count) == 0 && count == 1500 &&
                   platform::CurrentScans().empty();
        }));
        Disconnect();
        EXPECT_TRUE(fs::exists(DatabaseFile() + ".aside"));
        ExpectSound(DatabaseFile());
    }
};

TEST_F(DamageTest, ReplacesWhatIsNoDatabase) {
    WriteFile(DatabaseFile(), std::string(100000, 'z'));
    ExpectRecovery();
}

TEST_F(DamageTest, ReplacesATruncatedDatabase) {
    ASSERT_EQ(
        truncate(DatabaseFile().c_str(), static_cast<off_t>(fs::file_size(DatabaseFile()) / 3)), 0);
    ExpectRecovery();
}

TEST_F(DamageTest, ReplacesANewerVersionsDatabase) {
    Ask(DatabaseFile(), "PRAGMA user_version = 99");
    ExpectRecovery();
}

TEST_F(DamageTest, ReplacesAForeignDatabase) {
    Ask(DatabaseFile(), "PRAGMA application_id = 5");
    ExpectRecovery();
}

// Whatever page is damaged, nobody crashes, and in the end the service works.
TEST_F(DamageTest, LivesWithADamagedPage) {
    const auto pages = fs::file_size(DatabaseFile()) / 4096;
    fs::copy_file(DatabaseFile(), DatabaseFile() + ".good");
    std::mt19937 random(3);
    for (size_t page = 0; page < pages; page += 1 + pages / 25) {
        fs::copy_file(DatabaseFile() + ".good", DatabaseFile(),
                      fs::copy_options::overwrite_existing);
        {
            std::fstream file(DatabaseFile(), std::ios::in | std::ios::out | std::ios::binary);
            file.seekp(static_cast<std::streamoff>(page * 4096));
            for (int i = 0; i < 4096; ++i) file.put(static_cast<char>(random()));
        }
        Connect();
        int count = 0;
        WriteFile(Stick("a") + "/f0/touched.jpg", std::to_string(page));
        for (int round = 0; round < 3; ++round) {
            media_info_get_media_count_from_db(nullptr, &count);
            media_info_foreach_media_from_db(
                nullptr, [](media_info_h, void*) { return true; }, nullptr);
            WaitFor([] { return platform::CurrentScans().empty(); });
        }
        EXPECT_EQ(media_info_foreach_media_from_db(
                      nullptr, [](media_info_h, void*) { return true; }, nullptr),
                  0);
        Disconnect();
    }
}

TEST_F(DamageTest, FailsToConnectWhereNothingCanBeWritten) {
    const auto connectTo = [](const std::string& file) {
        platform::ConfigureMediaService({file, "/nonexistent/extractor"});
        return media_content_connect();
    };
    EXPECT_EQ(connectTo("/proc/none/media.db"), MEDIA_CONTENT_ERROR_DB_FAILED);
    EXPECT_EQ(connectTo(Stick("a")), MEDIA_CONTENT_ERROR_DB_FAILED);  // a folder
    EXPECT_EQ(media_content_disconnect(), MEDIA_CONTENT_ERROR_INVALID_OPERATION);
}

// A file system of its own that goes with the object; only where this may be mounted.
class SmallFileSystem {
public:
    SmallFileSystem(const std::string& path, const char* options) : m_path(path) {
        fs::create_directories(path);
        m_mounted = mount("none", path.c_str(), "tmpfs", 0, options) == 0;
    }
    ~SmallFileSystem() {
        if (m_mounted) umount(m_path.c_str());
    }
    bool Mounted() const { return m_mounted; }

private:
    std::string m_path;
    bool m_mounted;
};

TEST_F(DamageTest, AFullDiskLosesNothing) {
    const SmallFileSystem disk(Stick("disk"), "size=320k");
    if (!disk.Mounted()) GTEST_SKIP() << "no right to mount a file system";
    platform::ConfigureMediaService({Stick("disk") + "/media.db", "/nonexistent/extractor"});
    Connect();
    // Mounted already: its scan runs into the full disk and says so.
    const std::string id = StorageAt(Stick("a"));
    WaitForScan(id);
    EXPECT_EQ(ScanStatus(id), MEDIA_STORAGE_SCAN_STOPPED);
    const int before = Count({id});
    EXPECT_GT(before, 0);
    EXPECT_LT(before, 1500);
    EXPECT_EQ(List({id}).size(), static_cast<size_t>(before));
    Disconnect();
    ASSERT_EQ(mount("none", Stick("disk").c_str(), "tmpfs", MS_REMOUNT, "size=20m"), 0);
    Connect();
    WaitForScan(id);
    EXPECT_EQ(Count({id}), 1500);
    Disconnect();
    ExpectSound(Stick("disk") + "/media.db");

    ASSERT_EQ(mount("none", Stick("disk").c_str(), "tmpfs", MS_REMOUNT | MS_RDONLY, ""), 0);
    EXPECT_EQ(media_content_connect(), MEDIA_CONTENT_ERROR_DB_FAILED);
    ASSERT_EQ(mount("none", Stick("disk").c_str(), "tmpfs", MS_REMOUNT, ""), 0);
    Connect();
    EXPECT_EQ(Count({id}), 1500);
    WaitForScan(id);
    Disconnect();
}

}  // namespace
}  // namespace media_test
