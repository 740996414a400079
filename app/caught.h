#pragma once

#include <functional>

// Runs a step of the program; whatever it throws ends it with one line on the
// console and false, never with an abort.
bool runCaught(const std::function<bool()>& step);
