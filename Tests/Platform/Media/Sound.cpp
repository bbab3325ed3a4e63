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
    Query check(connection, connection.Prepare("PRAGMA integrity_check"));
    ASSERT_TRUE(check.Next());
    EXPECT_EQ(check.Text(0), "ok");
    std::vector<std::string> wrong = {
        "folder AS f WHERE below <> (SELECT coalesce(sum(count0 + count1 + count2 + count3 +"
        " count4), 0) FROM folder WHERE storage = f.storage AND (f.path = '' OR path = f.path OR"
        " substr(path, 1, length(f.path) + 1) = f.path || '/'))",
        "item WHERE folder NOT IN (SELECT number FROM folder)"};
    for (const std::string table : {"storage", "folder"})
        for (const std::string type : {"0", "1", "2", "3", "4"})
            wrong.push_back(table + " AS t WHERE count" + type +
                            " <> (SELECT count(*) FROM item WHERE " + table +
                            " = t.number AND type = " + type + ")");
    for (const std::string& rows : wrong)
        EXPECT_EQ(Ask(databaseFile, "SELECT count(*) FROM " + rows), 0) << rows;
}

}  // namespace media_test
