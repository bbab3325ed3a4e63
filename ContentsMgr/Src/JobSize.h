// How much memory work takes, estimated from above.
#ifndef CONTENTS_MGR_JOB_SIZE_H
#define CONTENTS_MGR_JOB_SIZE_H

#include <cstddef>
#include <string>

#include "CCMTaskJob.h"

namespace dorn {

// Bytes of a text, or of all texts of a query, on the heap.
size_t TextBytes(const std::string& text);
size_t TextBytes(const QueryInfo& query);

// Bytes of a job: while it waits, and those that running it takes besides, for its copies, its
// outcome, and that as JSON.
struct JobBytes {
    size_t waiting;
    size_t running;
};
JobBytes BytesOf(const QueryInfo& query);
JobBytes BytesOf(const FetchInfo& fetch);
JobBytes BytesOf(const InsertDeleteInfo& info);

// Bytes that parsing the text takes, with the copies of its texts up to a job. Reads the text once.
size_t ParsingBytes(const std::string& json);

}  // namespace dorn

#endif
