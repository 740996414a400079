// The XMP, AXIS and Spherical Video XML boxes: where their bytes go, what
// moves with them, and what an existing box does to a second append.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "mp4/container.h"
#include "mp4/uuid_box.h"
#include "tools/builders/box_builder.h"
#include "support/movie_file.h"
#include "support/movie_samples.h"

using namespace testsupport;
using namespace builders;

namespace {

Bytes id(const MP4::UserType& t) { return Bytes(t.begin(), t.end()); }

const Bytes kXmp = "<x:xmpmeta xmlns:x='adobe:ns:meta/'><rdf:RDF/></x:xmpmeta>";
const Bytes kXml = "<rdf:SphericalVideo>\n  <GSpherical:Spherical>true</GSpherical:Spherical>\n</rdf:SphericalVideo>";

const MovieShape kLayouts[] = {{.moovFirst = true}, {.moovFirst = true, .use64 = true},
                              {.moovFirst = false}, {.moovFirst = false, .use64 = true}};

std::string layoutName(const MovieShape& s) {
    return std::string(s.moovFirst ? "moov first" : "mdat first") + (s.use64 ? ", co64" : ", stco");
}

}  // namespace

TEST(AppendXmpAndAxis, EachGoesToTheEndOfTheFileOnce) {
    MovieFile m(buildMovie({}));
    EXPECT_TRUE(m.container.appendXMP(kXmp));
    EXPECT_TRUE(m.container.appendAxis("\x01\x02\x03"));
    const Bytes xmpBox = uuidBox(id(MP4::XMP::_UUID), kXmp);
    const Bytes axisBox = uuidBox(id(MP4::AXIS::_UUID), "\x01\x02\x03");
    EXPECT_EQ(m.bytes(), m.original + xmpBox + axisBox);

    ConsoleCapture console;
    EXPECT_TRUE(m.container.appendXMP("other"));
    EXPECT_TRUE(m.container.appendAxis("other"));
    EXPECT_EQ(console.text(), "MP4: XMP is existed.\nMP4: AXIS is existed.\n");
    EXPECT_EQ(m.bytes(), m.original + xmpBox + axisBox);
}

TEST(AppendXmpAndAxis, MediaDataRunningToTheEndOfTheFileIsClosedFirst) {
    // moov first, then an mdat whose size field says "to the end".
    const MovieShape shape{};
    Bytes movie = buildMovie(shape);
    const size_t mdatAt = movie.rfind("mdat") - 4;
    movie.replace(mdatAt, 4, be32(0));
    MovieFile m(movie);
    EXPECT_TRUE(m.container.appendXMP(kXmp));
    const Bytes b = m.bytes();
    EXPECT_EQ(b.substr(mdatAt, 4), be32(uint32_t(movie.size() - mdatAt)));
    ASSERT_EQ(m.container.root()->children.size(), 4u);
    EXPECT_EQ(m.container.root()->children.back()->name(), "uuid");
    EXPECT_EQ(allSamples(m.path), movieSamples(shape));
}

TEST(AppendXmpAndAxis, AFailedWriteCutsTheFileBackToItsOldLength) {
    MovieFile m(buildMovie({}));
    const Bytes big(64 * 1024, 'x');
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        ::signal(SIGXFSZ, SIG_IGN);
        const rlim_t limit = m.original.size() + 1000;
        const rlimit r{limit, limit};
        ::setrlimit(RLIMIT_FSIZE, &r);
        ConsoleCapture quiet;
        MP4::Container c;
        c.attach(m.wpath());
        ::_exit(c.appendXMP(big) ? 1 : 0);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_EQ(m.bytes(), m.original);
}

TEST(SphericalVideoXml, GoesIntoTheVideoTrackAndKeepsEverySample) {
    for (const auto& shape : kLayouts) {
        SCOPED_TRACE(layoutName(shape));
        MovieFile m(buildMovie(shape));
        const auto before = chunkOffsets(m.path);
        const uint64_t trakSize = m.container.videoTrack()->size;
        const uint64_t moovSize = m.container.moov()->size;
        EXPECT_TRUE(m.container.appendSphericalVideoXML(kXml));

        const Bytes boxBytes = uuidBox(id(MP4::SphericalXML::_UUID), kXml);
        auto& trak = static_cast<MP4::NestedBox&>(*m.container.videoTrack());
        EXPECT_EQ(trak.size, trakSize + boxBytes.size());
        EXPECT_EQ(m.container.moov()->size, moovSize + boxBytes.size());
        ASSERT_FALSE(trak.children.empty());
        const auto& last = *trak.children.back();
        EXPECT_EQ(m.bytes().substr(last.start, last.size), boxBytes);
        EXPECT_EQ(allSamples(m.path), movieSamples(shape));
        if (!shape.moovFirst) {
            EXPECT_EQ(chunkOffsets(m.path), before);
        }
        EXPECT_FALSE(m.temporaryLeft());
    }
}

TEST(SphericalVideoXml, ASecondTextReplacesTheFirst) {
    const MovieShape shape{};
    MovieFile m(buildMovie(shape));
    EXPECT_TRUE(m.container.appendSphericalVideoXML(kXml));
    const Bytes other = "<rdf:SphericalVideo>changed, and longer than before</rdf:SphericalVideo>";
    EXPECT_TRUE(m.container.appendSphericalVideoXML(other));
    const Bytes b = m.bytes();
    EXPECT_EQ(b.find(kXml), std::string::npos);
    EXPECT_NE(b.find(other), std::string::npos);
    EXPECT_EQ(b.find(id(MP4::SphericalXML::_UUID)), b.rfind(id(MP4::SphericalXML::_UUID)));
    EXPECT_EQ(allSamples(m.path), movieSamples(shape));
    MP4::BOX* found = nullptr;
    ByteArray bytes;
    EXPECT_TRUE(m.container.build_sphericalVideoXmlBOX(found, bytes, "x"));
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(found->parent, m.container.videoTrack());
    EXPECT_EQ(bytes.view(), uuidBox(id(MP4::SphericalXML::_UUID), "x"));
}
