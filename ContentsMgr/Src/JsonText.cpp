#include "JsonText.h"

// Clients compare texts made by these two classes, so their successors' other forms are no choice.
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

namespace dorn {

std::string WriteJson(const Json::Value& value) {
    Json::FastWriter writer;
    return writer.write(value);
}

bool ParseJson(const std::string& text, Json::Value& root) {
    Json::Reader reader;
    return reader.parse(text, root, true);
}

}  // namespace dorn
