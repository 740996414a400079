#include <cstdio>
#include <string>

#include "app/media_plugin.h"
#include "app/media_plugin_loader.h"
#include "meta/media_services.h"
#include "tools/media_plugin.h"

bool loadMediaPlugin() {
    mediaServices().describe = [](const std::wstring& movie, MovieDescription& out) {
        MediaPlugin* media = mediaPlugin();
        if (media != nullptr) return media->describe(movie, out);
        static bool told = false;
        if (!told) {
            std::fprintf(stderr, "tavrel-dump: no frame rate or size: %s: %s\n", mediaPluginPath().c_str(),
                         mediaPluginProblem().c_str());
        }
        told = true;
        return false;
    };
    return true;
}
