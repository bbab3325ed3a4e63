// Key files of the USB directory back end: whoever can write to the USB root writes them.
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "FuzzSupport.h"
#include "UsbDevice/KeyFile.h"

using namespace platform;

namespace {

// One file, written anew for each input; gone with the process.
class ScratchFile {
public:
    ScratchFile()
        : m_path((std::filesystem::temp_directory_path() / "fuzz-key-XXXXXX").string()),
          m_fd(mkstemp(m_path.data())) {
        MUST(m_fd >= 0);
    }
    ~ScratchFile() {
        close(m_fd);
        unlink(m_path.c_str());
    }
    ScratchFile(const ScratchFile&) = delete;
    ScratchFile& operator=(const ScratchFile&) = delete;

    const std::string& Write(const uint8_t* data, size_t size) {
        MUST(ftruncate(m_fd, 0) == 0);
        MUST(pwrite(m_fd, data, size, 0) == static_cast<ssize_t>(size));
        return m_path;
    }

private:
    std::string m_path;
    const int m_fd;
};

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static ScratchFile file;
    const std::string& path = file.Write(data, size);
    DeviceRecord first;
    DeviceRecord second;
    std::vector<std::string> complaints;
    const bool used = ReadKeyFile(path, first, complaints);
    std::vector<std::string> again;
    MUST(ReadKeyFile(path, second, again) == used);
    MUST(again == complaints);
    return 0;
}
