#include "tools/batch/child_runs.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstring>
#include <deque>
#include <memory>

extern char** environ;

namespace batch {

namespace {

using Clock = std::chrono::steady_clock;

// What is kept of a child's output: its refusal line is at the end.
constexpr size_t kOutputKept = 64 * 1024;

// The handlers only write a byte into this pipe, which the loop polls.
int g_wake[2] = {-1, -1};
volatile sig_atomic_t g_interrupts = 0;

void onSignal(int signal) {
    const int saved = errno;
    if (signal != SIGCHLD) g_interrupts = g_interrupts + 1;
    const char byte = signal == SIGCHLD ? 'c' : 'i';
    [[maybe_unused]] const ssize_t ignored = ::write(g_wake[1], &byte, 1);
    errno = saved;
}

class SignalGuard {
public:
    SignalGuard() {
        if (::pipe2(g_wake, O_CLOEXEC | O_NONBLOCK) != 0) g_wake[0] = g_wake[1] = -1;
        struct sigaction action {};
        action.sa_handler = onSignal;
        sigemptyset(&action.sa_mask);
        action.sa_flags = SA_RESTART | SA_NOCLDSTOP;
        for (int i = 0; i < 4; ++i) ::sigaction(kSignals[i], &action, &saved_[i]);
    }
    ~SignalGuard() {
        for (int i = 0; i < 4; ++i) ::sigaction(kSignals[i], &saved_[i], nullptr);
        for (int& fd : g_wake) {
            if (fd >= 0) ::close(fd);
            fd = -1;
        }
    }
    SignalGuard(const SignalGuard&) = delete;
    SignalGuard& operator=(const SignalGuard&) = delete;

private:
    static constexpr int kSignals[4] = {SIGCHLD, SIGINT, SIGTERM, SIGHUP};
    struct sigaction saved_[4];
};

struct Running {
    const ChildJob* job;
    ChildOutcome outcome;
    int fd = -1;
    Clock::time_point started;
    Clock::time_point deadline = Clock::time_point::max();  // SIGTERM then
    Clock::time_point killAt = Clock::time_point::max();    // SIGKILL then
};

Clock::duration seconds(double s) { return std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(s)); }

void readInto(Running& child) {
    char buffer[16384];
    for (;;) {
        const ssize_t n = ::read(child.fd, buffer, sizeof buffer);
        if (n > 0) {
            std::string& out = child.outcome.output;
            out.append(buffer, static_cast<size_t>(n));
            if (out.size() > 2 * kOutputKept) out.erase(0, out.size() - kOutputKept);
            continue;
        }
        if (n < 0 && errno == EINTR) continue;
        if (n == 0) {
            ::close(child.fd);
            child.fd = -1;
        }
        return;  // EAGAIN: more later
    }
}

// Starts the child with both its streams into one pipe and nothing to read.
bool spawn(Running& child) {
    int out[2];
    if (::pipe2(out, O_CLOEXEC) != 0) {
        child.outcome.startError = std::strerror(errno);
        return false;
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, out[1], STDERR_FILENO);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    // The child starts with default dispositions and nothing blocked.
    sigset_t none, all;
    sigemptyset(&none);
    sigfillset(&all);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setsigdefault(&attributes, &all);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);

    std::vector<char*> argv;
    for (const std::string& arg : child.job->argv) argv.push_back(const_cast<char*>(arg.c_str()));
    argv.push_back(nullptr);
    pid_t pid = 0;
    const int error = ::posix_spawn(&pid, argv[0], &actions, &attributes, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    ::close(out[1]);
    if (error != 0) {
        ::close(out[0]);
        child.outcome.startError = std::strerror(error);
        return false;
    }
    ::fcntl(out[0], F_SETFL, O_NONBLOCK);
    child.fd = out[0];
    child.outcome.pid = pid;
    return true;
}

}  // namespace

