#pragma once

// The journal: one JSON object per finished movie, a line each, appended as
// movies finish, so that a batch stopped anywhere keeps what it did and the
// next run of the same command skips it.
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "tools/batch/movie_list.h"
#include "tools/batch/shard.h"
#include "tools/batch/status.h"

namespace batch {

struct Entry {
    std::string source;
    uint64_t size = 0;
    int64_t mtimeNs = 0;
    std::string output;
    std::vector<std::string> options;  // as given, placeholders unexpanded
    Status status = Status::Failed;
    std::optional<int> exitStatus;  // none when the tool did not exit (or never ran)
    std::string message;
    double seconds = 0;
    uint64_t bytesWritten = 0;
};

nlohmann::ordered_json toJson(const Entry& entry);
// False when the object is no entry.
bool fromJson(const nlohmann::json& object, Entry& entry);

// "journal.jsonl", or "journal-K-of-N.jsonl" for a shard.
std::string journalName(const Shard& shard);

// Every entry of every journal in the folder (each shard's and the whole
// batch's), in no particular order; lines that are no entry (a line cut
// short when a batch was killed) are passed over.
std::vector<Entry> readJournals(const std::string& folder);

// The movies an earlier run finished: an ok entry with the same source
// (path, size and modification time), output and options, whose output is
// still there with the bytes it wrote.
class DoneIndex {
public:
    explicit DoneIndex(std::vector<Entry> entries);
    // outputSize: the output's size now, none when it is missing.
    bool done(const Movie& movie, const std::vector<std::string>& options, std::optional<uint64_t> outputSize) const;

private:
    std::multimap<std::string, Entry> ok_;  // by source
};

// The current size of a file, none when there is none.
std::optional<uint64_t> fileSize(const std::string& path);

class JournalWriter {
public:
    JournalWriter() = default;
    ~JournalWriter();
    JournalWriter(const JournalWriter&) = delete;
    JournalWriter& operator=(const JournalWriter&) = delete;

    // Opens for appending; false with a cause.
    bool open(const std::string& path, bool fsync, std::string& cause);
    // One whole line in a single write, so concurrent writers never interleave.
    bool append(const Entry& entry);
    const std::string& path() const { return path_; }

private:
    int fd_ = -1;
    bool fsync_ = false;
    std::string path_;
};

}  // namespace batch
