// The one rewrite frame: a complete new file, written into the commit's
// target, or replacing the old one only when every step has succeeded.
#include <sys/stat.h>
#include <unistd.h>

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

}  // namespace

bool Container::open(const FileFn& fn) { return QVMX::FileIO::open(path_, fn); }

bool Container::modifyContainer(const std::wstring& name, const CopyFn& copyFn, const FixFn& fixA,
                                const FixFn& fixB) {
    // Into the commit's target when it has one, else into a new file that
    // replaces this one.
    const bool replace = target_.empty();
    const std::wstring temporary = replace ? path_ + L".tmp.mp4" : target_;
    bool ok = false;
    bool created = false;
    FileId written;
    uint64_t position = 0;
    {
        BinFile source(path_, 'r');
        if (source.isOpen()) {
            BinFile destination(temporary, 'w');
            if (destination.isOpen() && identify(destination.descriptor(), written)) {
                created = true;
                if (written.regular) {
                    if (replace) keepMode(source, destination);
                    ok = copyFn(source, destination, position);
                }
            }
        }
    }
    // The first fix sees only the boxes whose headers come before the new
    // content; the second sees the whole new file.
    Container fixed;
    if (ok) {
        ok = fixed.attach(temporary, position);
        if (ok) {
            BinFile file(temporary, 'a');
            ok = file.isOpen() && fixA(fixed, file);
        }
        if (ok) ok = fixed.attach(temporary, kAll);
        if (ok) {
            BinFile file(temporary, 'a');
            ok = file.isOpen() && fixB(fixed, file);
        }
    }
    if (ok) {
        if (!replace) {
            path_ = target_;
        } else {
            // One rename: at every moment either the old or the new file
            // has the name.
            ok = QVMX::FileIO::rename(temporary, path_);
        }
    }
    if (!ok) {
        printCopyFailure(name, path_, temporary);
        if (created && replace) removeWritten(temporary, written);
        attach(path_);
        return false;
    }
    // The second fix changed values, not boxes: its tree is the new file's.
    root_ = std::move(fixed.root_);
    mdat_ = fixed.mdat_;
    moov_ = fixed.moov_;
    videoTrack_ = fixed.videoTrack_;
    return true;
}

bool Container::copyInto(const std::wstring& target) {
    bool ok = false;
    {
        BinFile source(path_, 'r');
        BinFile destination(target, 'w');
        if (source.isOpen() && destination.isOpen()) {
            const uint64_t length = source.length();
            ok = copyBytes(source, destination, length) == length;
        }
    }
    if (!ok) {
        printCopyFailure(L"copy", path_, target);
        return false;
    }
    return attach(target);
}

}  // namespace MP4