bool runChildren(const std::vector<ChildJob>& jobs, const RunSettings& settings, const RunCallbacks& callbacks) {
    SignalGuard guard;
    g_interrupts = 0;
    const unsigned width = std::max(1u, settings.jobs);
    std::deque<std::unique_ptr<Running>> running;
    size_t next = 0;
    int interruptsSeen = 0;
    Clock::time_point nextTick = Clock::now() + seconds(settings.tickSeconds);

    auto finish = [&](std::unique_ptr<Running>& child) {
        child->outcome.seconds = std::chrono::duration<double>(Clock::now() - child->started).count();
        if (callbacks.finished) callbacks.finished(*child->job, child->outcome);
        child.reset();
    };

    for (;;) {
        const bool interrupted = g_interrupts > 0;
        // Start what there is room for.
        while (!interrupted && next < jobs.size() && running.size() < width) {
            auto child = std::make_unique<Running>();
            child->job = &jobs[next++];
            child->started = Clock::now();
            if (callbacks.started) callbacks.started(*child->job);
            if (!spawn(*child)) {
                finish(child);
                continue;
            }
            if (settings.timeoutSeconds > 0) child->deadline = child->started + seconds(settings.timeoutSeconds);
            running.push_back(std::move(child));
        }
        if (running.empty() && (interrupted || next >= jobs.size())) return !interrupted;

        // An interruption reaches every running child, harder the second time.
        if (g_interrupts > interruptsSeen) {
            const bool again = interruptsSeen > 0;
            interruptsSeen = g_interrupts;
            for (auto& child : running) {
                child->outcome.interrupted = true;
                ::kill(child->outcome.pid, again ? SIGKILL : SIGTERM);
                if (!again) child->killAt = std::min(child->killAt, Clock::now() + seconds(settings.killAfterSeconds));
            }
        }

        // Deadlines passed.
        const Clock::time_point now = Clock::now();
        Clock::time_point wake = Clock::time_point::max();
        for (auto& child : running) {
            if (now >= child->killAt) {
                ::kill(child->outcome.pid, SIGKILL);
                child->killAt = Clock::time_point::max();
            }
            if (now >= child->deadline) {
                child->outcome.timedOut = true;
                ::kill(child->outcome.pid, SIGTERM);
                child->deadline = Clock::time_point::max();
                child->killAt = now + seconds(settings.killAfterSeconds);
            }
            wake = std::min({wake, child->deadline, child->killAt});
        }
        if (settings.tickSeconds > 0) {
            if (now >= nextTick) {
                if (callbacks.tick) callbacks.tick();
                nextTick = now + seconds(settings.tickSeconds);
            }
            wake = std::min(wake, nextTick);
        }

        std::vector<pollfd> fds{{g_wake[0], POLLIN, 0}};
        for (auto& child : running) {
            if (child->fd >= 0) fds.push_back({child->fd, POLLIN, 0});
        }
        int timeout = -1;
        if (wake != Clock::time_point::max()) {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(wake - Clock::now()).count();
            timeout = static_cast<int>(std::clamp<long long>(left, 0, 60000));
        }
        // Without the wake-up pipe, endings are only noticed by looking again.
        if (g_wake[0] < 0 && (timeout < 0 || timeout > 50)) timeout = 50;
        ::poll(fds.data(), fds.size(), timeout);
        if (fds[0].revents != 0) {
            char drain[64];
            while (::read(g_wake[0], drain, sizeof drain) > 0) {
            }
        }
        for (auto& child : running) {
            if (child->fd >= 0) readInto(*child);
        }

        // Reap whoever has ended; what is still in its pipe is read first.
        for (auto& child : running) {
            int status = 0;
            if (::waitpid(child->outcome.pid, &status, WNOHANG) != child->outcome.pid) continue;
            if (child->fd >= 0) {
                readInto(*child);
                if (child->fd >= 0) ::close(child->fd);  // a grandchild may hold it: not waited for
                child->fd = -1;
            }
            child->outcome.exited = WIFEXITED(status);
            child->outcome.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 0;
            child->outcome.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
            finish(child);
        }
        running.erase(std::remove(running.begin(), running.end(), nullptr), running.end());
    }
}

}  // namespace batch
