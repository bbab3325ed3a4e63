#include "Json.h"

#include <stdio.h>
#include <stdlib.h>

#include <memory>

#include "Failure.h"
#include "Output.h"

namespace contentsctl {

Json::Value ParseJson(const std::string& text) {
    Json::Value value;
    std::string errors;
    const Json::CharReaderBuilder builder;
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    try {
        if (reader->parse(text.data(), text.data() + text.size(), &value, &errors)) return value;
    } catch (const Json::Exception& error) {
        errors = error.what();
    }
    throw Refused("the service sent text that is not JSON: " + errors);
}

std::string ToLine(const Json::Value& value) {
    static const Json::StreamWriterBuilder builder = [] {
        Json::StreamWriterBuilder compact;
        compact["indentation"] = "";
        compact["emitUTF8"] = true;
        return compact;
    }();
    return Json::writeString(builder, value);
}

void PrintLine(const Json::Value& value) {
    puts(ToLine(value).c_str());
    FlushOutput();
}

std::string TextOf(const Json::Value& object, const char* key) {
    if (!object.isObject()) return {};
    const Json::Value& member = object[key];
    return member.isConvertibleTo(Json::stringValue) ? member.asString() : ToLine(member);
}

int64_t NumberOf(const Json::Value& object, const char* key) {
    return strtoll(TextOf(object, key).c_str(), nullptr, 10);
}

std::string ListArgument(const char* key, const std::vector<std::string>& texts) {
    Json::Value list(Json::arrayValue);
    for (const auto& text : texts) list.append(text);
    Json::Value argument;
    argument[key] = list;
    return ToLine(argument);
}

}  // namespace contentsctl
