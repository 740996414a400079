#include "app/run_driver.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <optional>
#include <string>

#include "app/maker_thumbnail.h"
#include "app/media_plugin.h"
#include "app/media_plugin_loader.h"
#include "app/option.h"
#include "app/version.h"
#include "foundation/console.h"
#include "foundation/pending_output.h"
#include "foundation/utility.h"
#include "foundation/wchar.h"
#include "meta/full_range_edit.h"
#include "meta/meta_builder.h"
#include "mp4/container.h"
#include "mp4/header_boxes.h"
#include "mp4/movie_soundness.h"

bool namesSameFile(const Option& option) {
    struct stat source {}, output {};
    if (::stat(QVMX::wchar::wcs2mbs(option.source).c_str(), &source) != 0) return false;
    if (::stat(QVMX::wchar::wcs2mbs(option.output).c_str(), &output) != 0) return false;
    return source.st_dev == output.st_dev && source.st_ino == output.st_ino;
}

namespace {

// Room kept for what the metadata adds to a copy of the source.
constexpr unsigned long long kMetadataRoom = 4ull << 20;

std::wstring wide(const std::string& text) { return QVMX::wchar::mbs2wcs(text.c_str()); }
// The conversion may leave a terminating NUL in the string; it is not part of the name.
std::string narrow(const std::wstring& text) { return QVMX::wchar::wcs2mbs(text).c_str(); }

// The one line a refusal or failure ends with.
void refuse(const std::wstring& file, const std::wstring& cause) {
    QVMX::Console::out(L"%ls: %ls; nothing was written.\n", file.c_str(), cause.c_str());
}

// Why a run failed: the file it concerns and the cause in a user's words.
struct Failure {
    std::wstring file;
    std::wstring cause;
    bool failed() const { return !cause.empty(); }
};

// A step's cause with the reason its failure gives, where it gives one.
std::wstring because(const std::wstring& cause, const QVMX::Status& status) {
    return status || status.failure().cause.empty() ? cause : cause + L": " + status.failure().cause;
}

// About how many bytes the result takes: a copy of the source and its
// metadata, or the bit rates over the kept range for a re-encode.
unsigned long long expectedBytes(const Option& option, const MP4::Container& source, uint64_t sourceBytes) {
    if (!option.reencode) return sourceBytes + kMetadataRoom;
    double seconds = 0;
    if (const MP4::BOX* moov = source.moov(); moov != nullptr && moov->hasChild()) {
        for (const auto& child : static_cast<const MP4::NestedBox&>(*moov).children) {
            if (const auto* mvhd = dynamic_cast<const MP4::MVHD*>(child.get())) seconds = mvhd->durationSeconds;
        }
    }
    if (option.endSeconds != Option::kToTheEnd && option.endSeconds < seconds) seconds = option.endSeconds;
    seconds = seconds > option.startSeconds ? seconds - option.startSeconds : 0;
    const double rate = double(option.videoBitRate == Option::kAutomaticBitRate ? 0 : option.videoBitRate) +
                        double(option.audioBitRate);
    return static_cast<unsigned long long>(rate / 8 * seconds) + kMetadataRoom;
}

// The refusals that come before anything is written; needed is set to about
// what the result takes.
Failure checkBeforeWriting(const Option& option, MP4::Container& source, unsigned long long& needed) {
    // A movie whose samples cannot all be found is not rewritten into one
    // that hides the damage.
    std::string problem = MP4::sourceFileProblem(option.source);
    MP4::BinFile file(option.source, 'r');
    if (problem.empty() && (!file.isOpen() || source.root() == nullptr)) problem = "it cannot be opened for reading";
    if (problem.empty()) problem = MP4::soundnessProblem(source, file);
    if (!problem.empty()) return {option.source, wide(problem)};
    if (const std::string cause = QVMX::outputPathProblem(narrow(option.output)); !cause.empty()) {
        return {option.output, wide(cause)};
    }
    needed = expectedBytes(option, source, file.length());
    const std::string room = QVMX::roomProblem(narrow(option.output), needed);
    if (!room.empty()) return {option.output, wide(room)};
    return {};
}

// Whether the run fills the newest cameras' maker thumbnail box, which
// takes a decode.
bool makesMakerThumbnail(const Option& option) {
    return option.probe.modelCode > MetaBuilder::kNewerLayout && option.probe.thumbnailRoom > 0;
}

// Whether the run needs the media plug-in: it decodes or encodes video.
bool needsMedia(const Option& option) {
    return option.reencode || !option.thumbnail.empty() || makesMakerThumbnail(option);
}

// Why the media plug-in cannot serve the run; no failure when it can.
Failure mediaFailure() {
    const std::string problem = mediaPluginProblem();
    return {wide(mediaPluginPath()), wide(problem.empty() ? "the media plug-in cannot be used" : problem)};
}

// Every step, writing into movie (and thumbnail, when asked for) instead
// of the output paths, a re-encode first into scratch.
Failure runSteps(const Option& option, MP4::Container& source, const std::wstring& movie, const std::wstring& scratch,
                 const std::wstring& thumbnail) {
    unsigned int frames = 0;
    if (option.reencode) {
        MediaPlugin* media = mediaPlugin();
        if (media == nullptr) return mediaFailure();
        const TrimResult trimmed = media->reencode(option, scratch);
        frames = trimmed.frames;
        if (frames == 0) return {option.source, trimmed.problem.empty() ? L"its re-encode kept no frame" : trimmed.problem};
    }

    MetaBuilder builder(tavrel::kIdentity, tavrel::kVersion, false);
    builder.readMeta(source, option.reencode);
    if (frames != 0) builder.trimStream(option.framesPerSecond() * option.startSeconds, frames);
    if (option.viewMode != Option::kViewNone) builder.attach(option.view, option.viewMode == Option::kViewRemoved);

    if (option.reencode) {
        if (option.probe.modelCode == MetaBuilder::kModelD &&
            !builder.readSpatialData(source, option.startSeconds, option.endSeconds)) {
            return {option.source, L"its spatial audio could not be read"};
        }
        MP4::Container encoded;
        const bool fullRange = Utility::isSupporFullRangePixelFormat();
        QVMX::Status written;
        if (!encoded.attach(scratch)) written = QVMX::Failure{L"attach", L"the re-encoded movie could not be read"};
        {
            // The maker thumbnail is the scratch file's first frame, read in
            // the colour range the output is to declare, made beside the
            // metadata step's copy, which puts it in.
            std::optional<EarlyThumbnail> makerThumbnail;
            if (written && makesMakerThumbnail(option)) {
                makerThumbnail.emplace(scratch, static_cast<size_t>(option.probe.thumbnailRoom),
                                       meta::declaredRange(encoded, fullRange), true);
            }
            if (written) written = builder.updateMeta(encoded, source, movie, fullRange);
        }  // Its decode is done with the scratch file.
        ::unlink(narrow(scratch).c_str());
        if (!written) {
            return {option.source, because(L"its metadata could not be written into the re-encoded movie", written)};
        }
    } else if (const QVMX::Status updated = builder.updateMeta(source, source, movie, std::nullopt); !updated) {
        return {option.source, because(L"its metadata could not be brought up to date", updated)};
    }

    // The maker thumbnail, made on the way, needed the plug-in too.
    if (makesMakerThumbnail(option) && !mediaPluginProblem().empty()) return mediaFailure();

    if (!thumbnail.empty()) {
        MediaPlugin* media = mediaPlugin();
        if (media == nullptr) return mediaFailure();
        if (!media->saveThumbnail(movie, thumbnail)) {
            QVMX::Console::out(L"thumbnailer(%ls) failed.\n", option.thumbnail.c_str());
        }
    }
    return {};
}

}  // namespace

