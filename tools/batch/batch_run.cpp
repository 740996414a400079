#include "tools/batch/batch_run.h"

#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <set>

#include "tools/batch/child_runs.h"
#include "tools/batch/journal.h"
#include "tools/batch/movie_list.h"
#include "tools/batch/progress.h"
#include "tools/batch/report.h"
#include "tools/batch/tool_arguments.h"
#include "tools/batch/verdict.h"

namespace fs = std::filesystem;

namespace batch {

namespace {

PatternValues patternValues(const Movie& movie, const std::string& outputFolder) {
    const fs::path source(movie.source), output(movie.output);
    const fs::path inside = output.lexically_relative(fs::absolute(outputFolder).lexically_normal());
    return {source.filename().string(), source.stem().string(), output.parent_path().string(),
            (inside.parent_path() / inside.stem()).string()};
}

// The thumbnail the tool is asked for, if any (its last -thumb: wins).
std::string thumbnailOf(const std::vector<std::string>& argv) {
    std::string thumbnail;
    for (size_t i = 1; i + 2 < argv.size(); ++i) {
        if (argv[i].rfind("-thumb:", 0) == 0) thumbnail = argv[i].substr(7);
    }
    return thumbnail;
}

// A child that was killed leaves its hidden temporary files (".NAME.tavrel-PID-...").
void removeLeftovers(const std::string& path, pid_t pid) {
    if (path.empty() || pid <= 0) return;
    const fs::path target(path);
    const std::string prefix = "." + target.filename().string() + ".tavrel-" + std::to_string(pid) + "-";
    std::error_code error;
    const fs::path folder = target.parent_path().empty() ? fs::path(".") : target.parent_path();
    for (fs::directory_iterator it(folder, error); !error && it != fs::directory_iterator(); it.increment(error)) {
        if (it->path().filename().string().rfind(prefix, 0) == 0) fs::remove(it->path(), error);
    }
}

bool flush(const std::string& path) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    const bool ok = ::fsync(fd) == 0;
    ::close(fd);
    return ok;
}

// The output and its folder on disk before the movie counts as done.
std::string flushOutputs(const std::string& output, const std::string& thumbnail) {
    for (const std::string& file : {output, thumbnail}) {
        if (file.empty() || !fs::exists(file)) continue;
        const std::string folder = fs::path(file).parent_path().string();
        if (!flush(file) || !flush(folder.empty() ? "." : folder)) {
            return file + ": it could not be flushed to disk: " + std::strerror(errno);
        }
    }
    return {};
}

Entry entryFor(const Movie& movie, const std::vector<std::string>& options) {
    Entry entry;
    entry.source = movie.source;
    entry.size = movie.size;
    entry.mtimeNs = movie.mtimeNs;
    entry.output = movie.output;
    entry.options = options;
    return entry;
}

}  // namespace

