// The view heading: reading the spherical-video XML, overlaying the
// command line's values, and the XML written for the output.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>

#include "geo/view_heading.h"

namespace {

const std::string kOpening =
    "<rdf:SphericalVideo xmlns:GSpherical='http://ns.google.com/videos/1.0/spherical/'\n"
    "  xmlns:rdf='http://www.w3.org/1999/02/22-rdf-syntax-ns#'>\n"
    "  <GSpherical:Spherical>true</GSpherical:Spherical>\n"
    "  <GSpherical:Stitched>true</GSpherical:Stitched>\n"
    "  <GSpherical:ProjectionType>equirectangular</GSpherical:ProjectionType>\n";

TEST(ViewHeadingXml, AFullRecordIsWrittenInItsFixedOrder) {
    ViewHeading view;
    view.stitchingSoftware = "PANOX Stitcher";
    view.heading = 45.9f;
    view.pitch = -12.7f;
    view.horizontalFOV = 90;
    view.cameraDolly = 0.5f;
    view.timestamp = 1515542400;
    EXPECT_EQ(view.toString(),
              kOpening +
                  "  <GSpherical:StitchingSoftware>PANOX Stitcher</GSpherical:StitchingSoftware>\n"
                  "  <GSpherical:SourceCount>1</GSpherical:SourceCount>\n"
                  "  <GSpherical:Timestamp>1515542400</GSpherical:Timestamp>\n"
                  "  <GSpherical:InitialViewHeadingDegrees>45</GSpherical:InitialViewHeadingDegrees>\n"
                  "  <GSpherical:InitialViewPitchDegrees>-12</GSpherical:InitialViewPitchDegrees>\n"
                  "  <GSpherical:InitialHorizontalFOVDegrees>90</GSpherical:InitialHorizontalFOVDegrees>\n"
                  "  <GSpherical:InitialCameraDolly>0.500000</GSpherical:InitialCameraDolly>\n"
                  "</rdf:SphericalVideo>");
}

TEST(ViewHeadingXml, AnEmptyRecordWritesOnlyTheFixedProperties) {
    EXPECT_EQ(ViewHeading().toString(), kOpening + "</rdf:SphericalVideo>");
}

TEST(ViewHeadingXml, OutOfRangeDegreesAreClampedNotUndefined) {
    ViewHeading view;
    view.heading = 1e20f;
    view.pitch = -INFINITY;
    const std::string xml = view.toString();
    EXPECT_NE(xml.find(">2147483647</GSpherical:InitialViewHeadingDegrees>"), std::string::npos);
    EXPECT_NE(xml.find(">-2147483648</GSpherical:InitialViewPitchDegrees>"), std::string::npos);
}

TEST(ViewHeadingRead, ReadsWhatItWrites) {
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
}

TEST(ViewHeadingRead, MissingElementsAreAbsentAndReplaceEarlierValues) {
    ViewHeading view;
    view.heading = 10;
    view.timestamp = 5;
    view.stitchingSoftware = "old";
    view.attach(std::string("<rdf:SphericalVideo><GSpherical:Spherical>true</GSpherical:Spherical>"));
    EXPECT_TRUE(std::isnan(view.heading));
    EXPECT_TRUE(std::isnan(view.pitch));
    EXPECT_TRUE(std::isnan(view.horizontalFOV));
    EXPECT_TRUE(std::isnan(view.cameraDolly));
    EXPECT_EQ(view.timestamp, 0u);
    EXPECT_EQ(view.stitchingSoftware, "");
    EXPECT_EQ(view.toString(), kOpening + "</rdf:SphericalVideo>");
}

TEST(ViewHeadingRead, OnlyTheTwoSpaceIndentationIsFound) {
    ViewHeading view;
    view.attach(std::string(
        " <GSpherical:InitialViewHeadingDegrees>90</GSpherical:InitialViewHeadingDegrees>\n"
        "<GSpherical:InitialViewPitchDegrees>10</GSpherical:InitialViewPitchDegrees>\n"
        "   <GSpherical:InitialHorizontalFOVDegrees>80</GSpherical:InitialHorizontalFOVDegrees>\n"));
    EXPECT_TRUE(std::isnan(view.heading));
    EXPECT_TRUE(std::isnan(view.pitch));
    // Three spaces contain the two-space key.
    EXPECT_EQ(view.horizontalFOV, 80);
}

TEST(ViewHeadingRead, UnclosedOrEmptyElements) {
    ViewHeading view;
    // The number is there even though the closing tag is not.
    view.attach(std::string("  <GSpherical:InitialViewHeadingDegrees>270"));
    EXPECT_EQ(view.heading, 270);
    view.attach(std::string("  <GSpherical:InitialViewHeadingDegrees>"));
    EXPECT_TRUE(std::isnan(view.heading));
    view.attach(std::string("  <GSpherical:InitialViewHeadingDegrees>north</GSpherical:"
                            "InitialViewHeadingDegrees>\n  <GSpherical:Timestamp>soon"));
    EXPECT_TRUE(std::isnan(view.heading));
    EXPECT_EQ(view.timestamp, 0u);
    // An integer element stops at a decimal point.
    view.attach(std::string("  <GSpherical:InitialViewPitchDegrees>12.9</GSpherical:"
                            "InitialViewPitchDegrees>\n  <GSpherical:InitialCameraDolly>2.5"));
    EXPECT_EQ(view.pitch, 12);
    EXPECT_EQ(view.cameraDolly, 2.5f);
}

TEST(ViewHeadingRead, StitchingSoftwareNeedsItsClosingTag) {
    ViewHeading view;
    view.attach(std::string("<GSpherical:StitchingSoftware>PANOX</GSpherical:StitchingSoftware>"));
    EXPECT_EQ(view.stitchingSoftware, "PANOX");
    view.attach(std::string("<GSpherical:StitchingSoftware></GSpherical:StitchingSoftware>"));
    EXPECT_EQ(view.stitchingSoftware, "");
    for (const char* xml : {"<GSpherical:StitchingSoftware>PANOX", "<GSpherical:StitchingSoftware",
                            "GSpherical:StitchingSoftware", "GSpherical:StitchingSoftwareGSpherical:StitchingSoftware",
                            "<GSpherical:StitchingSoftware>GSpherical:StitchingSoftware"}) {
        view.attach(std::string(xml));
        EXPECT_EQ(view.stitchingSoftware, "") << xml;
    }
}

TEST(ViewHeadingRead, AnOverlongStitchingNameIsCutOnOutput) {
    ViewHeading view;
    view.stitchingSoftware = std::string(400, 'n');
    const std::string xml = view.toString();
    // 256 bytes hold the element group; the rest of the name is lost.
    EXPECT_EQ(xml.find("\n  <GSpherical:SourceCount>"), std::string::npos);
    EXPECT_EQ(xml.find("</rdf:SphericalVideo>"), kOpening.size() + 255);
}

TEST(ViewHeadingOverlay, OnlyPresentValuesOfTheOtherRecordWin) {
    ViewHeading source;
    source.attach(kOpening +
                  "  <GSpherical:StitchingSoftware>cam</GSpherical:StitchingSoftware>\n"
                  "  <GSpherical:Timestamp>77</GSpherical:Timestamp>\n"
                  "  <GSpherical:InitialViewHeadingDegrees>90</GSpherical:InitialViewHeadingDegrees>\n"
                  "  <GSpherical:InitialViewPitchDegrees>5</GSpherical:InitialViewPitchDegrees>\n"
                  "  <GSpherical:InitialHorizontalFOVDegrees>100</GSpherical:InitialHorizontalFOVDegrees>\n"
                  "  <GSpherical:InitialCameraDolly>0.250000</GSpherical:InitialCameraDolly>\n"
                  "</rdf:SphericalVideo>");
    ViewHeading option;
    option.heading = 180;
    source.attach(option);
    EXPECT_EQ(source.heading, 180);
    EXPECT_EQ(source.pitch, 5);
    EXPECT_EQ(source.horizontalFOV, 100);
    EXPECT_EQ(source.cameraDolly, 0.25f);
    EXPECT_EQ(source.timestamp, 77u);
    EXPECT_EQ(source.stitchingSoftware, "cam");

    option.pitch = 0;
    option.timestamp = 1;
    option.stitchingSoftware = "Tavrel";
    source.attach(option);
    EXPECT_EQ(source.pitch, 0);
    EXPECT_EQ(source.timestamp, 1u);
    EXPECT_EQ(source.stitchingSoftware, "Tavrel");
}

TEST(ViewHeadingValues, ReadAndWriteSingleElements) {
    std::string out;
    writeValue<float>(out, ViewHeading::kCameraDollyFormat, NAN);
    EXPECT_EQ(out, "");
    writeValue<int>(out, ViewHeading::kHeadingFormat, -0.9f);
    EXPECT_EQ(out, "  <GSpherical:InitialViewHeadingDegrees>0</GSpherical:InitialViewHeadingDegrees>\n");
    EXPECT_EQ(readValue<int>(out, ViewHeading::kHeadingFormat), 0);
    EXPECT_TRUE(std::isnan(readValue<int>(out, ViewHeading::kPitchFormat)));
    EXPECT_TRUE(std::isnan(readValue<float>("", ViewHeading::kCameraDollyFormat)));
}

}  // namespace
