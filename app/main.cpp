// tavrel [options] [source.mp4] [output.mp4]
#include <chrono>
#include <clocale>
#include <memory>
#include <vector>

#include "app/caught.h"
#include "app/media_plugin.h"
#include "app/media_plugin_loader.h"
#include "app/option.h"
#include "app/run_driver.h"
#include "app/version.h"
#include "foundation/console.h"
#include "foundation/notices.h"
#include "foundation/pending_output.h"
#include "foundation/utility.h"
#include "foundation/wchar.h"

namespace {

// The media services answer from the plug-in, loaded only when first asked:
// a run that neither decodes nor encodes never loads the media libraries.
void installMediaServices() {
    MediaServices& services = mediaServices();
    services.describe = [](const std::wstring& movie, MovieDescription& out) {
        MediaPlugin* media = mediaPlugin();
        return media != nullptr && media->describe(movie, out);
    };
    services.thumbnail = [](const std::wstring& movie, ByteArray& out, int width, size_t target) {
        MediaPlugin* media = mediaPlugin();
        return media != nullptr && media->thumbnailBytes(movie, out, width, target, std::nullopt);
    };
}

int run(int argc, char** argv) {
    // The first arguments as wide strings, each in its own zero-filled array.
    std::vector<std::wstring> texts(tavrel::kMaxArguments);
    wchar_t* table[tavrel::kMaxArguments] = {};
    for (int i = 0; i < argc && i < tavrel::kMaxArguments; ++i) {
        texts[i] = QVMX::wchar::mbs2wcs(argv[i] != nullptr ? argv[i] : "");
        table[i] = texts[i].data();
    }

    int exitCode = 0;
    if (Utility::kill(argc, const_cast<const wchar_t**>(table), exitCode)) return exitCode;

    const auto started = std::chrono::system_clock::now();
    Option option;
    const bool ok = runCaught([&] { return option.parse(argc, table); });
    if (!ok || !runCaught([&] { return runJob(option); })) {
        option.usage();
        return 1;
    }
    const auto elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::system_clock::now() - started);
    QVMX::Console::out(L"\n%0.4f [sec]\n", double(static_cast<float>(elapsed.count()) / 1000.0f));
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    std::setlocale(LC_ALL, "");
    QVMX::Notices::install(QVMX::Notices::toConsole());
    installMediaServices();
    QVMX::PendingOutput::installInterruptHandler();
    return run(argc, argv);
}
