// Looks into a database file directly, while no service has it open.
#ifndef TESTS_PLATFORM_MEDIA_SOUND_H
#define TESTS_PLATFORM_MEDIA_SOUND_H

#include <string>

namespace media_test {

// Adds a test failure when SQLite finds the file damaged or the kept counts differ from the rows.
void ExpectSound(const std::string& databaseFile);

// Runs one statement and returns its first number.
long long Ask(const std::string& databaseFile, const std::string& sql);

}  // namespace media_test

#endif
