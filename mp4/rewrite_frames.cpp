// The one rewrite frame: a complete new file, written into the commit's
// target, or replacing the old one only when every step has succeeded.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "foundation/notices.h"
#include "foundation/wchar.h"
#include "mp4/byte_copy.h"
#include "mp4/container.h"

namespace MP4 {

namespace {

struct FileId {
    dev_t device = 0;
    ino_t inode = 0;
    bool regular = false;
};

bool identify(int descriptor, FileId& id) {
    struct stat st {};
    if (::fstat(descriptor, &st) != 0) return false;
    id = {st.st_dev, st.st_ino, S_ISREG(st.st_mode)};
    return true;
}

// Deletes a file this process created, and nothing else: never a device or
// a file that has since taken the name.
void removeWritten(const std::wstring& path, const FileId& written) {
    if (!written.regular) return;
    const std::string native = QVMX::wchar::wcs2mbs(path);
    struct stat st {};
    if (::lstat(native.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) return;
    if (st.st_dev != written.device || st.st_ino != written.inode) return;
    ::unlink(native.c_str());
}

// A replacement keeps the permission bits of the file it replaces.
void keepMode(const QVMX::FileIO& from, const QVMX::FileIO& to) {
    struct stat st {};
    if (::fstat(from.descriptor(), &st) == 0) {
        [[maybe_unused]] const int ignored = ::fchmod(to.descriptor(), st.st_mode & 07777);
    }
}

void printCopyFailure(const std::wstring& name, const std::wstring& from, const std::wstring& to) {
    QVMX::Notices::post(L"Container::modifyContainer::%ls(%ls to %ls) failed.\n", name.c_str(),
                       from.c_str(), to.c_str());
}

// Why a copy from source into destination stopped: an error of either file,
// else a source shorter than the tree read from it, else an edit.
std::wstring copyCause(const QVMX::FileIO& source, const QVMX::FileIO& destination, uint64_t parsedLength) {
    if (destination.error() != 0) return QVMX::systemCause(destination.error());
    if (source.error() != 0) return QVMX::systemCause(source.error());
    if (source.length() < parsedLength) return L"the source ended before the copy did";
    return L"an edit does not fit the movie, or could not be made";
}

}  // namespace

bool Container::open(const FileFn& fn) { return QVMX::FileIO::open(path_, fn); }

QVMX::Status Container::modifyContainer(const std::wstring& name, const CopyFn& copyFn, const FixFn& fixA,
                                        const FixFn& fixB) {
    // Into the commit's target when it has one, else into a new file that
    // replaces this one.
    const bool replace = target_.empty();
    const std::wstring temporary = replace ? path_ + L".tmp.mp4" : target_;
    const uint64_t parsedLength = root_ ? root_->size : 0;
    std::wstring cause;
    bool created = false;
    FileId written;
    uint64_t position = 0;
    {
        BinFile source(path_, 'r');
        if (!source.isOpen()) {
            cause = QVMX::systemCause(source.error());
        } else {
            BinFile destination(temporary, 'w');
            if (!destination.isOpen()) {
                cause = QVMX::systemCause(destination.error());
            } else if (!identify(destination.descriptor(), written)) {
                cause = QVMX::systemCause(errno);
            } else {
                created = true;
                if (!written.regular) {
                    cause = L"the target is not a regular file";
                } else {
                    if (replace) keepMode(source, destination);
                    if (!copyFn(source, destination, position)) cause = copyCause(source, destination, parsedLength);
                }
            }
        }
    }
    // The first fix sees only the boxes whose headers come before the new
    // content; the second sees the whole new file.
    Container fixed;
    const auto fixUp = [&](uint64_t end, const FixFn& fix, const wchar_t* fixCause) {
        if (!cause.empty()) return;
        if (!fixed.attach(temporary, end)) {
            cause = L"the new file could not be read back";
            return;
        }
        BinFile file(temporary, 'a');
        if (!file.isOpen()) {
            cause = QVMX::systemCause(file.error());
        } else if (!fix(fixed, file)) {
            cause = file.error() != 0 ? QVMX::systemCause(file.error()) : fixCause;
        }
    };
    fixUp(position, fixA, L"a box holding an edit cannot take its new size");
    fixUp(kAll, fixB, L"a chunk offset table could not be mapped");
    if (cause.empty()) {
        if (!replace) {
            path_ = target_;
        } else if (!QVMX::FileIO::rename(temporary, path_)) {
            // One rename: at every moment either the old or the new file
            // has the name.
            cause = QVMX::systemCause(errno);
        }
    }
    if (!cause.empty()) {
        printCopyFailure(name, path_, temporary);
        if (created && replace) removeWritten(temporary, written);
        attach(path_);
        return QVMX::Failure{name, cause};
    }
    // The second fix changed values, not boxes: its tree is the new file's.
    root_ = std::move(fixed.root_);
    mdat_ = fixed.mdat_;
    moov_ = fixed.moov_;
    videoTrack_ = fixed.videoTrack_;
    return {};
}

QVMX::Status Container::copyInto(const std::wstring& target) {
    std::wstring cause;
    {
        BinFile source(path_, 'r');
        BinFile destination(target, 'w');
        if (!source.isOpen()) {
            cause = QVMX::systemCause(source.error());
        } else if (!destination.isOpen()) {
            cause = QVMX::systemCause(destination.error());
        } else {
            const uint64_t length = source.length();
            if (copyBytes(source, destination, length) != length) {
                cause = copyCause(source, destination, root_ ? root_->size : 0);
            }
        }
    }
    if (!cause.empty()) {
        printCopyFailure(L"copy", path_, target);
        return QVMX::Failure{L"copy", cause};
    }
    if (!attach(target)) return QVMX::Failure{L"copy", L"the copy could not be read back"};
    return {};
}

}  // namespace MP4
