// Upper estimates of the memory that work takes.
#ifndef CONTENTS_MGR_JOB_SIZE_H
#define CONTENTS_MGR_JOB_SIZE_H

#include <cstddef>
#include <string>

#include "CCMTaskJob.h"

namespace dorn {

// The heap bytes of a text, or of all texts of a query.
size_t TextBytes(const std::string& text);
size_t TextBytes(const QueryInfo& query);

// The bytes of a job: those it takes while it waits, and those that running it takes in addition,
// for its copies, its result, and the result as JSON.
struct JobBytes {
    size_t waiting;
    size_t running;
};
JobBytes BytesOf(const QueryInfo& query);
JobBytes BytesOf(const FetchInfo& fetch);
JobBytes BytesOf(const InsertDeleteInfo& info);

// The bytes that parsing the text takes, including the copies of its texts up to a job. Reads the
// text once.
size_t ParsingBytes(const std::string& json);

}  // namespace dorn

#endif
