// What the fuzz targets share.
#ifndef FUZZ_FUZZ_SUPPORT_H
#define FUZZ_FUZZ_SUPPORT_H

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

// What must hold for every input; a libFuzzer finding when it does not.
#define MUST(condition)                                                                         \
    do {                                                                                        \
        if (!(condition)) {                                                                     \
            std::fprintf(stderr, "%s:%d: does not hold: %s\n", __FILE__, __LINE__, #condition); \
            std::abort();                                                                       \
        }                                                                                       \
    } while (false)

inline std::string_view AsText(const uint8_t* data, size_t size) {
    return {reinterpret_cast<const char*>(data), size};
}

#endif
