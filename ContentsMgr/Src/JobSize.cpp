#include "JobSize.h"

namespace dorn {
namespace {

constexpr size_t kHeapBlock = 32;                 // of a short text, and the overhead of a long one
constexpr size_t kJob = sizeof(CCMTaskJob) + 32;  // including its list node
constexpr size_t kJsonValue = 256;  // including its slot in the array or object, key and short text
constexpr size_t kPageItem = 3072;  // up to fifteen values
constexpr size_t kTextCopies = 5;   // job, result, JSON, and twice while the output grows
constexpr size_t kParsingCopies = 5;  // document, values, list, and the list again as paths

size_t BytesOfTexts(const std::vector<std::string>& texts) {
    size_t bytes = 0;
    for (const std::string& text : texts) bytes += sizeof(std::string) + TextBytes(text);
    return bytes;
}

}  // namespace

size_t TextBytes(const std::string& text) {
    return kHeapBlock + text.size();
}

size_t TextBytes(const QueryInfo& query) {
    return TextBytes(query.storageId) + TextBytes(query.folderPath) + TextBytes(query.syncOption);
}

JobBytes BytesOf(const QueryInfo& query) {
    return {kJob + TextBytes(query), TextBytes(query)};
}

JobBytes BytesOf(const FetchInfo& fetch) {
    return {kJob, static_cast<size_t>(fetch.count) * kPageItem};
}

JobBytes BytesOf(const InsertDeleteInfo& info) {
    const size_t texts = BytesOfTexts(info.items);
    return {kJob + texts, info.items.size() * kJsonValue + kTextCopies * texts};
}

// Each comma, colon and opening bracket outside texts stands for at most one value.
size_t ParsingBytes(const std::string& json) {
    size_t values = 1;
    bool inText = false;
    for (size_t at = 0; at < json.size(); ++at) {
        const char c = json[at];
        if (inText && c == '\\')
            ++at;
        else if (c == '"')
            inText = !inText;
        else if (!inText && (c == ',' || c == ':' || c == '[' || c == '{'))
            ++values;
    }
    return values * kJsonValue + kParsingCopies * json.size();
}

}  // namespace dorn
