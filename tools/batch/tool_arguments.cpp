#include "tools/batch/tool_arguments.h"

namespace batch {

namespace {

// Walks arg, calling text(piece) for literal text and field(name) for each
// placeholder; the first problem ends the walk and is returned.
template <typename Text, typename Field>
std::string walk(const std::string& arg, Text text, Field field) {
    size_t i = 0;
    while (i < arg.size()) {
        const char c = arg[i];
        if ((c == '{' || c == '}') && i + 1 < arg.size() && arg[i + 1] == c) {
            text(std::string(1, c));
            i += 2;
        } else if (c == '}') {
            return "a lone '}' in the tool option '" + arg + "' (write }} for a brace)";
        } else if (c == '{') {
            const size_t close = arg.find('}', i);
            if (close == std::string::npos) return "an unclosed '{' in the tool option '" + arg + "'";
            const std::string name = arg.substr(i + 1, close - i - 1);
            if (!field(name)) {
                return "unknown placeholder {" + name + "} in the tool option '" + arg +
                       "' (there are {name}, {stem}, {dir}, {rel})";
            }
            i = close + 1;
        } else {
            text(std::string(1, c));
            ++i;
        }
    }
    return {};
}

const std::string* valueOf(const std::string& name, const PatternValues& values) {
    if (name == "name") return &values.name;
    if (name == "stem") return &values.stem;
    if (name == "dir") return &values.dir;
    if (name == "rel") return &values.rel;
    return nullptr;
}

}  // namespace

std::string patternProblem(const std::string& arg) {
    const PatternValues none;
    return walk(arg, [](const std::string&) {}, [&](const std::string& name) { return valueOf(name, none) != nullptr; });
}

std::string expandPattern(const std::string& arg, const PatternValues& values) {
    std::string out;
    walk(
        arg, [&](const std::string& piece) { out += piece; },
        [&](const std::string& name) {
            const std::string* value = valueOf(name, values);
            if (value != nullptr) out += *value;
            return value != nullptr;
        });
    return out;
}

std::vector<std::string> toolCommandLine(const std::string& tool, const std::vector<std::string>& options,
                                         const PatternValues& values, const std::string& source,
                                         const std::string& output) {
    std::vector<std::string> line{tool};
    for (const std::string& option : options) line.push_back(expandPattern(option, values));
    line.push_back(source);
    line.push_back(output);
    return line;
}

}  // namespace batch
