#include "app/run_driver.h"

#include <sys/stat.h>

#include "app/option.h"
#include "app/tavrel_transcoder.h"
#include "app/version.h"
#include "foundation/console.h"
#include "foundation/utility.h"
#include "foundation/wchar.h"
#include "meta/meta_builder.h"
#include "video/thumbnailer.h"

bool namesSameFile(const Option& option) {
    struct stat source {}, output {};
    if (::stat(QVMX::wchar::wcs2mbs(option.source).c_str(), &source) != 0) return false;
    if (::stat(QVMX::wchar::wcs2mbs(option.output).c_str(), &output) != 0) return false;
    return source.st_dev == output.st_dev && source.st_ino == output.st_ino;
}

bool runJob(const Option& option) {
    if (namesSameFile(option)) {
        QVMX::Console::out(L"the output %ls is the source movie itself; nothing was written.\n",
                           option.output.c_str());
        return false;
    }

    unsigned int frames = 0;
    if (option.reencode) {
        const TrimResult trimmed = TavrelTranscoder::trim(option);
        frames = trimmed.frames;
        if (frames == 0) {
            QVMX::Console::out(L"%ls: %ls; nothing was written.\n", option.source.c_str(), trimmed.problem.c_str());
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
            QVMX::Console::out(L"readSpatialData failed.\n");
            return false;
        }
        if (!builder.updateMeta(option.output, nullptr, Utility::isSupporFullRangePixelFormat())) {
            QVMX::Console::out(L"updateMeta failed.\n");
            return false;
        }
    } else if (!builder.updateMeta(option.source, &option.output, true)) {
        QVMX::Console::out(L"updateMeta failed.\n");
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
