#include "tools/batch/verdict.h"

#include <cstdio>
#include <cstring>

namespace batch {

namespace {

constexpr const char* kNothingWritten = "nothing was written.";

std::string signalName(int signal) {
    const char* name = sigabbrev_np(signal);
    return name != nullptr ? std::string("SIG") + name : "signal " + std::to_string(signal);
}

// Calls fn(line) for each line from the last to the first until it returns true.
template <typename Fn>
std::string findFromEnd(const std::string& output, Fn fn) {
    size_t end = output.size();
    while (end > 0) {
        const size_t cut = output.find_last_of("\r\n", end - 1);
        const size_t begin = cut == std::string::npos ? 0 : cut + 1;
        std::string line = output.substr(begin, end - begin);
        while (!line.empty() && (line.back() == ' ' || line.back() == '\t')) line.pop_back();
        if (fn(line)) return line;
        if (cut == std::string::npos) break;
        end = cut;
    }
    return {};
}

}  // namespace

std::string refusalLine(const std::string& output) {
    const std::string tail(kNothingWritten);
    return findFromEnd(output, [&](const std::string& line) {
        return line.size() >= tail.size() && line.compare(line.size() - tail.size(), tail.size(), tail) == 0;
    });
}

std::string lastLine(const std::string& output) {
    return findFromEnd(output, [](const std::string& line) { return !line.empty(); });
}

Verdict judge(const ChildOutcome& outcome, double timeoutSeconds) {
    Verdict verdict;
    if (!outcome.startError.empty()) {
        verdict.message = "the tool could not be started: " + outcome.startError;
        return verdict;
    }
    if (outcome.exited) verdict.exitStatus = outcome.exitCode;
    if (outcome.exited && outcome.exitCode == 0) {
        verdict.status = Status::Ok;
        return verdict;
    }
    const std::string refusal = refusalLine(outcome.output);
    if (outcome.timedOut) {
        char text[96];
        std::snprintf(text, sizeof text, "stopped after the time allowed (%g s)", timeoutSeconds);
        verdict.message = text;
        if (!outcome.exited) verdict.message += "; ended by " + signalName(outcome.signal);
        return verdict;
    }
    if (outcome.interrupted) {
        verdict.status = Status::Interrupted;
        verdict.message = refusal.empty() ? "stopped: the batch was interrupted" : refusal;
        return verdict;
    }
    if (!outcome.exited) {
        verdict.message = "the tool was ended by " + signalName(outcome.signal);
        return verdict;
    }
    if (!refusal.empty()) {
        verdict.status = Status::Refused;
        verdict.message = refusal;
        return verdict;
    }
    const std::string last = lastLine(outcome.output);
    verdict.message = "the tool exited with status " + std::to_string(outcome.exitCode) +
                      (last.empty() ? std::string() : ": " + last);
    return verdict;
}

}  // namespace batch
