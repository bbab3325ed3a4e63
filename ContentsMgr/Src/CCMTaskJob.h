#ifndef CONTENTS_MGR_C_CM_TASK_JOB_H
#define CONTENTS_MGR_C_CM_TASK_JOB_H

#include <cstddef>
#include <string>
#include <vector>

namespace dorn {

// The kind of a query.
enum MediaType : int {
    MEDIA_TYPE_NONE = 0,
    MEDIA_TYPE_FOLDER = 1,
    MEDIA_TYPE_MUSIC = 2,
    MEDIA_TYPE_PHOTO = 3,
    MEDIA_TYPE_VIDEO = 4,
};

enum : int {
    COMMAND_TYPE_QUERY = 0,
    COMMAND_TYPE_FETCH = 1,
    COMMAND_TYPE_REGISTER = 2,
    COMMAND_TYPE_UNREGISTER = 3,
};

// One registered query. Odd request ids are folder queries, even ones media queries.
struct QueryInfo {
    std::string storageId;
    MediaType mediaType = MEDIA_TYPE_NONE;
    std::string folderPath;  // device path; folder queries only
    int requestId = 0;
    std::string syncOption;  // "true": wait for the storage's scan before counting
};

// One page request.
struct FetchInfo {
    int queryRequestId = 0;  // the query that was current when the page was requested
    int startIndex = 0;      // of the first item, from 0
    int count = 0;           // number of requested items, 1 to 1000
    int fetchRequestId = 0;
};

// One registration or removal.
struct InsertDeleteInfo {
    int requestId = 0;
    std::vector<std::string> items;  // full paths, or media ids, in the client's order
};

// One job for the worker: a command type and its record. Always copied by value.
class CCMTaskJob {
public:
    void SetCommandType(int type) { m_commandType = type; }
    int GetCommandType() const { return m_commandType; }
    void SetQueryInfo(QueryInfo info) { m_queryInfo = std::move(info); }
    QueryInfo GetQueryInfo() const { return m_queryInfo; }
    void SetFetchInfo(FetchInfo info) { m_fetchInfo = info; }
    FetchInfo GetFetchInfo() const { return m_fetchInfo; }
    void SetInsertDeleteInfo(InsertDeleteInfo info) { m_insertDeleteInfo = std::move(info); }
    InsertDeleteInfo GetInserDeletetInfo() const { return m_insertDeleteInfo; }

    // The bytes counted to the client for this job while it waits and runs. 0: not counted.
    void SetHeldBytes(size_t bytes) { m_heldBytes = bytes; }
    size_t GetHeldBytes() const { return m_heldBytes; }

private:
    int m_commandType = -1;
    size_t m_heldBytes = 0;
    QueryInfo m_queryInfo;
    FetchInfo m_fetchInfo;
    InsertDeleteInfo m_insertDeleteInfo;
};

}  // namespace dorn

#endif
