// Trees and databases that mean no good, and moments that are badly chosen. Full disks are injected
// under the whole service: Tests/Endurance/Faults.
#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <fstream>
#include <random>
#include <set>

#include "Library.h"
#include "MediaContent/Database.h"
#include "MediaContent/FilesBeingRead.h"
#include "Process/UniqueFd.h"
#include "Service/Program.h"

namespace media_test {
namespace {

namespace fs = std::filesystem;

using HostileTest = MediaTest;

// A chain of folders with a photo in each that no path of the system's greatest length reaches,
// made from the bottom up. Only programs that go down step by step can remove it.
void MakeBottomlessFolder(const std::string& path) {
    const std::string above = path + ".above";
    for (int depth = 0; depth < 30; ++depth) {
        WriteFile(above + "/photo.jpg");
        if (depth > 0) fs::rename(path, above + "/" + std::string(200, 'd'));
        fs::rename(above, path);
    }
}

// While one lives nothing can be opened; what is open stays usable.
class NoDescriptorLeft {
public:
    NoDescriptorLeft() {
        EXPECT_EQ(getrlimit(RLIMIT_NOFILE, &m_before), 0);
        const rlimit none{0, m_before.rlim_max};
        EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    }
    ~NoDescriptorLeft() { EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &m_before), 0); }

private:
    rlimit m_before{};
};

