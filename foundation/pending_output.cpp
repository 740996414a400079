#include "foundation/pending_output.h"

#include <dirent.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace QVMX {

namespace {

// The pending outputs a signal handler removes: plain arrays, so that the
// handler touches nothing but memory already written and system calls.
constexpr int kSlots = 4;
constexpr size_t kPathBytes = 4096 + 64;
struct Slot {
    char temporary[kPathBytes];
    char rewrite[kPathBytes];  // the temporary of an in-place rewrite of it
    char line[kPathBytes + 64];
    volatile sig_atomic_t used;
};
Slot slots[kSlots];

// Rewrites of a file make their own temporary under this suffix.
constexpr const char* kRewriteSuffix = ".tmp.mp4";
// A file system this nearly full is full for a movie.
constexpr unsigned long long kFullBelow = 1ull << 20;

void removeAll() {
    for (Slot& slot : slots) {
        if (!slot.used) continue;
        ::unlink(slot.temporary);
        ::unlink(slot.rewrite);
    }
}

extern "C" void onInterrupt(int) {
    removeAll();
    for (const Slot& slot : slots) {
        if (!slot.used) continue;
        [[maybe_unused]] const ssize_t n = ::write(STDOUT_FILENO, slot.line, std::strlen(slot.line));
        break;
    }
    ::_exit(1);
}

std::string folderOf(const std::string& path) {
    const size_t slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

std::string nameOf(const std::string& path) {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

// Removes ".NAME.tavrel-PID-..." files of processes that no longer exist.
void removeLeftovers(const std::string& folder, const std::string& prefix) {
    DIR* dir = ::opendir(folder.c_str());
    if (dir == nullptr) return;
    while (const dirent* entry = ::readdir(dir)) {
        const std::string name = entry->d_name;
        if (name.compare(0, prefix.size(), prefix) != 0) continue;
        char* end = nullptr;
        const long pid = std::strtol(name.c_str() + prefix.size(), &end, 10);
        if (pid <= 0 || end == nullptr || *end != '-') continue;
        if (::kill(static_cast<pid_t>(pid), 0) == 0 || errno != ESRCH) continue;
        ::unlink((folder + "/" + name).c_str());
    }
    ::closedir(dir);
}

// Holds SIGINT, SIGTERM and SIGHUP back for its lifetime: one that arrives
// meanwhile is handled once the slots say again what there is to remove.
class InterruptsHeld {
public:
    InterruptsHeld() {
        sigset_t interrupts;
        sigemptyset(&interrupts);
        for (int signal : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&interrupts, signal);
        ::sigprocmask(SIG_BLOCK, &interrupts, &previous_);
    }
    ~InterruptsHeld() { ::sigprocmask(SIG_SETMASK, &previous_, nullptr); }
    InterruptsHeld(const InterruptsHeld&) = delete;
    InterruptsHeld& operator=(const InterruptsHeld&) = delete;

private:
    sigset_t previous_;
};

mode_t currentUmask() {
    const mode_t mask = ::umask(0);
    ::umask(mask);
    return mask;
}


}  // namespace

PendingOutput::PendingOutput(const std::string& path) : path_(path.c_str()) {
    const std::string folder = folderOf(path_);
    const std::string name = nameOf(path_);
    if (name.empty() || path_.size() + 64 > kPathBytes) {
        cause_ = "the output path is not a file name";
        return;
    }
    const std::string prefix = "." + name + ".tavrel-";
    removeLeftovers(folder, prefix);

    for (int i = 0; i < kSlots; ++i) {
        if (!slots[i].used) {
            slot_ = i;
            break;
        }
    }
    if (slot_ < 0) {
        cause_ = "too many outputs at once";
        return;
    }
    std::string pattern = folder + "/" + prefix + std::to_string(::getpid()) + "-XXXXXX";
    std::vector<char> buffer(pattern.begin(), pattern.end());
    buffer.push_back('\0');
    Slot& slot = slots[slot_];
    std::snprintf(slot.line, sizeof slot.line, "\n%s: the run was interrupted; nothing was written.\n", path_.c_str());
    // A signal between making the file and registering it would leave it.
    InterruptsHeld held;
    const int fd = ::mkstemp(buffer.data());
    if (fd < 0) {
        cause_ = std::strerror(errno);
        slot_ = -1;
        return;
    }
    ::close(fd);
    temporary_ = buffer.data();
    std::snprintf(slot.temporary, sizeof slot.temporary, "%s", temporary_.c_str());
    std::snprintf(slot.rewrite, sizeof slot.rewrite, "%s%s", temporary_.c_str(), kRewriteSuffix);
    slot.used = 1;
}

PendingOutput::~PendingOutput() { discard(); }

std::string PendingOutput::scratchPath() const { return temporary_.empty() ? std::string() : temporary_ + kRewriteSuffix; }

void PendingOutput::discard() {
    if (temporary_.empty()) return;
    ::unlink(temporary_.c_str());
    ::unlink((temporary_ + kRewriteSuffix).c_str());
    temporary_.clear();
    if (slot_ >= 0) slots[slot_].used = 0;
    slot_ = -1;
}

bool PendingOutput::commit() {
    if (temporary_.empty()) return false;
    struct stat st {};
    mode_t mode = 0666 & ~currentUmask();
    if (::lstat(path_.c_str(), &st) == 0 && S_ISREG(st.st_mode)) mode = st.st_mode & 07777;
    // Once renamed, the file is no longer the handler's to remove.
    InterruptsHeld held;
    if (::chmod(temporary_.c_str(), mode) != 0 || ::rename(temporary_.c_str(), path_.c_str()) != 0) {
        cause_ = std::strerror(errno);
        discard();
        return false;
    }
    ::unlink((temporary_ + kRewriteSuffix).c_str());
    temporary_.clear();
    if (slot_ >= 0) slots[slot_].used = 0;
    slot_ = -1;
    return true;
}

void PendingOutput::installInterruptHandler() {
    struct sigaction action {};
    action.sa_handler = onInterrupt;
    sigemptyset(&action.sa_mask);
    for (int signal : {SIGINT, SIGTERM, SIGHUP}) ::sigaction(signal, &action, nullptr);
}

std::string outputPathProblem(const std::string& path) {
    struct stat st {};
    if (::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) return "it is a folder";
    const std::string folder = folderOf(path);
    if (::stat(folder.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) return "its folder does not exist";
    if (::access(folder.c_str(), W_OK | X_OK) != 0) return "its folder cannot be written to";
    return {};
}

std::string roomProblem(const std::string& path, unsigned long long bytes) {
    struct statvfs fs {};
    if (::statvfs(folderOf(path).c_str(), &fs) != 0) return {};
    const unsigned long long room = static_cast<unsigned long long>(fs.f_bavail) * fs.f_frsize;
    if (room >= bytes) return {};
    const auto mib = [](unsigned long long n) { return std::to_string((n + (1u << 20) - 1) >> 20); };
    return "its file system has room for " + mib(room) + " MiB, the result needs about " + mib(bytes) + " MiB";
}

std::string fullDiskCause(const std::string& path, unsigned long long needed) {
    struct statvfs fs {};
    if (::statvfs(folderOf(path).c_str(), &fs) != 0) return {};
    const unsigned long long room = static_cast<unsigned long long>(fs.f_bavail) * fs.f_frsize;
    return room < kFullBelow || room < needed ? std::strerror(ENOSPC) : std::string();
}

std::string failureCause(const std::string& output, const std::string& cause, PendingOutput& pending,
                         unsigned long long needed) {
    std::string full = fullDiskCause(output);
    pending.discard();
    if (full.empty()) full = fullDiskCause(output, needed);
    return full.empty() ? cause : full;
}

}  // namespace QVMX
