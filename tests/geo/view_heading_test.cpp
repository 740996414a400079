// The view heading: the XML written for the output, reading it back (also
// from hostile text), and overlaying the command line's values.
#include <gtest/gtest.h>

#include <cmath>

#include "geo/view_heading.h"

namespace {

TEST(ViewHeading, WrittenRecordReadBackAndOverlaid) {
    ViewHeading view;
    const std::string empty = view.toString();
    EXPECT_TRUE(empty.ends_with("<GSpherical:ProjectionType>equirectangular</GSpherical:ProjectionType>\n"
                                "</rdf:SphericalVideo>"));
    view.stitchingSoftware = "PANOX Stitcher";
    view.heading = 45.9f;
    view.pitch = -12.7f;
    view.horizontalFOV = 90;
    view.cameraDolly = 0.5f;
    view.timestamp = 18446744073709551615ull;
    const std::string xml = view.toString();
    EXPECT_EQ(xml, empty.substr(0, empty.size() - 21) +
                       "  <GSpherical:StitchingSoftware>PANOX Stitcher</GSpherical:StitchingSoftware>\n"
                       "  <GSpherical:SourceCount>1</GSpherical:SourceCount>\n"
                       "  <GSpherical:Timestamp>18446744073709551615</GSpherical:Timestamp>\n"
                       "  <GSpherical:InitialViewHeadingDegrees>45</GSpherical:InitialViewHeadingDegrees>\n"
                       "  <GSpherical:InitialViewPitchDegrees>-12</GSpherical:InitialViewPitchDegrees>\n"
                       "  <GSpherical:InitialHorizontalFOVDegrees>90</GSpherical:InitialHorizontalFOVDegrees>\n"
                       "  <GSpherical:InitialCameraDolly>0.500000</GSpherical:InitialCameraDolly>\n"
                       "</rdf:SphericalVideo>");
    view.heading = 1e20f;  // out-of-range degrees are clamped, not undefined
    EXPECT_NE(view.toString().find(">2147483647</GSpherical:InitialViewHeadingDegrees>"), std::string::npos);

    ViewHeading read;
    read.attach(xml);
    EXPECT_EQ(read.stitchingSoftware, "PANOX Stitcher");
    EXPECT_EQ(read.pitch, -12);
    EXPECT_EQ(read.timestamp, 18446744073709551615ull);
    // Only the present values of the other record win.
    ViewHeading option;
    option.heading = 180;
    read.attach(option);
    EXPECT_EQ(read.heading, 180);
    EXPECT_EQ(read.pitch, -12);
    EXPECT_EQ(read.stitchingSoftware, "PANOX Stitcher");
    // A new text forgets what it lacks.
    read.attach(empty);
    EXPECT_TRUE(std::isnan(read.heading) && std::isnan(read.cameraDolly));
    EXPECT_EQ(read.timestamp, 0u);
    EXPECT_EQ(read.stitchingSoftware, "");
}

TEST(ViewHeading, IndentationUnclosedAndEmptyElements) {
    ViewHeading view;
    view.attach(std::string(" <GSpherical:InitialViewHeadingDegrees>90</GSpherical:InitialViewHeadingDegrees>\n"
                            "   <GSpherical:InitialHorizontalFOVDegrees>80</GSpherical:InitialHorizontalFOVDegrees>\n"
                            "  <GSpherical:InitialViewPitchDegrees>12.9</GSpherical:InitialViewPitchDegrees>\n"
                            "  <GSpherical:StitchingSoftware>PANOX\n"
                            "  <GSpherical:InitialCameraDolly>2.5"));
    EXPECT_TRUE(std::isnan(view.heading));  // one space: not the key
    EXPECT_EQ(view.horizontalFOV, 80);      // three spaces hold the two-space key
    EXPECT_EQ(view.pitch, 12);              // an integer stops at the point
    EXPECT_EQ(view.cameraDolly, 2.5f);      // no closing tag, the number is there
    EXPECT_EQ(view.stitchingSoftware, "");  // the text needs its closing tag
    view.attach(std::string("  <GSpherical:InitialViewHeadingDegrees>  <GSpherical:Timestamp>soon"));
    EXPECT_TRUE(std::isnan(view.heading));
    EXPECT_EQ(view.timestamp, 0u);
}

}  // namespace
