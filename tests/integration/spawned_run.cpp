#include "spawned_run.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <stdexcept>

#include "support/run_command.h"

extern char** environ;

namespace e2e {

SpawnedRun::SpawnedRun(const std::string& program, const std::vector<std::string>& arguments) {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) return;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDERR_FILENO);
    std::vector<std::string> words{program};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (std::string& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);
    // The programs' lines are UTF-8 whatever locale the tests run in.
    std::vector<std::string> variables{"LC_ALL=C.UTF-8"};
    for (char** e = environ; *e != nullptr; ++e) {
        if (std::strncmp(*e, "LC_ALL=", 7) != 0) variables.emplace_back(*e);
    }
    std::vector<char*> envp;
    for (std::string& variable : variables) envp.push_back(variable.data());
    envp.push_back(nullptr);
    if (::posix_spawn(&pid_, program.c_str(), &actions, nullptr, argv.data(), envp.data()) != 0) pid_ = -1;
    posix_spawn_file_actions_destroy(&actions);
    ::close(ends[1]);
    pipe_ = ends[0];
}

SpawnedRun::~SpawnedRun() {
    if (started() && !reaped_) {
        ::kill(pid_, SIGKILL);
        wait();
    }
    if (pipe_ >= 0) ::close(pipe_);
}

void SpawnedRun::signal(int number) const {
    if (started() && !reaped_) ::kill(pid_, number);
}

bool SpawnedRun::stop() {
    if (!started() || reaped_) return false;
    ::kill(pid_, SIGSTOP);
    int status = 0;
    while (::waitpid(pid_, &status, WUNTRACED) < 0) {
        if (errno != EINTR) return false;
    }
    if (WIFSTOPPED(status)) return true;
    status_ = status;
    reaped_ = true;
    return false;
}

void SpawnedRun::wait() {
    if (pipe_ >= 0) {
        char buffer[4096];
        for (ssize_t n; (n = ::read(pipe_, buffer, sizeof buffer)) != 0;) {
            if (n < 0 && errno == EINTR) continue;
            if (n < 0) break;
            output_.append(buffer, static_cast<size_t>(n));
        }
        ::close(pipe_);
        pipe_ = -1;
    }
    if (started() && !reaped_) {
        while (::waitpid(pid_, &status_, 0) < 0 && errno == EINTR) {
        }
        reaped_ = true;
    }
}

bool SpawnedRun::ended() {
    if (!started() || reaped_) return true;
    if (::waitpid(pid_, &status_, WNOHANG) == pid_) reaped_ = true;
    return reaped_;
}

bool SpawnedRun::exited() const { return reaped_ && WIFEXITED(status_); }
int SpawnedRun::exitStatus() const { return exited() ? WEXITSTATUS(status_) : -1; }
int SpawnedRun::endingSignal() const { return reaped_ && WIFSIGNALED(status_) ? WTERMSIG(status_) : 0; }

void makeBigMovie(const std::filesystem::path& out, int mib, const std::string& size) {
    using testsupport::shellQuote;
    const std::string clip = out.string() + ".clip.mp4";
    const std::string make =
        "ffmpeg -nostdin -v error -y -f lavfi -i testsrc2=size=" + size + ":rate=30 -f lavfi "
        "-i sine=frequency=440:sample_rate=48000 -t 4 -pix_fmt yuv420p -c:v libx264 -preset ultrafast -qp 0 "
        "-c:a aac " + shellQuote(clip) +
        " && ffmpeg -nostdin -v error -y -stream_loop -1 -i " + shellQuote(clip) + " -map 0 -c copy -fs " +
        std::to_string(static_cast<long long>(mib) << 20) + " " + shellQuote(out.string());
    const auto made = testsupport::runCommand(make, true);
    std::filesystem::remove(clip);
    if (made.status != 0) throw std::runtime_error("ffmpeg failed: " + make + "\n" + made.output);
}

std::set<std::string> entriesOf(const std::filesystem::path& dir) {
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(dir)) names.insert(entry.path().filename().string());
    return names;
}

bool sameBytes(const std::filesystem::path& a, const std::filesystem::path& b) {
    std::error_code error;
    if (std::filesystem::file_size(a, error) != std::filesystem::file_size(b, error) || error) return false;
    std::ifstream x(a, std::ios::binary), y(b, std::ios::binary);
    std::vector<char> p(1 << 20), q(1 << 20);
    while (x && y) {
        x.read(p.data(), static_cast<std::streamsize>(p.size()));
        y.read(q.data(), static_cast<std::streamsize>(q.size()));
        if (x.gcount() != y.gcount() || std::memcmp(p.data(), q.data(), static_cast<size_t>(x.gcount())) != 0) {
            return false;
        }
    }
    return x.eof() && y.eof();
}

}  // namespace e2e
