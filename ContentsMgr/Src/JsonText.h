#ifndef CONTENTS_MGR_JSON_TEXT_H
#define CONTENTS_MGR_JSON_TEXT_H

#include <json/json.h>

#include <string>

namespace dorn {

// One line of ASCII ending in a newline, with object keys sorted. In texts that are not UTF-8 each
// bad byte becomes U+FFFD and everything else is kept: the JSON writer alone would treat the bytes
// after a bad one as part of it.
std::string WriteJson(const Json::Value& value);

// False for text that is not JSON. Throws Json::Exception when it is nested too deeply.
bool ParseJson(const std::string& text, Json::Value& root);

}  // namespace dorn

#endif
