#include "UsbDevice/KeyFile.h"

#include <fcntl.h>
#include <glib.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <map>
#include <memory>
#include <optional>

#include "Process/UniqueFd.h"

namespace platform {
namespace {

constexpr off_t kLongestFile = 64 * 1024;
constexpr const char* kGroup = "device";

struct FreeKeyFile {
    void operator()(GKeyFile* file) const { g_key_file_unref(file); }
};
struct FreeText {
    void operator()(char* text) const { g_free(text); }
};
struct FreeTexts {
    void operator()(char** texts) const { g_strfreev(texts); }
};
struct FreeError {
    void operator()(GError* error) const { g_error_free(error); }
};

// The whole file, or no value with errno set. Never blocks, whatever kind of file it is.
std::optional<std::string> ReadSmallFile(const std::string& path) {
    const UniqueFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    struct stat status;
    if (!file || fstat(file.Get(), &status) != 0) return std::nullopt;
    errno = S_ISREG(status.st_mode) ? EFBIG : EINVAL;
    if (!S_ISREG(status.st_mode) || status.st_size > kLongestFile) return std::nullopt;
    std::string content(static_cast<size_t>(status.st_size), '\0');
    const ssize_t got = read(file.Get(), &content[0], content.size());
    if (got < 0) return std::nullopt;
    content.resize(static_cast<size_t>(got));
    return content;
}

// The byte for an escape, and the length of the escape in `text`.
std::optional<char> Unescaped(const std::string& text, size_t at, size_t& length) {
    static const std::map<char, char> simple = {
        {'s', ' '}, {'t', '\t'}, {'n', '\n'}, {'r', '\r'}, {'\\', '\\'}};
    const char letter = at + 1 < text.size() ? text[at + 1] : '\0';
    length = 2;
    if (const auto found = simple.find(letter); found != simple.end()) return found->second;
    if (letter != 'x' || at + 3 >= text.size()) return std::nullopt;
    const int high = g_ascii_xdigit_value(text[at + 2]);
    const int low = g_ascii_xdigit_value(text[at + 3]);
    length = 4;
    if (high < 0 || low < 0 || high + low == 0) return std::nullopt;
    return static_cast<char>(high * 16 + low);
}

bool ParseText(const std::string& value, std::string& text) {
    std::string plain;
    size_t length = 1;
    for (size_t at = 0; at < value.size(); at += length) {
        length = 1;
        const auto byte = value[at] == '\\' ? Unescaped(value, at, length) : value[at];
        if (!byte) return false;
        plain.push_back(*byte);
    }
    text = plain;
    return true;
}

bool ParseNumber(const std::string& value, int largest, int& number) {
    const bool hex = value.size() > 2 && value[0] == '0' && (value[1] == 'x' || value[1] == 'X');
    guint64 parsed = 0;
    if (!g_ascii_string_to_unsigned(value.c_str() + (hex ? 2 : 0), hex ? 16 : 10, 0,
                                    static_cast<guint64>(largest), &parsed, nullptr))
        return false;
    number = static_cast<int>(parsed);
    return true;
}

bool ParseFileSystem(const std::string& value, fstype_e& type) {
    const fstype_e found = FileSystemByName(value);
    if (found == FSTYPE_OTHER && value != "other") return false;
    type = found;
    return true;
}

bool ParseDiskType(const std::string& value, disktype_e& type) {
    static const std::map<std::string, disktype_e> words = {{"unknown", DISK_TYPE_UNKNOWN},
                                                            {"removable", DISK_TYPE_REMOVABLE},
                                                            {"fixed", DISK_TYPE_FIXED},
                                                            {"optical", DISK_TYPE_OPTICAL}};
    const auto found = words.find(value);
    if (found == words.end()) return false;
    type = found->second;
    return true;
}

struct NumberKey {
    int DeviceRecord::*field;
    int largest;
};

enum class Outcome { Taken, BadValue, UnknownKey };

Outcome TakeOver(const std::string& key, const std::string& value, DeviceRecord& device) {
    static const std::map<std::string, std::string DeviceRecord::*> texts = {
        {"vendor", &DeviceRecord::manufacturer}, {"product", &DeviceRecord::product},
        {"serial", &DeviceRecord::serial},       {"label", &DeviceRecord::label},
        {"uuid", &DeviceRecord::uuid},           {"device-name", &DeviceRecord::deviceName}};
    static const std::map<std::string, NumberKey> numbers = {
        {"class", {&DeviceRecord::deviceClass, 0xff}},
        {"vendor-id", {&DeviceRecord::vendorId, 0xffff}},
        {"product-id", {&DeviceRecord::productId, 0xffff}},
        {"bus", {&DeviceRecord::bus, 0xffff}},
        {"address", {&DeviceRecord::address, 0xff}},
        {"protocol", {&DeviceRecord::protocol, 0xff}},
        {"partition", {&DeviceRecord::number, 0xffff}}};
    bool good = false;
    if (const auto text = texts.find(key); text != texts.end())
        good = ParseText(value, device.*(text->second));
    else if (const auto number = numbers.find(key); number != numbers.end())
        good = ParseNumber(value, number->second.largest, device.*(number->second.field));
    else if (key == "file-system")
        good = ParseFileSystem(value, device.fileSystem);
    else if (key == "disk-type")
        good = ParseDiskType(value, device.diskType);
    else
        return Outcome::UnknownKey;
    return good ? Outcome::Taken : Outcome::BadValue;
}

std::unique_ptr<GKeyFile, FreeKeyFile> Parse(const std::string& content, std::string& complaint) {
    std::unique_ptr<GKeyFile, FreeKeyFile> file(g_key_file_new());
    GError* error = nullptr;
    if (!g_key_file_load_from_data(file.get(), content.data(), content.size(), G_KEY_FILE_NONE,
                                   &error)) {
        complaint = std::unique_ptr<GError, FreeError>(error)->message;
        return nullptr;
    }
    if (g_key_file_has_group(file.get(), kGroup)) return file;
    complaint = "there is no group [device]";
    return nullptr;
}

void TakeOverAll(GKeyFile* file, DeviceRecord& device, std::vector<std::string>& complaints) {
    const std::unique_ptr<char*, FreeTexts> keys(
        g_key_file_get_keys(file, kGroup, nullptr, nullptr));
    for (char** key = keys.get(); key && *key; ++key) {
        // Raw bytes: g_key_file_get_string would refuse a label that is not UTF-8.
        const std::unique_ptr<char, FreeText> value(
            g_key_file_get_value(file, kGroup, *key, nullptr));
        if (!value) continue;
        switch (TakeOver(*key, value.get(), device)) {
            case Outcome::Taken:
                break;
            case Outcome::BadValue:
                complaints.push_back(std::string(*key) + ": bad value \"" + value.get() + "\"");
                break;
            case Outcome::UnknownKey:
                complaints.push_back(std::string(*key) + ": unknown key");
                break;
        }
    }
}

}  // namespace

bool ReadKeyFile(const std::string& path, DeviceRecord& device,
                 std::vector<std::string>& complaints) {
    const auto content = ReadSmallFile(path);
    if (!content) {
        complaints.push_back(strerror(errno));
        return false;
    }
    std::string complaint;
    const auto file = Parse(*content, complaint);
    if (!file) {
        complaints.push_back(complaint);
        return false;
    }
    TakeOverAll(file.get(), device, complaints);
    return true;
}

}  // namespace platform
