#include "Files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <stdexcept>

namespace samples {
namespace {

constexpr time_t kFirstTime = 1'500'000'000;

[[noreturn]] void Throw(const std::string& path, int error) {
    throw std::runtime_error(path + ": " + std::strerror(error));
}

}  // namespace

void MakeFolders(const std::string& path) {
    std::filesystem::create_directories(path);
}

void WriteFile(const std::string& path, std::string_view bytes) {
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) Throw(path, errno);
    const ssize_t written = write(fd, bytes.data(), bytes.size());
    const int error = written < 0 ? errno : ENOSPC;
    close(fd);
    if (written != static_cast<ssize_t>(bytes.size())) Throw(path, error);
}

std::string ReadFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) Throw(path, errno);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

void RemoveTree(const std::string& path) {
    std::filesystem::remove_all(path);
}

void SetTime(const std::string& path, uint64_t index) {
    const timespec time = {kFirstTime + static_cast<time_t>(60 * index), 0};
    const timespec times[] = {time, time};
    if (utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW) != 0) Throw(path, errno);
}

std::string RandomBytes(uint32_t seed, size_t length) {
    std::mt19937 random(seed);
    std::string bytes(length, '\0');
    for (char& byte : bytes) byte = static_cast<char>(random());
    return bytes;
}

}  // namespace samples