int runBatch(const BatchOptions& options, const std::string& tool) {
    const auto begun = std::chrono::steady_clock::now();
    const std::string folder = fs::absolute(options.outputFolder).lexically_normal().string();
    std::error_code error;
    if (!options.dryRun) {
        fs::create_directories(folder, error);
        if (error || !fs::is_directory(folder)) {
            std::fprintf(stderr, "tavrel-batch: %s: the output folder cannot be made: %s\n", folder.c_str(),
                         error ? error.message().c_str() : "it is not a folder");
            return 1;
        }
    }

    std::vector<Movie> movies;
    for (Movie& movie : listMovies(options.inputs, folder)) {
        if (inShard(movie.relative, options.shard)) movies.push_back(std::move(movie));
    }
    const DoneIndex doneBefore(readJournals(folder));

    // Every movie gets an entry; the ones to run also a job.
    std::vector<Entry> entries;
    std::vector<bool> finished;
    std::vector<ChildJob> jobs;
    std::set<std::string> folders;
    for (const Movie& movie : movies) {
        Entry entry = entryFor(movie, options.toolOptions);
        bool ready = !movie.verdict;
        if (movie.verdict) {
            entry.status = *movie.verdict;
            entry.message = movie.message;
        } else if (doneBefore.done(movie, options.toolOptions, fileSize(movie.output))) {
            entry.status = Status::Skipped;
            entry.message = "done before, by the journal";
            entry.bytesWritten = *fileSize(movie.output);
            ready = false;
        } else if (const std::string parent = fs::path(movie.output).parent_path().string();
                   !options.dryRun && !folders.count(parent)) {
            fs::create_directories(parent, error);
            if (error) {
                entry.status = Status::Refused;
                entry.message = parent + ": the folder cannot be made: " + error.message() + "; nothing was written.";
                ready = false;
            } else {
                folders.insert(parent);
            }
        }
        if (ready) {
            jobs.push_back({entries.size(), toolCommandLine(tool, options.toolOptions,
                                                            patternValues(movie, folder), movie.source, movie.output)});
        }
        finished.push_back(!ready);
        entries.push_back(std::move(entry));
    }

    if (options.dryRun) {
        size_t next = 0;
        for (size_t i = 0; i < entries.size(); ++i) {
            if (next < jobs.size() && jobs[next].index == i) {
                std::string line = "run:";
                for (const std::string& arg : jobs[next++].argv) line += " " + arg;
                std::printf("%s\n", line.c_str());
            } else {
                std::printf("%s %s: %s\n", statusName(entries[i].status), entries[i].source.c_str(),
                            entries[i].message.c_str());
            }
        }
        std::printf("%zu to run, %zu not\n", jobs.size(), entries.size() - jobs.size());
        return 0;
    }

    JournalWriter journal;
    std::string cause;
    if (!journal.open((fs::path(folder) / journalName(options.shard)).string(), options.fsync, cause)) {
        std::fprintf(stderr, "tavrel-batch: %s: the journal cannot be written: %s\n",
                     (fs::path(folder) / journalName(options.shard)).c_str(), cause.c_str());
        return 1;
    }
    Progress progress(stdout, ::isatty(STDOUT_FILENO) == 1, entries.size());
    bool journalOk = true;
    auto record = [&](const Entry& entry) {
        // Skipped movies were finished by an earlier run; its journal has them.
        if (entry.status != Status::Skipped) journalOk = journal.append(entry) && journalOk;
        progress.finished(entry);
    };
    for (size_t i = 0; i < entries.size(); ++i) {
        if (finished[i]) record(entries[i]);
    }

    RunSettings settings;
    settings.jobs = options.jobs;
    settings.timeoutSeconds = options.timeoutSeconds;
    settings.tickSeconds = ::isatty(STDOUT_FILENO) == 1 ? 1.0 : 0.0;
    RunCallbacks callbacks;
    callbacks.started = [&](const ChildJob& job) { progress.started(entries[job.index].source); };
    callbacks.tick = [&] { progress.tick(); };
    callbacks.finished = [&](const ChildJob& job, const ChildOutcome& outcome) {
        Entry& entry = entries[job.index];
        const Verdict verdict = judge(outcome, options.timeoutSeconds);
        entry.status = verdict.status;
        entry.exitStatus = verdict.exitStatus;
        entry.message = verdict.message;
        entry.seconds = outcome.seconds;
        const std::string thumbnail = thumbnailOf(job.argv);
        if (entry.status == Status::Ok) {
            if (options.fsync) {
                if (const std::string problem = flushOutputs(entry.output, thumbnail); !problem.empty()) {
                    entry.status = Status::Failed;
                    entry.message = problem;
                }
            }
            entry.bytesWritten = fileSize(entry.output).value_or(0);
        } else {
            removeLeftovers(entry.output, outcome.pid);
            removeLeftovers(thumbnail, outcome.pid);
        }
        finished[job.index] = true;
        record(entry);
    };
    const bool whole = runChildren(jobs, settings, callbacks);
    for (size_t i = 0; i < entries.size(); ++i) {
        if (finished[i]) continue;
        entries[i].status = Status::Interrupted;
        entries[i].message = "not started: the batch was interrupted";
    }

    Summary summary;
    for (const Entry& entry : entries) summary.add(entry);
    summary.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begun).count();
    bool written = journalOk;
    if (!journalOk) std::fprintf(stderr, "tavrel-batch: %s: some entries could not be written\n", journal.path().c_str());
    if (!options.jsonFile.empty()) {
        if (const std::string problem = writeDocument(options.jsonFile, batchDocument(entries, summary)); !problem.empty()) {
            std::fprintf(stderr, "tavrel-batch: %s: %s\n", options.jsonFile.c_str(), problem.c_str());
            written = false;
        }
    }
    progress.close((whole ? "" : "interrupted: ") + summaryLine(summary));
    return whole && written && summary.allGood() ? 0 : 1;
}

}  // namespace batch
