// Conditions, orders and pages.
#include <algorithm>
#include <set>

#include "Library.h"
#include "MediaContent/Filter.h"
#include "MediaContent/Records.h"
#include "Service/Program.h"

namespace media_test {
namespace {

class ListingTest : public MediaTest {
protected:
    void SetUp() override {
        for (int i = 0; i < 60; ++i) {
            const std::string n = std::to_string(i);
            WriteFile(Stick("a/p") + n + ".jpg", std::string(static_cast<size_t>(i), 'x'));
            if (i % 3 == 0) WriteFile(Stick("a/Songs/") + n + ".mp3");
        }
        WriteFile(Stick("a/It's.jpg"));
        WriteFile(Stick("b/other.jpg"));
        Connect();
        m_storage = Mount("a", "U1");
        Mount("b", "U2");
    }
    std::string m_storage;
};

TEST_F(ListingTest, TakesConditionsOverTheNamedColumns) {
    const std::pair<const char*, int> conditions[] = {
        {"MEDIA_TYPE=3", 20},
        {" (MEDIA_TYPE = 0 OR MEDIA_TYPE = 1 OR MEDIA_TYPE = 2 OR MEDIA_TYPE = 3) ", 81},
        {"media_type = 0 or MEDIA_TYPE == 3", 81},
        {"NOT MEDIA_TYPE = 0", 20},
        {"MEDIA_TYPE IN (1, 3) AND MEDIA_SIZE >= 0", 20},
        {"MEDIA_SIZE BETWEEN 10 AND 19 AND MEDIA_TYPE = 0", 10},
        {"MEDIA_DISPLAY_NAME = 'It''s.jpg'", 1},
        {"MEDIA_DISPLAY_NAME LIKE 'p1_.jpg'", 10},
        {"MEDIA_PATH LIKE '%/Songs/%'", 20},
        {"MEDIA_LATITUDE = 0.0 AND MEDIA_WIDTH < 1", 81},
        {"MEDIA_ALBUM IS NOT NULL", 81},
        {"MEDIA_TITLE = 'P5'", 0}};
    for (const auto& [condition, expected] : conditions) {
        EXPECT_EQ(Count({m_storage, condition}), expected) << condition;
        EXPECT_EQ(List({m_storage, condition}).size(), static_cast<size_t>(expected)) << condition;
    }
    EXPECT_EQ(Count({m_storage, "MEDIA_TITLE = 'P5'", MEDIA_CONTENT_COLLATE_NOCASE}), 1);
    const Item first = List({m_storage}).front();
    EXPECT_EQ(List({"", "MEDIA_ID = '" + first.id + "'"}), std::vector<Item>{first});
}

// Through the readers, the database and its views: each column has its own value.
TEST_F(MediaTest, ConditionsFindWhatFilesHold) {
    platform::ConfigureMediaService({DatabaseFile(), EXTRACT_HELPER});
    ASSERT_EQ(test::RunProgram({SAMPLE_MAKER, "--small", Stick("a")}).status, 0);
    Connect();
    const std::string storage = Mount("a", "U1");
    const std::pair<const char*, const char*> cases[] = {
        {"MEDIA_TAKEN_TIME = '2019-08-07T06:05:04.12+02:00'", "shot.jpg"},
        {"MEDIA_TAKEN_TIME > '2019' AND MEDIA_TAKEN_TIME < '2020'", "shot.jpg"},
        {"MEDIA_CAMERA = 'Sample D1' AND MEDIA_LENS = '35mm f/2'", "shot.jpg"},
        {"MEDIA_ALTITUDE = 3454 AND MEDIA_RATING = 4", "shot.jpg"},
        {"MEDIA_ORIENTATION = 6 AND MEDIA_RATING = 3", "xmp.jpg"},
        {"MEDIA_FRAME_RATE BETWEEN 29.9 AND 30", "dated.mov"},
        {"MEDIA_TYPE = 1 AND MEDIA_MIME_TYPE = 'video/ogg' AND MEDIA_DURATION = 1000", "film.ogg"},
        {"MEDIA_TYPE = 3 AND MEDIA_MIME_TYPE = 'audio/3gpp2'", "sound-only.3g2"},
        {"MEDIA_DURATION = 7680", "old.mod"},
        {"MEDIA_HAS_PICTURE = 1 AND MEDIA_DISC = '2/3'", "cover.mp3"},
        {"MEDIA_ALBUM_ARTIST = 'Various Birds' AND MEDIA_HAS_PICTURE = 1 AND MEDIA_BIT_RATE > 1000",
         "cover.mp3"}};
    for (const auto& [condition, name] : cases) {
        const std::vector<Item> found = List({storage, condition});
        ASSERT_EQ(found.size(), 1u) << condition;
        EXPECT_EQ(found[0].path, Stick("a/World/") + name) << condition;
    }
}

TEST_F(ListingTest, RefusesEverythingElse) {
    const char* hostile[] = {"1; DROP TABLE item",
                             "MEDIA_TYPE = 0; DELETE FROM item",
                             "MEDIA_TYPE = (SELECT 0)",
                             "MEDIA_ID IN (SELECT id FROM storage)",
                             "EXISTS (SELECT 1 FROM item_columns_BINARY)",
                             "1) UNION SELECT number, number FROM item --",
                             "1) OR (1",
                             "1)) OR ((1",
                             "(MEDIA_TYPE = 0",
                             "MEDIA_TYPE = 0)",
                             "MEDIA_TYPE = 0 -- comment",
                             "MEDIA_TYPE = 0 /* comment",
                             "MEDIA_TITLE = 'open",
                             "MEDIA_TITLE = \"open",
                             "load_extension('x')",
                             "hex(randomblob(1000000000)) = 'a'",
                             "MEDIA_TITLE GLOB '*'",
                             "rowid = 1",
                             "item.number = 1",
                             "MEDIA_TYPE = ?",
                             "MEDIA_TYPE = $p",
                             "1 GROUP BY MEDIA_TYPE",
                             "1 LIMIT 1",
                             "PRAGMA user_version",
                             "CASE WHEN 1 THEN 1 ELSE 0 END",
                             "MEDIA_TITLE COLLATE nothing = 'x'",
                             "MEDIA_TYPE = 0x",
                             "MEDIA_TYPE LIKE",
                             "FOLDER_NAME = 'x'"};
    for (const char* condition : hostile) {
        Count({m_storage, condition}, kRefused);
        List({m_storage, condition}, kRefused);
        Count({m_storage, condition, MEDIA_CONTENT_COLLATE_NOCASE}, kRefused);
    }
    List({m_storage, std::string(5000, '(') + "1" + std::string(5000, ')')}, kRefused);
    Count({m_storage, "MEDIA_TITLE = '" + std::string(100000, 'x') + "'"}, kRefused);
    List({m_storage, "", MEDIA_CONTENT_COLLATE_DEFAULT, "number"}, kRefused);
    List({m_storage, "", MEDIA_CONTENT_COLLATE_DEFAULT, "MEDIA_SIZE, MEDIA_ID"}, kRefused);
    EXPECT_EQ(Count({m_storage}), 81);
}

// Without the look at the words, SQLite's own guards have to hold.
TEST_F(ListingTest, TheDatabaseGuardsItselfToo) {
    platform::Connection connection(DatabaseFile(), SQLITE_OPEN_READONLY);
    const std::string view =
        "SELECT count(*) FROM (SELECT * FROM item_columns_BINARY "
        "WHERE storage = 1) WHERE (";
    for (const char* text :
         {"abs(1)", "MEDIA_ID IN (SELECT id FROM storage)", "load_extension('x')",
          "1) UNION SELECT number FROM item WHERE (1", "1); SELECT (1", "randomblob(9) = 1",
          "EXISTS (SELECT 1 FROM sqlite_schema)"})
        EXPECT_THROW(
            platform::PrepareGuarded(connection, platform::kItemColumns, view + text + "\n)"),
            platform::BadFilter)
            << text;
    EXPECT_NE(platform::PrepareGuarded(connection, platform::kItemColumns, view + "1\n)"), nullptr);
}

// Every way of cutting an order into pages yields the whole order.
TEST_F(ListingTest, PagesNeitherOverlapNorSkip) {
    struct Case {
        const char* condition;
        const char* order;
        media_content_order_e direction;
    };
    const Case cases[] = {{"MEDIA_TYPE=0", "MEDIA_ADDED_TIME", MEDIA_CONTENT_ORDER_DESC},
                          {"MEDIA_TYPE=0", "MEDIA_ADDED_TIME", MEDIA_CONTENT_ORDER_ASC},
                          {"MEDIA_TYPE=0", "", MEDIA_CONTENT_ORDER_ASC},
                          {"MEDIA_TYPE=0 OR MEDIA_TYPE=3", "MEDIA_SIZE", MEDIA_CONTENT_ORDER_DESC},
                          {"MEDIA_SIZE < 1000", "MEDIA_ADDED_TIME", MEDIA_CONTENT_ORDER_DESC},
                          {"", "MEDIA_TITLE", MEDIA_CONTENT_ORDER_ASC},
                          {"", "MEDIA_ALBUM", MEDIA_CONTENT_ORDER_DESC},
                          {"", "MEDIA_LATITUDE", MEDIA_CONTENT_ORDER_DESC},
                          {"", "MEDIA_ID", MEDIA_CONTENT_ORDER_ASC}};
    for (const Case& c : cases) {
        for (const auto collation : {MEDIA_CONTENT_COLLATE_DEFAULT, MEDIA_CONTENT_COLLATE_NOCASE}) {
            Filter filter{m_storage, c.condition, collation, c.order, c.direction, collation};
            const auto whole = List(filter);
            ASSERT_EQ(whole.size(), static_cast<size_t>(Count(filter)));
            for (const int step : {1, 7, 1000}) {
                std::vector<Item> pieces;
                filter.count = step;
                for (filter.offset = 0; filter.offset <= 90; filter.offset += step)
                    for (Item& item : List(filter)) pieces.push_back(std::move(item));
                EXPECT_EQ(pieces, whole) << c.condition << c.order << step;
            }
        }
    }
}

TEST_F(ListingTest, OrdersNewestFirst) {
    WriteFile(Stick("a/last.jpg"));
    ScanFolder("a", false);
    Filter newest{m_storage, "MEDIA_TYPE=0", MEDIA_CONTENT_COLLATE_DEFAULT, "MEDIA_ADDED_TIME"};
    EXPECT_EQ(List(newest).front().path, Stick("a/last.jpg"));
    Filter bySize{m_storage, "MEDIA_TYPE=0", MEDIA_CONTENT_COLLATE_DEFAULT, "MEDIA_SIZE"};
    bySize.count = 2;
    const auto largest = List(bySize);
    EXPECT_EQ(largest[0].title, "p59");
    EXPECT_EQ(largest[1].title, "p58");
    bySize.count = 0;
    EXPECT_TRUE(List(bySize).empty());
}

// Deep pages begin at remembered anchors: these must go when the rows change.
TEST_F(ListingTest, DeepPagesFollowChanges) {
    for (int i = 0; i < 3500; ++i)
        WriteFile(Stick("c/f") + std::to_string(i / 500) + "/" + std::to_string(i) + ".jpg");
    const std::string c = Mount("c", "U3");
    Filter filter{c, "MEDIA_TYPE=0", MEDIA_CONTENT_COLLATE_DEFAULT, "MEDIA_ADDED_TIME"};
    const auto whole = List(filter);
    filter.count = 50;
    ASSERT_EQ(whole.size(), 3500u);
    const auto expectPage = [&](int offset, const std::vector<Item>& all) {
        filter.offset = offset;
        const auto page = List(filter);
        ASSERT_EQ(page.size(), std::min<size_t>(50, all.size() - static_cast<size_t>(offset)));
        EXPECT_TRUE(std::equal(page.begin(), page.end(), all.begin() + offset)) << offset;
    };
    for (const int offset : {3000, 0, 999, 1000, 1001, 2999, 2500, 3480}) expectPage(offset, whole);
    // One item fewer: every later one moves up.
    ASSERT_EQ(media_info_delete_from_db(whole[10].id.c_str()), 0);
    auto fewer = whole;
    fewer.erase(fewer.begin() + 10);
    for (const int offset : {3000, 2000, 5}) expectPage(offset, fewer);
}

// ---- records ----------------------------------------------------------------------------------

bool CloneAndKeep(media_info_h media, void* held) {
    media_info_h copy = nullptr;
    if (media_info_clone(&copy, media) != 0) return false;
    static_cast<std::multiset<media_info_h>*>(held)->insert(copy);
    return true;
}

TEST_F(ListingTest, TheSameItemIsOneRecordHoweverOftenItIsKept) {
    const std::string folder = Folders({m_storage}).at(Stick("a/Songs"));
    std::multiset<media_info_h> held;
    media_folder_foreach_media_from_db(folder.c_str(), nullptr, CloneAndKeep, &held);
    ASSERT_EQ(held.size(), 20u);
    const std::set<media_info_h> distinct(held.begin(), held.end());
    const int64_t live = platform::LiveRecords();
    const auto counting = [](media_info_h media, void*) {
        media_info_h kept = nullptr;
        return media_info_clone(&kept, media) == 0;  // never given back
    };
    for (int round = 0; round < 10000; ++round)
        ASSERT_EQ(media_folder_foreach_media_from_db(folder.c_str(), nullptr, counting, nullptr),
                  0);
    EXPECT_EQ(platform::LiveRecords(), live);
    std::multiset<media_info_h> again;
    media_folder_foreach_media_from_db(folder.c_str(), nullptr, CloneAndKeep, &again);
    EXPECT_EQ(std::set<media_info_h>(again.begin(), again.end()), distinct);

    // A changed item is another record; who holds the old one still reads the old values.
    WriteFile(Stick("a/Songs/0.mp3"), "longer than it was");
    ScanFolder("a/Songs", false);
    media_folder_foreach_media_from_db(folder.c_str(), nullptr, CloneAndKeep, &again);
    EXPECT_EQ(platform::LiveRecords(), live + 1);
    // One that is written again as it was is none.
    media_info_h known = nullptr;
    ASSERT_EQ(media_info_insert_to_db(Stick("a/Songs/3.mp3").c_str(), &known), 0);
    EXPECT_EQ(platform::LiveRecords(), live + 1);
    media_info_destroy(known);
    // Give everything back, the rounds' clones too, so that the next test begins with none.
    for (const media_info_h media : again) media_info_destroy(media);
    for (const media_info_h media : held)
        for (int i = 0; i < 10001; ++i) media_info_destroy(media);
}

}  // namespace
}  // namespace media_test
