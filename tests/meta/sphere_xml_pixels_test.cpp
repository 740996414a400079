// A kept Spherical Video XML names the pixels of the frame it now describes.
#include <gtest/gtest.h>

#include "meta/sphere_xml_pixels.h"

TEST(SphereXmlPixels, EveryPixelFieldFollowsTheNewFrameAndNothingElseChanges) {
    const std::string xml =
        "<rdf:SphericalVideo>\n"
        "<GSpherical:StitchingSoftware>Pixels 1000</GSpherical:StitchingSoftware>\n"
        "<GSpherical:CroppedAreaLeftPixels>876</GSpherical:CroppedAreaLeftPixels>\n"
        "<GSpherical:CroppedAreaTopPixels>328</GSpherical:CroppedAreaTopPixels>\n"
        "<GSpherical:CroppedAreaImageWidthPixels>1072</GSpherical:CroppedAreaImageWidthPixels>\n"
        "<GSpherical:CroppedAreaImageHeightPixels>754</GSpherical:CroppedAreaImageHeightPixels>\n"
        "<GSpherical:FullPanoWidthPixels>2824</GSpherical:FullPanoWidthPixels>\n"
        "<GSpherical:FullPanoHeightPixels>1412</GSpherical:FullPanoHeightPixels>\n"
        "</rdf:SphericalVideo>";
    const std::string out = scaleSphereXmlPixels(xml, 0.25, 0.5);
    EXPECT_NE(out.find(">219</GSpherical:CroppedAreaLeftPixels>"), std::string::npos) << out;
    EXPECT_NE(out.find(">164</GSpherical:CroppedAreaTopPixels>"), std::string::npos);
    EXPECT_NE(out.find(">268</GSpherical:CroppedAreaImageWidthPixels>"), std::string::npos);
    EXPECT_NE(out.find(">377</GSpherical:CroppedAreaImageHeightPixels>"), std::string::npos);
    EXPECT_NE(out.find(">706</GSpherical:FullPanoWidthPixels>"), std::string::npos);
    EXPECT_NE(out.find(">706</GSpherical:FullPanoHeightPixels>"), std::string::npos);
    EXPECT_NE(out.find("Pixels 1000</GSpherical:StitchingSoftware>"), std::string::npos);

    // Unchanged when the factors make no sense or a value is not a number.
    EXPECT_EQ(scaleSphereXmlPixels(xml, 0, 1), xml);
    const std::string odd = "<a:FullPanoWidthPixels>wide</a:FullPanoWidthPixels>";
    EXPECT_EQ(scaleSphereXmlPixels(odd, 2, 2), odd);
    EXPECT_EQ(scaleSphereXmlPixels("<a:FullPanoWidthPixels>12", 2, 2), "<a:FullPanoWidthPixels>12");
}