bool runJob(const Option& option) {
    if (namesSameFile(option)) {
        QVMX::Console::out(L"the output %ls is the source movie itself; nothing was written.\n",
                           option.output.c_str());
        return false;
    }
    if (needsMedia(option) && !mediaPluginPresent()) {
        refuse(wide(mediaPluginPath()), L"the media plug-in is missing, and this run decodes video");
        return false;
    }
    // A metadata run's maker thumbnail is the source's first frame: it is
    // made while the movie is checked, read and copied.
    std::optional<EarlyThumbnail> makerThumbnail;
    if (!option.reencode && makesMakerThumbnail(option)) {
        makerThumbnail.emplace(option.source, static_cast<size_t>(option.probe.thumbnailRoom));
    }

    // The source, parsed once: by the probe, or here when the run was not
    // probed.
    std::shared_ptr<MP4::Container> source = option.probe.movie;
    if (!source || source->path() != option.source) {
        source = std::make_shared<MP4::Container>();
        source->attach(option.source);
    }

    unsigned long long needed = 0;
    if (const Failure refused = checkBeforeWriting(option, *source, needed); refused.failed()) {
        refuse(refused.file, refused.cause);
        return false;
    }

    // Everything goes into hidden files beside the outputs, which take the
    // outputs' names only once every step has succeeded.
    QVMX::PendingOutput movie(narrow(option.output));
    if (!movie.isOpen()) {
        refuse(option.output, wide(movie.cause()));
        return false;
    }
    std::unique_ptr<QVMX::PendingOutput> thumbnail;
    if (!option.thumbnail.empty()) {
        // A thumbnail that cannot be written does not fail the run.
        thumbnail = std::make_unique<QVMX::PendingOutput>(narrow(option.thumbnail));
        if (!thumbnail->isOpen()) {
            QVMX::Console::out(L"thumbnailer(%ls) failed.\n", option.thumbnail.c_str());
            thumbnail.reset();
        }
    }

    Failure failure = runSteps(option, *source, wide(movie.temporaryPath()), wide(movie.scratchPath()),
                               thumbnail ? wide(thumbnail->temporaryPath()) : std::wstring());
    if (!failure.failed() && !movie.commit()) failure = {option.output, wide(movie.cause())};
    if (failure.failed()) {
        const std::string cause = QVMX::failureCause(narrow(option.output), "", movie, needed);
        if (!cause.empty()) failure = {option.output, wide(cause)};
        refuse(failure.file, failure.cause);
        return false;
    }
    // The thumbnail is not part of the movie: a failure to place it is
    // reported and the movie stays.
    std::error_code error;
    if (thumbnail && std::filesystem::file_size(thumbnail->temporaryPath(), error) > 0 && !thumbnail->commit()) {
        QVMX::Console::out(L"thumbnailer(%ls) failed.\n", option.thumbnail.c_str());
    }
    return true;
}
