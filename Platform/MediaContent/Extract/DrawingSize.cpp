// SVG drawings, through Expat.
#include <expat.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "MediaContent/Extract/PictureSize.h"

namespace platform {
namespace {

constexpr size_t kStart = 64 * 1024;  // the drawing's element comes in these bytes

struct Drawing {
    XML_Parser parser;
    bool found = false;
    double width = 0.0;
    double height = 0.0;
    double boxWidth = 0.0;
    double boxHeight = 0.0;
};

// Lengths without a unit are in pixels. Relative ones depend on who shows the drawing: 0.
double Pixels(const char* length) {
    static constexpr struct {
        const char* unit;
        double pixels;
    } kUnits[] = {{"", 1},           {"px", 1},         {"pt", 96.0 / 72}, {"pc", 16},
                  {"mm", 96 / 25.4}, {"cm", 96 / 2.54}, {"in", 96}};
    char* end = nullptr;
    const double value = std::strtod(length, &end);
    while (*end == ' ') ++end;
    for (const auto& known : kUnits)
        if (std::strcmp(end, known.unit) == 0) return value * known.pixels;
    return 0.0;
}

// "min-x min-y width height", with blanks or commas between.
void ReadViewBox(const char* text, Drawing& drawing) {
    double numbers[4] = {};
    for (double& number : numbers) {
        char* end = nullptr;
        number = std::strtod(text, &end);
        text = end + std::strspn(end, ", \t\r\n");
    }
    drawing.boxWidth = numbers[2];
    drawing.boxHeight = numbers[3];
}

bool IsCalled(const char* name, const char* wanted) {
    const char* colon = std::strchr(name, ':');
    return std::strcmp(colon ? colon + 1 : name, wanted) == 0;
}

// Only the first element is looked at.
void OnElement(void* data, const char* name, const char** attributes) {
    Drawing& drawing = *static_cast<Drawing*>(data);
    XML_StopParser(drawing.parser, XML_FALSE);
    drawing.found = IsCalled(name, "svg");
    for (; *attributes; attributes += 2) {
        if (std::strcmp(attributes[0], "width") == 0) drawing.width = Pixels(attributes[1]);
        if (std::strcmp(attributes[0], "height") == 0) drawing.height = Pixels(attributes[1]);
        if (std::strcmp(attributes[0], "viewBox") == 0) ReadViewBox(attributes[1], drawing);
    }
}

// A side that is not given follows from the other one and the view box.
void Complete(Drawing& drawing) {
    if (!(drawing.boxWidth > 0 && drawing.boxHeight > 0)) return;
    if (!(drawing.width > 0) && !(drawing.height > 0)) drawing.width = drawing.boxWidth;
    if (!(drawing.width > 0)) drawing.width = drawing.height * drawing.boxWidth / drawing.boxHeight;
    if (!(drawing.height > 0))
        drawing.height = drawing.width * drawing.boxHeight / drawing.boxWidth;
}

uint64_t Rounded(double side) {
    return side > 0 && side < 1e9 ? static_cast<uint64_t>(std::llround(side)) : 0;
}

}  // namespace

std::optional<PictureSize> ReadDrawingSize(FileSource& source) {
    std::vector<char> start(std::min<uint64_t>(source.Size(), kStart));
    start.resize(source.ReadAt(0, start.data(), start.size()));
    const std::unique_ptr<XML_ParserStruct, decltype(&XML_ParserFree)> parser(
        XML_ParserCreate(nullptr), &XML_ParserFree);
    if (!parser) return {};
    Drawing drawing{parser.get()};
    XML_SetUserData(parser.get(), &drawing);
    XML_SetStartElementHandler(parser.get(), OnElement);
    XML_Parse(parser.get(), start.data(), static_cast<int>(start.size()), XML_FALSE);
    if (!drawing.found) return {};
    Complete(drawing);
    return PictureSize{Rounded(drawing.width), Rounded(drawing.height)};
}

}  // namespace platform
