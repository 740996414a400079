#pragma once

// Finds and loads the tavrel-media plug-in, relative to the running program:
// beside it (the build tree), in ../TAVREL_PLUGIN_FOLDER (an installed
// program: lib/<architecture>/tavrel, as the build sets it), or in
// ../app (the build tree's tools).
#include <string>

class MediaPlugin;

// The plug-in, loaded at the first call (from any thread) and kept for the
// life of the process; null when it cannot be used, the reason then in
// mediaPluginProblem().
MediaPlugin* mediaPlugin();
// Whether a plug-in file is there, without loading it.
bool mediaPluginPresent();
// The plug-in file found, or where it belongs when there is none.
std::string mediaPluginPath();
// Why the plug-in could not be used, in a user's words; empty while it
// could, or before it was asked for.
std::string mediaPluginProblem();
