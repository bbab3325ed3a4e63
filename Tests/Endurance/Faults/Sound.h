// Whether a database file is sound, as the database library itself sees it.
#ifndef TESTS_ENDURANCE_FAULTS_SOUND_H
#define TESTS_ENDURANCE_FAULTS_SOUND_H

#include <sqlite3.h>

#include <filesystem>
#include <string>

namespace endurance {

// "ok", or what is wrong.
inline std::string IntegrityOf(const std::filesystem::path& file) {
    sqlite3* database = nullptr;
    std::string said = "cannot be opened";
    sqlite3_open_v2(file.c_str(), &database, SQLITE_OPEN_READWRITE, nullptr);
    const auto take = [](void* text, int, char** values, char**) {
        *static_cast<std::string*>(text) = values[0] ? values[0] : "null";
        return 0;
    };
    char* error = nullptr;
    sqlite3_exec(database, "PRAGMA integrity_check(1)", take, &said, &error);
    if (error) said = error;
    sqlite3_free(error);
    sqlite3_close(database);
    return said;
}

}  // namespace endurance

#endif
