#include "Sound.h"

#include <gtest/gtest.h>

#include "MediaContent/Database.h"

namespace media_test {

using platform::Connection;
using platform::Query;

long long Ask(const std::string& databaseFile, const std::string& sql) {
    Connection connection(databaseFile, SQLITE_OPEN_READWRITE);
    Query query(connection, connection.Prepare(sql));
    return query.Next() ? query.Int(0) : 0;
}

void ExpectSound(const std::string& databaseFile) {
    Connection connection(databaseFile, SQLITE_OPEN_READWRITE);
    {
        Query query(connection, connection.Prepare("PRAGMA integrity_check"));
        ASSERT_TRUE(query.Next());
        EXPECT_EQ(query.Text(0), "ok");
    }
    for (int type = 0; type < 5; ++type) {
        const std::string n = std::to_string(type);
        EXPECT_EQ(Ask(databaseFile, "SELECT count(*) FROM storage AS s WHERE count" + n +
                                        " <> (SELECT count(*) FROM item WHERE storage = s.number"
                                        " AND type = " +
                                        n + ")"),
                  0);
        EXPECT_EQ(Ask(databaseFile, "SELECT count(*) FROM folder AS f WHERE count" + n +
                                        " <> (SELECT count(*) FROM item WHERE folder = f.number"
                                        " AND type = " +
                                        n + ")"),
                  0);
    }
    EXPECT_EQ(Ask(databaseFile,
                  "SELECT count(*) FROM folder AS f WHERE below <> (SELECT coalesce(sum("
                  "count0 + count1 + count2 + count3 + count4), 0) FROM folder WHERE storage ="
                  " f.storage AND (f.path = '' OR path = f.path OR substr(path, 1,"
                  " length(f.path) + 1) = f.path || '/'))"),
              0);
    EXPECT_EQ(Ask(databaseFile,
                  "SELECT count(*) FROM item WHERE folder NOT IN (SELECT number FROM folder)"),
              0);
}

}  // namespace media_test
