#ifndef CONTENTS_MGR_JSON_TEXT_H
#define CONTENTS_MGR_JSON_TEXT_H

#include <json/json.h>

#include <string>

namespace dorn {

// One line of ASCII ending in a newline, object keys sorted. Of texts that are not UTF-8 each bad
// byte comes out as U+FFFD and all else as it is: the writer alone would take the bytes after a bad
// one for its rest.
std::string WriteJson(const Json::Value& value);

// False for text that is not JSON. Throws Json::Exception when it is nested too deeply.
bool ParseJson(const std::string& text, Json::Value& root);

}  // namespace dorn

#endif
