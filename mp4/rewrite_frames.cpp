// The two rewrite frames: in place, and through a complete new file that
// replaces the old one only when every step has succeeded.
#include <sys/stat.h>
#include <unistd.h>

#include "foundation/console.h"
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

bool identifyPath(const std::wstring& path, FileId& id) {
    struct stat st {};
    if (::stat(QVMX::wchar::wcs2mbs(path).c_str(), &st) != 0) return false;
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
    QVMX::Console::out(L"Container::modifyContainer::%ls(%ls to %ls) failed.\n", name.c_str(),
                       from.c_str(), to.c_str());
}

}  // namespace

bool Container::open(const FileFn& fn) { return QVMX::FileIO::open(path_, fn); }

bool Container::open_a(const FileFn& fn) {
    if (!takeOutputPath(L"open_a")) return false;
    return QVMX::FileIO::open_a(path_, fn);
}

std::wstring Container::pendingOutput() {
    if (outputPath_.empty()) return {};
    FileId source, output;
    if (identifyPath(path_, source) && identifyPath(outputPath_, output) &&
        source.device == output.device && source.inode == output.inode) {
        outputPath_.clear();
    }
    return outputPath_;
}

bool Container::takeOutputPath(const std::wstring& name) {
    const std::wstring output = pendingOutput();
    if (output.empty()) return true;
    bool ok = false;
    bool created = false;
    FileId written;
    {
        BinFile source(path_, 'r');
        if (source.isOpen()) {
            BinFile destination(output, 'w');
            if (destination.isOpen() && identify(destination.descriptor(), written)) {
                created = true;
                const uint64_t length = source.length();
                ok = written.regular && copyBytes(source, destination, length) == length;
            }
        }
    }
    if (!ok) {
        printCopyFailure(name, path_, output);
        if (created) removeWritten(output, written);
        return false;
    }
    outputPath_.clear();
    attach(output);
    return true;
}

bool Container::modifyContainer(const std::wstring& name, const EditFn& fn) {
    if (!takeOutputPath(name)) return false;
    bool ok = false;
    {
        BinFile file(path_, 'a');
        if (file.isOpen()) ok = fn(file);
    }
    if (!ok) {
        QVMX::Console::out(L"Container::modifyContainer::%ls(%ls) failed.\n", name.c_str(),
                           path_.c_str());
    }
    attach(path_);
    return ok;
}

bool Container::modifyContainer(const std::wstring& name, const CopyFn& copyFn, const FixFn& fixA,
                                const FixFn& fixB) {
    const std::wstring output = pendingOutput();
    const std::wstring temporary = output.empty() ? path_ + L".tmp.mp4" : output;
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
                    if (output.empty()) keepMode(source, destination);
                    ok = copyFn(source, destination, position);
                }
            }
        }
    }
    if (ok) {
        // The first fix sees only the boxes whose headers come before the
        // new content; the second sees the whole new file.
        Container fixed;
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
        if (!output.empty()) {
            path_ = output;
            outputPath_.clear();
        } else {
            // One rename: at every moment either the old or the new file
            // has the name.
            ok = QVMX::FileIO::rename(temporary, path_);
        }
    }
    if (!ok) {
        printCopyFailure(name, path_, temporary);
        if (created) removeWritten(temporary, written);
    }
    attach(path_);
    return ok;
}

}  // namespace MP4
