// Placeholders in the tool's options become each movie's names.
#include <gtest/gtest.h>

#include "tools/batch/tool_arguments.h"

namespace batch {
namespace {

const PatternValues kClip{"clip.MP4", "clip", "/out/card/DCIM", "card/DCIM/clip"};

TEST(ToolArguments, PlaceholdersAndBracesExpand) {
    EXPECT_EQ(expandPattern("-thumb:{dir}/{stem}.jpg", kClip), "-thumb:/out/card/DCIM/clip.jpg");
    EXPECT_EQ(expandPattern("-thumb:thumbs/{rel}-{name}.jpg", kClip), "-thumb:thumbs/card/DCIM/clip-clip.MP4.jpg");
    EXPECT_EQ(expandPattern("{{stem}}", kClip), "{stem}");
    EXPECT_EQ(expandPattern("-vw:256", kClip), "-vw:256");
    EXPECT_EQ(toolCommandLine("/bin/tavrel", {"-view:{stem}", "-to:2"}, kClip, "/in/clip.MP4", "/out/clip.MP4"),
              (std::vector<std::string>{"/bin/tavrel", "-view:clip", "-to:2", "/in/clip.MP4", "/out/clip.MP4"}));
}

TEST(ToolArguments, BadPatternsAreNamed) {
    EXPECT_EQ(patternProblem("-thumb:{dir}/{stem}.jpg"), "");
    EXPECT_EQ(patternProblem("{{}}"), "");
    EXPECT_NE(patternProblem("{nme}").find("unknown placeholder {nme}"), std::string::npos);
    EXPECT_NE(patternProblem("{}").find("unknown placeholder {}"), std::string::npos);
    EXPECT_NE(patternProblem("a{stem").find("unclosed"), std::string::npos);
    EXPECT_NE(patternProblem("a}b").find("lone '}'"), std::string::npos);
}

}  // namespace
}  // namespace batch
