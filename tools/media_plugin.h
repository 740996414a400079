#pragma once

// The summaries' decoded description of a movie, for the sizes a movie does
// not declare: installs into the media services a description that loads
// the media plug-in (app/media_plugin.h) when it is first asked. Always true.
bool loadMediaPlugin();
