// Reading and printing JSON.
#ifndef TOOLS_CONTENTSCTL_JSON_H
#define TOOLS_CONTENTSCTL_JSON_H

#include <json/json.h>

#include <string>
#include <vector>

namespace contentsctl {

// Throws Refused when the service's text is not JSON.
Json::Value ParseJson(const std::string& text);

// One line of JSON without a newline, in UTF-8.
std::string ToLine(const Json::Value& value);
void PrintLine(const Json::Value& value);

// The member as text, whatever its type; empty when it is missing.
std::string TextOf(const Json::Value& object, const char* key);
// The member as a number, or converted from a text of digits; otherwise 0.
int64_t NumberOf(const Json::Value& object, const char* key);

// {"KEY": [texts]}
std::string ListArgument(const char* key, const std::vector<std::string>& texts);

}  // namespace contentsctl

#endif
