#include "tools/batch/journal.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace batch {

nlohmann::ordered_json toJson(const Entry& entry) {
    nlohmann::ordered_json out;
    out["source"] = entry.source;
    out["size"] = entry.size;
    out["mtime_ns"] = entry.mtimeNs;
    out["output"] = entry.output;
    out["options"] = entry.options;
    out["status"] = statusName(entry.status);
    out["exit_status"] = entry.exitStatus ? nlohmann::ordered_json(*entry.exitStatus) : nullptr;
    out["message"] = entry.message;
    out["seconds"] = entry.seconds;
    out["bytes_written"] = entry.bytesWritten;
    return out;
}

bool fromJson(const nlohmann::json& object, Entry& entry) {
    if (!object.is_object()) return false;
    try {
        Entry read;
        read.source = object.at("source").get<std::string>();
        read.size = object.at("size").get<uint64_t>();
        read.mtimeNs = object.at("mtime_ns").get<int64_t>();
        read.output = object.at("output").get<std::string>();
        read.options = object.at("options").get<std::vector<std::string>>();
        if (!statusFromName(object.at("status").get<std::string>(), read.status)) return false;
        if (const auto& code = object.at("exit_status"); !code.is_null()) read.exitStatus = code.get<int>();
        read.message = object.at("message").get<std::string>();
        read.seconds = object.at("seconds").get<double>();
        read.bytesWritten = object.at("bytes_written").get<uint64_t>();
        entry = std::move(read);
        return true;
    } catch (const nlohmann::json::exception&) {
        return false;
    }
}

std::string journalName(const Shard& shard) {
    if (shard.whole()) return "journal.jsonl";
    return "journal-" + std::to_string(shard.index) + "-of-" + std::to_string(shard.count) + ".jsonl";
}

namespace {

bool isJournalName(const std::string& name) {
    if (name == "journal.jsonl") return true;
    const std::string suffix = ".jsonl";
    return name.rfind("journal-", 0) == 0 && name.size() > suffix.size() &&
           name.compare(name.size() - suffix.size(), suffix.size(), suffix) == 0 && name.find("-of-") != std::string::npos;
}

}  // namespace

std::vector<Entry> readJournals(const std::string& folder) {
    std::vector<Entry> entries;
    std::error_code error;
    std::filesystem::directory_iterator it(folder, error);
    for (; !error && it != std::filesystem::directory_iterator(); it.increment(error)) {
        if (!isJournalName(it->path().filename().string())) continue;
        std::ifstream in(it->path());
        std::string line;
        while (std::getline(in, line)) {
            const nlohmann::json object = nlohmann::json::parse(line, nullptr, false);
            Entry entry;
            if (!object.is_discarded() && fromJson(object, entry)) entries.push_back(std::move(entry));
        }
    }
    return entries;
}

DoneIndex::DoneIndex(std::vector<Entry> entries) {
    for (Entry& entry : entries) {
        if (entry.status == Status::Ok) ok_.emplace(entry.source, std::move(entry));
    }
}

bool DoneIndex::done(const Movie& movie, const std::vector<std::string>& options,
                     std::optional<uint64_t> outputSize) const {
    if (!outputSize) return false;
    const auto [from, to] = ok_.equal_range(movie.source);
    for (auto it = from; it != to; ++it) {
        const Entry& entry = it->second;
        if (entry.size == movie.size && entry.mtimeNs == movie.mtimeNs && entry.output == movie.output &&
            entry.options == options && entry.bytesWritten == *outputSize) {
            return true;
        }
    }
    return false;
}

std::optional<uint64_t> fileSize(const std::string& path) {
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0 || !S_ISREG(info.st_mode)) return std::nullopt;
    return static_cast<uint64_t>(info.st_size);
}

JournalWriter::~JournalWriter() {
    if (fd_ >= 0) ::close(fd_);
}

bool JournalWriter::open(const std::string& path, bool fsync, std::string& cause) {
    fd_ = ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
    if (fd_ < 0) {
        cause = std::strerror(errno);
        return false;
    }
    fsync_ = fsync;
    path_ = path;
    return true;
}

bool JournalWriter::append(const Entry& entry) {
    if (fd_ < 0) return false;
    const std::string line =
        toJson(entry).dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
    ssize_t written;
    do {
        written = ::write(fd_, line.data(), line.size());
    } while (written < 0 && errno == EINTR);
    if (written != static_cast<ssize_t>(line.size())) return false;
    return !fsync_ || ::fsync(fd_) == 0;
}

}  // namespace batch
