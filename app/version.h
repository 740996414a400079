#pragma once

// The tool's name and version as it reports them.
namespace tavrel {
inline constexpr const char* kVersion = "2.4.0.2018.01.10";
inline constexpr const char* kIdentity = "Tavrel.osx";
inline constexpr const wchar_t* kDefaultSource = L"./images/source.mp4";
inline constexpr const wchar_t* kDefaultOutput = L"./images/tavrel.mp4";
// Only this many arguments (the program name included) are read.
inline constexpr int kMaxArguments = 10;
}  // namespace tavrel
