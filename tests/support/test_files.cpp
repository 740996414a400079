#include "support/test_files.h"

#include <unistd.h>

#include <fstream>
#include <iterator>
#include <random>
#include <stdexcept>

#include "foundation/console.h"
#include "foundation/wchar.h"

namespace testsupport {

TempDir::TempDir() {
    std::random_device rd;
    for (int attempt = 0; attempt < 100; ++attempt) {
        auto candidate = std::filesystem::temp_directory_path() /
                         ("tavrel-test-" + std::to_string(::getpid()) + "-" + std::to_string(rd()));
        if (std::filesystem::create_directory(candidate)) {
            path_ = candidate;
            return;
        }
    }
    throw std::runtime_error("cannot create a temporary directory");
}

TempDir::~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

std::wstring TempDir::wfile(const std::string& name) const { return widen(file(name).string()); }

void writeFile(const std::filesystem::path& path, const std::string& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (!out) throw std::runtime_error("cannot write " + path.string());
}

std::string readFile(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

std::wstring widen(const std::string& text) { return QVMX::wchar::mbs2wcs(text.c_str()); }

ConsoleCapture::ConsoleCapture() : previous_(QVMX::Console::stream()), file_(std::tmpfile()) {
    if (file_ == nullptr) throw std::runtime_error("tmpfile failed");
    QVMX::Console::setStream(file_);
    previousNotices_ = QVMX::Notices::install(QVMX::Notices::toConsole());
}

ConsoleCapture::~ConsoleCapture() {
    QVMX::Notices::install(std::move(previousNotices_));
    QVMX::Console::setStream(previous_ == stdout ? nullptr : previous_);
    std::fclose(file_);
}

std::string ConsoleCapture::text() const {
    std::fflush(file_);
    const long end = std::ftell(file_);
    std::string out(static_cast<size_t>(end > 0 ? end : 0), '\0');
    // Read through a second descriptor so the capture stream keeps its
    // orientation and position.
    if (!out.empty()) {
        const ssize_t n = ::pread(fileno(file_), out.data(), out.size(), 0);
        out.resize(n > 0 ? static_cast<size_t>(n) : 0);
    }
    return out;
}

}  // namespace testsupport
