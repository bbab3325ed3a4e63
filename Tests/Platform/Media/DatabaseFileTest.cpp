// Databases that were there before: of other programs, of newer and older versions.
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>

#include <fstream>
#include <iterator>

#include "Library.h"
#include "MediaContent/Database.h"

namespace media_test {
namespace {

namespace fs = std::filesystem;
using platform::Connection;

// The parts of a database by the ends of their names, with their bytes.
using Parts = std::map<std::string, std::string>;
constexpr const char* kParts[] = {"", "-wal", "-shm", "-journal"};

Parts PartsOf(const std::string& file) {
    Parts parts;
    for (const char* part : kParts) {
        std::ifstream bytes(file + part, std::ios::binary);
        if (bytes) parts[part].assign(std::istreambuf_iterator<char>(bytes), {});
    }
    return parts;
}

void Put(const std::string& file, const Parts& parts) {
    for (const char* part : kParts) fs::remove(file + part);
    for (const auto& [part, bytes] : parts) WriteFile(file + part, bytes);
}

// What a program leaves that is killed after it has run `sql` on a copy of these.
Parts LeftByAKill(const Parts& before, const std::string& sql) {
    const test::TempFolder folder;
    const std::string file = folder / "copy.db";
    Put(file, before);
    Connection connection(file, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
    connection.Execute(sql.c_str());
    return PartsOf(file);
}

class DatabaseFileTest : public MediaTest {
protected:
    // The database as this version makes it.
    Parts Ours() {
        Connect();
        Disconnect();
        return PartsOf(DatabaseFile());
    }
};

TEST_F(DatabaseFileTest, WhatIsNotOursIsMovedAsideAsItWasEachToItsOwnPlace) {
    const std::string theirs = "CREATE TABLE theirs(a); INSERT INTO theirs VALUES('one');";
    Parts withJournal = LeftByAKill({}, theirs);
    withJournal["-journal"] = std::string(2000, 'j');
    const Parts logged = LeftByAKill({}, "PRAGMA journal_mode = WAL;" + theirs);
    const Parts ours = Ours();
    const Parts cases[] = {
        LeftByAKill({}, theirs),
        logged,
        withJournal,
        {{"-wal", logged.at("-wal")}},
        {{"", "not a database at all"}},
        {{"", logged.at("").substr(0, 50)}},
        LeftByAKill(ours, "PRAGMA application_id = 5"),
        LeftByAKill(ours, "PRAGMA journal_mode = DELETE; PRAGMA user_version = 99"),
        LeftByAKill(ours, "PRAGMA user_version = 99"),  // says so in its log only
    };
    ASSERT_EQ(std::size(cases), 9u);
    ASSERT_EQ(cases[1].size(), 3u);
    for (const Parts& parts : cases) {
        Put(DatabaseFile(), parts);
        Connect();
        Disconnect();
        ExpectSound(DatabaseFile());
    }
    // No more places: nothing is touched.
    Put(DatabaseFile(), cases[1]);
    EXPECT_EQ(media_content_connect(), MEDIA_CONTENT_ERROR_DB_FAILED);
    EXPECT_TRUE(PartsOf(DatabaseFile()) == cases[1]);
    for (size_t i = 0; i < std::size(cases); ++i) {
        const std::string number = i == 0 ? "" : '-' + std::to_string(i + 1);
        EXPECT_TRUE(PartsOf(DatabaseFile() + ".aside" + number) == cases[i]) << i;
    }
}

TEST_F(DatabaseFileTest, IsForItsOwnersEyesOnly) {
    for (const mode_t mask : {0000, 0777}) {
        const mode_t before = umask(mask);
        Connect();
        for (const char* part : {"", "-wal", "-shm"}) {
            struct stat facts {};
            EXPECT_EQ(stat((DatabaseFile() + part).c_str(), &facts), 0) << part;
            EXPECT_EQ(facts.st_mode & 07777, 0600u) << part << " with umask " << mask;
        }
        umask(before);
        Disconnect();
        chmod(DatabaseFile().c_str(), 0644);  // as earlier versions left it
    }
}

// ---- schema version 1 -------------------------------------------------------------------------

std::vector<std::string> RowsOf(const std::string& file, const std::string& sql) {
    Connection connection(file, SQLITE_OPEN_READWRITE);
    platform::Query query(connection, connection.Prepare(sql));
    std::vector<std::string> rows;
    while (query.Next()) {
        rows.emplace_back();
        for (int i = 0; i < query.Columns(); ++i) rows.back() += query.Text(i) + '|';
    }
    return rows;
}

constexpr const char* kAllRows[] = {
    "SELECT value FROM setting WHERE name = 'salt'",
    "SELECT * FROM storage",
    "SELECT * FROM folder",
    ("SELECT number, revision, storage, folder, type, added, modified, modified_ns, size, inode,"
     " state, pinned, name, mime, title, width, height, orientation, bit_rate, duration, latitude,"
     " longitude, description, album, artist, genre, composer, copyright, track FROM item"),
    "SELECT * FROM sqlite_sequence ORDER BY name",
    "SELECT MEDIA_ID, MEDIA_PATH FROM item_columns_NOCASE",
};

// Each file that the database knows, with the size and the times that it knows.
void MakeFiles(const std::string& database, const std::string& folder) {
    Connection connection(database, SQLITE_OPEN_READWRITE);
    platform::Query query(connection,
                          connection.Prepare("SELECT MEDIA_PATH, i.size, i.modified, modified_ns"
                                             " FROM item AS i JOIN item_columns_BINARY USING"
                                             "(number)"));
    while (query.Next()) {
        const std::string path = folder + '/' + query.Text(0).substr(strlen("/opt/storage/usb/"));
        WriteFile(path);
        fs::resize_file(path, static_cast<uintmax_t>(query.Int(1)));
        const timespec time{query.Int(2), query.Int(3)};
        const timespec times[] = {time, time};
        ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
    }
}

// By their paths below the sticks' folder: ids and titles.
Texts Listed(const std::string& sticks) {
    Texts items;
    for (const Item& item : List({}))
        items[item.path.substr(sticks.size())] = item.id + ' ' + item.title;
    return items;
}

TEST_F(DatabaseFileTest, AnEarlierVersionIsCarriedOverWithAllThatItHolds) {
    const Parts kept = PartsOf(VERSION_1_DATABASE);
    ASSERT_EQ(kept.size(), 1u);
    const std::string expected = DatabaseFile() + ".expected";
    Put(expected, kept);
    Ask(expected, "UPDATE item SET state = 0");
    MakeFiles(expected, Stick(""));
    // As it lies there, and as it would after a kill before the log's first pages were moved.
    const Parts noName = LeftByAKill(kept, "PRAGMA application_id = 0; PRAGMA wal_checkpoint");
    const Parts named = LeftByAKill({{"", noName.at("")}}, "PRAGMA application_id = 1129137218");
    for (const Parts& parts : {kept, named}) {
        Put(DatabaseFile(), parts);
        Connect();
        Disconnect();
        EXPECT_FALSE(fs::exists(DatabaseFile() + ".aside"));
        for (const char* sql : kAllRows)
            EXPECT_EQ(RowsOf(DatabaseFile(), sql), RowsOf(expected, sql)) << sql;
        Connect();
        EXPECT_EQ(Mount("ONE", "ONE-1"), "2f0b8aca-cb3b-f265-0283-99cd710bda60");
        EXPECT_EQ(Mount("TWO", "TWO-2"), "efbe2972-9455-99ce-a15c-ff2392b23a79");
        EXPECT_EQ(Listed(Stick("")),
                  (Texts{
                      {"ONE/beach.jpg", "e7c32b4f81e1f533-1 Beach – Ebbe"},
                      {"ONE/film.mp4", "e7c32b4f81e1f533-2 At the Lake"},
                      {"ONE/Music/song.mp3", "e7c32b4f81e1f533-3 Morning Song"},
                      {"TWO/song.wav", "e7c32b4f81e1f533-4 Morning Song"},
                      {"TWO/harbour.jpeg", "e7c32b4f81e1f533-5 Harbour"},
                      {"TWO/memo.amr", "e7c32b4f81e1f533-6 memo"},
                      {"TWO/Broken/cut.mp4", "e7c32b4f81e1f533-7 cut"},
                      {"ONE/.trash/hidden.jpg", "e7c32b4f81e1f533-8 Beach – Ebbe"},
                      {"ONE/notes.txt", "e7c32b4f81e1f533-9 notes"},
                  }));
        for (const char* stick : {"ONE", "TWO"}) Unmount(stick);
        Disconnect();
        ExpectSound(DatabaseFile());
    }
}

}  // namespace
}  // namespace media_test
