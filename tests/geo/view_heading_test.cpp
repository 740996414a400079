// The view heading: reading spherical-video XML, overlaying the command
// line's values, and the XML written for the output.
#include <gtest/gtest.h>

#include <cmath>

#include "geo/view_heading.h"

namespace {

const std::string kOpening =
    "<rdf:SphericalVideo xmlns:GSpherical='http://ns.google.com/videos/1.0/spherical/'\n"
    "  xmlns:rdf='http://www.w3.org/1999/02/22-rdf-syntax-ns#'>\n"
    "  <GSpherical:Spherical>true</GSpherical:Spherical>\n"
    "  <GSpherical:Stitched>true</GSpherical:Stitched>\n"
    "  <GSpherical:ProjectionType>equirectangular</GSpherical:ProjectionType>\n";

TEST(ViewHeadingXml, FullAndEmptyRecords) {
    ViewHeading view;
    EXPECT_EQ(view.toString(), kOpening + "</rdf:SphericalVideo>");
    view.stitchingSoftware = "PANOX Stitcher";
    view.heading = 45.9f;
    view.pitch = -12.7f;
    view.horizontalFOV = 90;
    view.cameraDolly = 0.5f;
    view.timestamp = 1515542400;
    EXPECT_EQ(view.toString(),
              kOpening + "  <GSpherical:StitchingSoftware>PANOX Stitcher</GSpherical:StitchingSoftware>\n"
                         "  <GSpherical:SourceCount>1</GSpherical:SourceCount>\n"
                         "  <GSpherical:Timestamp>1515542400</GSpherical:Timestamp>\n"
                         "  <GSpherical:InitialViewHeadingDegrees>45</GSpherical:InitialViewHeadingDegrees>\n"
                         "  <GSpherical:InitialViewPitchDegrees>-12</GSpherical:InitialViewPitchDegrees>\n"
                         "  <GSpherical:InitialHorizontalFOVDegrees>90</GSpherical:InitialHorizontalFOVDegrees>\n"
                         "  <GSpherical:InitialCameraDolly>0.500000</GSpherical:InitialCameraDolly>\n"
                         "</rdf:SphericalVideo>");
    // Out-of-range degrees are clamped, not undefined.
    view.heading = 1e20f;
    EXPECT_NE(view.toString().find(">2147483647</GSpherical:InitialViewHeadingDegrees>"), std::string::npos);
}

TEST(ViewHeadingRead, ReadsWhatItWritesAndForgetsWhatIsMissing) {
    ViewHeading source;
    source.stitchingSoftware = "S";
    source.heading = 90;
    source.pitch = -30;
    source.horizontalFOV = 75;
    source.cameraDolly = -1.25f;
    source.timestamp = 18446744073709551615ull;
    ViewHeading read;
    read.attach(source.toString());
    EXPECT_EQ(read.stitchingSoftware, "S");
    EXPECT_EQ(read.heading, 90);
    EXPECT_EQ(read.pitch, -30);
    EXPECT_EQ(read.horizontalFOV, 75);
    EXPECT_EQ(read.cameraDolly, -1.25f);
    EXPECT_EQ(read.timestamp, 18446744073709551615ull);

    read.attach(std::string("<rdf:SphericalVideo><GSpherical:Spherical>true</GSpherical:Spherical>"));
    EXPECT_TRUE(std::isnan(read.heading) && std::isnan(read.pitch) && std::isnan(read.horizontalFOV) &&
                std::isnan(read.cameraDolly));
    EXPECT_EQ(read.timestamp, 0u);
    EXPECT_EQ(read.stitchingSoftware, "");
}

TEST(ViewHeadingRead, IndentationUnclosedAndEmptyElements) {
    ViewHeading view;
    view.attach(std::string(" <GSpherical:InitialViewHeadingDegrees>90</GSpherical:InitialViewHeadingDegrees>\n"
                            "   <GSpherical:InitialHorizontalFOVDegrees>80</GSpherical:InitialHorizontalFOVDegrees>\n"
                            "  <GSpherical:InitialViewPitchDegrees>12.9</GSpherical:InitialViewPitchDegrees>\n"
                            "  <GSpherical:InitialCameraDolly>2.5"));
    EXPECT_TRUE(std::isnan(view.heading));  // one space: not the key
    EXPECT_EQ(view.horizontalFOV, 80);      // three spaces hold the two-space key
    EXPECT_EQ(view.pitch, 12);              // an integer stops at the point
    EXPECT_EQ(view.cameraDolly, 2.5f);      // no closing tag, the number is there
    view.attach(std::string("  <GSpherical:InitialViewHeadingDegrees>"));
    EXPECT_TRUE(std::isnan(view.heading));
    view.attach(std::string("  <GSpherical:Timestamp>soon"));
    EXPECT_EQ(view.timestamp, 0u);
    // The stitching software needs its closing tag.
    for (const char* xml : {"<GSpherical:StitchingSoftware>PANOX", "GSpherical:StitchingSoftwareGSpherical:StitchingSoftware"}) {
        view.attach(std::string(xml));
        EXPECT_EQ(view.stitchingSoftware, "") << xml;
    }
}

TEST(ViewHeadingOverlay, OnlyPresentValuesOfTheOtherRecordWin) {
    ViewHeading source;
    source.stitchingSoftware = "cam";
    source.heading = 90;
    source.pitch = 5;
    source.cameraDolly = 0.25f;
    source.timestamp = 77;
    ViewHeading option;
    option.heading = 180;
    source.attach(option);
    EXPECT_EQ(source.heading, 180);
    EXPECT_EQ(source.pitch, 5);
    EXPECT_EQ(source.cameraDolly, 0.25f);
    EXPECT_EQ(source.timestamp, 77u);
    EXPECT_EQ(source.stitchingSoftware, "cam");
}

}  // namespace
