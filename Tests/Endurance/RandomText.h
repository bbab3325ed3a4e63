// Texts and JSON that a client could send but should not.
#ifndef TESTS_ENDURANCE_RANDOM_TEXT_H
#define TESTS_ENDURANCE_RANDOM_TEXT_H

#include <random>
#include <string>
#include <vector>

namespace test {

// One thread. The same seed gives the same texts.
class RandomText {
public:
    explicit RandomText(unsigned long seed) : m_random(seed) {}

    int Number(int below);
    bool OneIn(int times) { return Number(times) == 0; }
    const std::string& OneOf(const std::vector<std::string>& texts);

    // All of these are UTF-8 without NUL, which is what the bus can carry.
    std::string Any();                             // short, of odd characters
    std::string Integer();                         // and what looks like one
    std::string Huge();                            // 64 KiB to 1 MiB
    std::string Json(const std::string& key);      // whole, deep, torn or of wrong types
    std::string Mutated(const std::string& text);  // a few places changed
    std::string Bytes(int length);                 // not UTF-8

private:
    std::string Value(int depth);
    std::string Nested();

    std::mt19937_64 m_random;
};

}  // namespace test

#endif