TEST_F(HostileTest, AFileForWhichNoDescriptorIsLeftIsListedAndReadNextTime) {
    WriteFile(Stick("a/new.jpg"));
    const platform::UniqueFd root(open(Stick("a").c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    platform::ExtractorPool noHelpers({"/nonexistent"});
    const std::atomic<bool> cancel{false};
    const auto read = [&](const char* name) {
        std::vector<platform::Change> changes(1);
        changes[0].name = name;
        changes[0].type = MEDIA_CONTENT_TYPE_IMAGE;
        EXPECT_TRUE(ReadMetadataInto(noHelpers, root.Get(), changes, cancel));
        return changes[0];
    };
    const auto readWithoutDescriptors = [&] {
        const NoDescriptorLeft now;
        return read("new.jpg");
    };
    const platform::Change first = readWithoutDescriptors();
    EXPECT_GE(first.facts.size, 0) << "taken for gone";
    EXPECT_EQ(first.state, platform::ItemState::Unread);
    const platform::Change second = read("new.jpg");
    EXPECT_EQ(second.facts.size, 1);
    EXPECT_FALSE(SameContent(first.facts, second.facts)) << "taken for read";
    EXPECT_LT(read("gone.jpg").facts.size, 0) << "taken for being there";
}

TEST_F(HostileTest, ScansAHostileTree) {
    const std::string longName = std::string(251, 'n') + ".jpg";
    const std::string listed[] = {"good.jpg",
                                  longName,
                                  "new\nline.jpg",
                                  "\xff\xfe\x80.jpg",
                                  "\xc3(/bad folder name.jpg",
                                  "quote's \"folder\"/%s%n.jpg",
                                  "empty.mp3",
                                  "folder.jpg/inside.jpg",
                                  "sparse.mkv"};
    for (const std::string& name : listed) WriteFile(Stick("a/") + name, "");
    ASSERT_EQ(truncate(Stick("a/sparse.mkv").c_str(), 10'000'000'000), 0);
    // These are not.
    WriteFile(Stick("a/.jpg"));
    WriteFile(Stick("a/noextension"));
    fs::create_directories(Stick("a/loop"));
    fs::create_directory_symlink("..", Stick("a/loop/up"));
    fs::create_directory_symlink("/", Stick("a/loop/out"));
    fs::create_symlink("self.jpg", Stick("a/loop/self.jpg"));
    fs::create_symlink(Stick("a/good.jpg"), Stick("a/loop/link.jpg"));
    ASSERT_EQ(mkfifo(Stick("a/fifo.jpg").c_str(), 0600), 0);
    if (mknod(Stick("a/device.jpg").c_str(), S_IFCHR | 0600, makedev(1, 3)) != 0)
        GTEST_LOG_(INFO) << "no device node here";
    MakeBottomlessFolder(Stick("a/deep"));

    Connect();
    const std::string id = Mount("a", "U1");
    EXPECT_EQ(ScanStatus(id), MEDIA_STORAGE_SCAN_COMPLETE);
    const Texts ids = Ids("a");
    const size_t deep = Ids("a/deep").size();
    for (const std::string& name : listed) EXPECT_EQ(ids.count(name), 1u) << name;
    EXPECT_EQ(ids.size() - deep, std::size(listed));
    EXPECT_GT(deep, 10u);
    EXPECT_LT(deep, 30u);
    // Titles are clean text, names are the file system's bytes.
    const auto odd = List({id, "MEDIA_DISPLAY_NAME = '\xff\xfe\x80.jpg'"});
    ASSERT_EQ(odd.size(), 1u);
    EXPECT_EQ(odd[0].title, "\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd");
    // A second scan finds nothing to do, and nothing to remove.
    TellChanged("a");
    EXPECT_EQ(Ids("a"), ids);
    EXPECT_EQ(test::RunProgram({"rm", "-rf", Stick("a/deep")}).status, 0);
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
    std::mt19937 random(1);
    for (int round = 0; round < 30; ++round) {
        StartMount("a", "U1");
        const auto progress = random() % 200;
        Until([&] {
            const auto scans = platform::CurrentScans();
            return scans.empty() || scans[0].filesSeen >= progress;
        });
        Unmount("a");
        EXPECT_EQ(OpenFilesBelow(Stick("a")), 0);
        EXPECT_EQ(Count({}), 0);
    }
    EXPECT_EQ(Count({Mount("a", "U1")}), 3000);
    Disconnect();
    ExpectSound(DatabaseFile());
}

TEST_F(HostileTest, AnswersAFolderScanThatNobodyWaitsForAnyMore) {
    MakeManyFiles(Stick("a"), 1000);
    Connect();
    Mount("a", "U1");
    static std::atomic<int> answers{0};
    answers = 0;
    const auto askTwentyTimes = [this] {
        const auto count = [](media_content_error_e, void*) { ++answers; };
        for (int i = 0; i < 20; ++i)
            EXPECT_EQ(media_content_scan_folder(Stick("a").c_str(), true, count, nullptr), 0);
    };
    askTwentyTimes();
    Unmount("a");
    EXPECT_EQ(answers, 20);  // each exactly once, and all before the stick is let go
    // The same when the database is closed under them.
    Mount("a", "U1");
    askTwentyTimes();
    Disconnect();
    EXPECT_EQ(answers, 40);
}

// ---- the process is killed --------------------------------------------------------------------

// What is kept of each file, a line each.
std::set<std::string> ContentOf(const std::string& databaseFile) {
    platform::Connection connection(databaseFile, SQLITE_OPEN_READWRITE);
    platform::Query query(connection,
                          connection.Prepare("SELECT MEDIA_PATH || ' ' || MEDIA_TITLE || ' ' ||"
                                             " MEDIA_SIZE || ' ' || MEDIA_TYPE"
                                             " FROM item_columns_BINARY"));
    std::set<std::string> content;
    while (query.Next()) content.insert(query.Text(0));
    return content;
}

TEST_F(HostileTest, FiftyKillsLeaveASoundDatabase) {
    MakeManyFiles(Stick("a"), 2500);
    const auto scanInto = [this](const std::string& database) {
        return test::Program({SCAN_PROGRAM, database, Stick("a"), "U1"}, DatabaseFile() + ".log");
    };
    const auto begin = std::chrono::steady_clock::now();
    ASSERT_EQ(scanInto(DatabaseFile() + ".timing").Wait(), 0);
    const auto whole = std::chrono::duration_cast<std::chrono::microseconds>(
                           std::chrono::steady_clock::now() - begin)
                           .count();
    std::mt19937 random(7);
    int killed = 0;
    for (int round = 0; round < 50; ++round) {
        // Something to do for every scan: new files, changed ones, moved ones, gone ones.
        for (int i = 0; i < 200; ++i) {
            const std::string folder = Stick("a/f") + std::to_string(random() % 25) + '/';
            const std::string name = std::to_string(random() % 2500) + ".jpg";
            std::error_code ignored;
            if (i % 4 == 0) fs::remove(folder + name, ignored);
            if (i % 4 == 1) fs::rename(folder + name, Stick("a/moved-") + name, ignored);
            if (i % 4 > 1) WriteFile(folder + name, std::to_string(random()));
        }
        test::Program scan = scanInto(DatabaseFile());
        const auto moment = std::chrono::microseconds(random() % static_cast<unsigned>(whole));
        std::this_thread::sleep_for(moment);  // the moment is what is random here
        scan.Signal(SIGKILL);
        killed += scan.Wait() == 128 + SIGKILL;
        if (fs::exists(DatabaseFile()) && fs::file_size(DatabaseFile()) > 0 &&
            Ask(DatabaseFile(), "SELECT count(*) FROM sqlite_schema") > 0)
            ExpectSound(DatabaseFile());
    }
    EXPECT_GT(killed, 5);
    ASSERT_EQ(scanInto(DatabaseFile()).Wait(), 0);
    ASSERT_EQ(scanInto(DatabaseFile() + ".fresh").Wait(), 0);
    ExpectSound(DatabaseFile());
    EXPECT_FALSE(fs::exists(DatabaseFile() + ".aside"));
    const auto content = ContentOf(DatabaseFile()), fresh = ContentOf(DatabaseFile() + ".fresh");
    EXPECT_GT(content.size(), 1000u);
    std::vector<std::string> differing;
    std::set_symmetric_difference(content.begin(), content.end(), fresh.begin(), fresh.end(),
                                  std::back_inserter(differing));
    EXPECT_EQ(differing, std::vector<std::string>());
}

// ---- the database is another than it should be -------------------------------------------------

// A database with 1500 items, closed.
class KnownStickTest : public MediaTest {
protected:
    void SetUp() override {
        MakeManyFiles(Stick("a"), 1500);
        Connect();
        Mount("a", "U1");
        Disconnect();
    }
};

// Whatever is damaged, nobody crashes, and in the end the service works.
TEST_F(KnownStickTest, LivesWithAnyDamage) {
    const std::string file = DatabaseFile(), good = file + ".good";
    fs::copy_file(file, good);
    std::mt19937 random(3);
    std::vector<std::function<void()>> damages = {
        [&] { fs::resize_file(file, fs::file_size(file) / 3); },
        [&] { Ask(file, "DROP TABLE folder"); },
    };
    const auto pages = fs::file_size(good) / 4096;
    for (size_t page = 0; page < pages; page += 1 + pages / 12)
        damages.emplace_back([&, page] {
            std::fstream stream(file, std::ios::in | std::ios::out | std::ios::binary);
            stream.seekp(static_cast<std::streamoff>(page * 4096));
            for (int i = 0; i < 4096; ++i) stream.put(static_cast<char>(random()));
        });
    for (size_t i = 0; i < damages.size(); ++i) {
        SCOPED_TRACE(i);
        fs::copy_file(good, file, fs::copy_options::overwrite_existing);
        damages[i]();
        Connect();
        WriteFile(Stick("a/f0/touched.jpg"), std::to_string(i));
        TellChanged("a", {"f0"});
        // The first calls may meet the damage; after that everything is as new.
        EXPECT_TRUE(Until([&] {
            int items = 0;
            const auto count = [](media_info_h, void* sum) {
                return ++*static_cast<int*>(sum) > 0;
            };
            return media_info_foreach_media_from_db(nullptr, count, &items) == 0 && items == 1501 &&
                   platform::CurrentScans().empty();
        }));
        Disconnect();
        if (i >= 2) continue;  // a page that nobody has needed may lie there damaged
        ExpectSound(file);
        EXPECT_TRUE(fs::exists(file + ".aside"));
        for (const char* part : {"", "-wal", "-shm"}) fs::remove(file + ".aside" + part);
    }
}

TEST_F(HostileTest, FailsToConnectWhereNothingCanBeWritten) {
    fs::create_directory(Stick("a"));
    for (const std::string& file : {std::string("/proc/none/media.db"), Stick("a")}) {
        platform::ConfigureMediaService({file, "/nonexistent/extractor"});
        EXPECT_EQ(media_content_connect(), MEDIA_CONTENT_ERROR_DB_FAILED) << file;
    }
    EXPECT_EQ(media_content_disconnect(), MEDIA_CONTENT_ERROR_INVALID_OPERATION);
}

}  // namespace
}  // namespace media_test
