// The command line on arbitrary arguments: the input's lines are the words.
// Words that would name a file are replaced by one missing path, so the
// probe never opens whatever a fuzzer happens to spell (a device, a pipe).
#include <cstdint>
#include <string>
#include <vector>

#include "app/option.h"
#include "foundation/wchar.h"
#include "fuzz/fuzz_file.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzzsupport::silenceConsole();
    const std::string input(reinterpret_cast<const char*>(data), size);
    std::vector<std::wstring> words{L"tavrel"};
    size_t from = 0;
    while (from <= input.size() && words.size() < 16) {
        size_t end = input.find('\n', from);
        if (end == std::string::npos) end = input.size();
        const std::string word = input.substr(from, end - from);
        words.push_back(word.empty() || word[0] != '-' ? L"/nonexistent/tavrel-fuzz.mp4"
                                                       : QVMX::wchar::mbs2wcs(word.c_str()));
        from = end + 1;
    }
    std::vector<wchar_t*> table;
    for (auto& w : words) table.push_back(w.data());
    Option option;
    option.parse(static_cast<int>(table.size()), table.data());
    option.usage();
    return 0;
}
