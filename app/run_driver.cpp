#include "app/run_driver.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "app/option.h"
#include "app/tavrel_transcoder.h"
#include "app/version.h"
#include "foundation/console.h"
#include "foundation/utility.h"
#include "foundation/wchar.h"
#include "meta/meta_builder.h"
#include "mp4/movie_soundness.h"
#include "video/thumbnailer.h"

bool namesSameFile(const Option& option) {
    struct stat source {}, output {};
    if (::stat(QVMX::wchar::wcs2mbs(option.source).c_str(), &source) != 0) return false;
    if (::stat(QVMX::wchar::wcs2mbs(option.output).c_str(), &output) != 0) return false;
    return source.st_dev == output.st_dev && source.st_ino == output.st_ino;
}

namespace {

// What stands at a path: enough to tell whether a run wrote there.
struct PathState {
    bool exists = false;
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    struct timespec modified {};

    static PathState of(const std::wstring& path) {
        PathState state;
        struct stat st {};
        if (::stat(QVMX::wchar::wcs2mbs(path).c_str(), &st) != 0) return state;
        state = {true, st.st_dev, st.st_ino, st.st_size, st.st_mtim};
        return state;
    }
    bool operator==(const PathState& o) const {
        return exists == o.exists && device == o.device && inode == o.inode && size == o.size &&
               modified.tv_sec == o.modified.tv_sec && modified.tv_nsec == o.modified.tv_nsec;
    }
};

// The one line a refusal or failure ends with.
void refuse(const std::wstring& file, const std::wstring& cause) {
    QVMX::Console::out(L"%ls: %ls; nothing was written.\n", file.c_str(), cause.c_str());
}

bool runSteps(const Option& option);

// Why nothing can be written at the output path, in a user's words; empty
// when it can.
std::wstring outputProblem(const std::wstring& output) {
    const std::filesystem::path path(QVMX::wchar::wcs2mbs(output));
    std::error_code error;
    if (std::filesystem::is_directory(path, error)) return L"it is a folder";
    const std::filesystem::path folder = path.has_parent_path() ? path.parent_path() : std::filesystem::path(".");
    if (!std::filesystem::is_directory(folder, error)) return L"its folder does not exist";
    if (::access(folder.c_str(), W_OK | X_OK) != 0) return L"its folder cannot be written to";
    return {};
}

}  // namespace

bool runJob(const Option& option) {
    if (namesSameFile(option)) {
        QVMX::Console::out(L"the output %ls is the source movie itself; nothing was written.\n",
                           option.output.c_str());
        return false;
    }
    // Checked before anything is written: a movie whose samples cannot all
    // be found is not rewritten into one that hides the damage.
    const std::string problem = MP4::soundnessProblem(option.source);
    if (!problem.empty()) {
        refuse(option.source, QVMX::wchar::mbs2wcs(problem.c_str()));
        return false;
    }
    if (const std::wstring cause = outputProblem(option.output); !cause.empty()) {
        refuse(option.output, cause);
        return false;
    }
    const PathState before = PathState::of(option.output);
    if (runSteps(option)) return true;
    // Whatever the run left at the output is not what was asked for.
    if (!(PathState::of(option.output) == before)) ::unlink(QVMX::wchar::wcs2mbs(option.output).c_str());
    return false;
}

namespace {

bool runSteps(const Option& option) {
    unsigned int frames = 0;
    if (option.reencode) {
        const TrimResult trimmed = TavrelTranscoder::trim(option);
        frames = trimmed.frames;
        if (frames == 0) {
            refuse(option.source, trimmed.problem);
            return false;
        }
    }

    MetaBuilder builder(tavrel::kIdentity, tavrel::kVersion, false);
    builder.readMeta(option.source, option.reencode);
    if (frames != 0) builder.trimStream(option.framesPerSecond() * option.startSeconds, frames);
    if (option.viewMode != Option::kViewNone) builder.attach(option.view, option.viewMode == Option::kViewRemoved);

    if (option.reencode) {
        if (option.probe.modelCode == MetaBuilder::kModelD &&
            !builder.readSpatialData(option.source, option.startSeconds, option.endSeconds)) {
            refuse(option.source, L"its spatial audio could not be read");
            return false;
        }
        if (!builder.updateMeta(option.output, nullptr, Utility::isSupporFullRangePixelFormat())) {
            refuse(option.source, L"its metadata could not be written into the re-encoded movie");
            return false;
        }
    } else if (!builder.updateMeta(option.source, &option.output, true)) {
        refuse(option.source, L"its metadata could not be brought up to date");
        return false;
    }

    if (!option.thumbnail.empty()) {
        Thumbnailer thumbnailer(option.output);
        if (!thumbnailer.saveFrame(option.thumbnail)) {
            QVMX::Console::out(L"thumbnailer(%ls) failed.\n", option.thumbnail.c_str());
        }
    }
    return true;
}

}  // namespace
