// Key files of the USB directory back end: whoever can write to the USB root writes them.
#include <fstream>
#include <string>
#include <vector>

#include "FuzzSupport.h"
#include "Support/Basics.h"
#include "UsbDevice/KeyFile.h"

using namespace platform;

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const test::TempFolder folder;
    const std::string path = folder / "key";
    std::ofstream(path, std::ios::binary) << AsText(data, size);
    DeviceRecord first;
    DeviceRecord second;
    std::vector<std::string> complaints;
    const bool used = ReadKeyFile(path, first, complaints);
    std::vector<std::string> again;
    MUST(ReadKeyFile(path, second, again) == used);
    MUST(again == complaints);
    return 0;
}
