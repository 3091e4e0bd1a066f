// Archives are written with their keys in the order each kind lists them, and read back the
// same whatever the order.
#include "tests/sources/flickr/LVFlickrTestService.h"

#include "core/LVKeyedArchive.h"
#include "sources/flickr/FlickrSource.h"
#include "sources/movie/MovieSource.h"
#include "sources/slideshow/SlideShow.h"
#include "tests/support/LVTestSupport.h"

#include <QGuiApplication>
#include <QJsonArray>

#include <gtest/gtest.h>

#include <functional>

namespace {

TEST(LVKeyedArchiverTest, KeysAreWrittenInTheOrderFirstEncoded)
{
    const struct {
        std::function<void(LVKeyedArchiver&)> encode;
        QByteArray bytes;
    } cases[] = {
        {[](LVKeyedArchiver&) {}, "{}"},
        {[](LVKeyedArchiver& a) {
             a.encodeInt("zeta", 1);
             a.encodeBool("alpha", true);
             a.encodeDouble("mid", 0.5);
         },
         R"({"zeta":1,"alpha":true,"mid":0.5})"},
        // Encoding a key again replaces its value where it stands.
        {[](LVKeyedArchiver& a) {
             a.encodeInt("b", 1);
             a.encodeInt("a", 2);
             a.encodeInt("b", 3);
         },
         R"({"b":3,"a":2})"},
        // Keys and strings are escaped like any JSON text; nested values stay whole.
        {[](LVKeyedArchiver& a) {
             a.encodeString("say \"hi\"", "line\nnext\\");
             a.encodeValue("list", QJsonArray{1, "two", QJsonObject{{"k", false}}});
             a.encodeData("blob", QByteArray("\x00\xff", 2));
         },
         R"({"say \"hi\"":"line\nnext\\","list":[1,"two",{"k":false}],"blob":"AP8="})"},
    };
    for (const auto& c : cases) {
        LVKeyedArchiver archiver;
        c.encode(archiver);
        EXPECT_EQ(archiver.finishEncoding(), c.bytes);
        // What is written reads back as what was encoded.
        LVKeyedUnarchiver reader(archiver.finishEncoding());
        ASSERT_TRUE(reader.isValid()) << reader.error().toStdString();
        EXPECT_EQ(reader.object(), archiver.object());
    }
}

// The photo-set tests' service brings private preferences and a context.
class LVArchiveKeyOrderTest : public ::testing::Test, protected LVFlickrTestService {
protected:
    void SetUp() override
    {
        lvEnsureApplication<QGuiApplication>();
        ASSERT_NO_FATAL_FAILURE(start());
    }
};

template <class Source>
std::shared_ptr<Source> fresh(LVContext* context)
{
    auto source = std::make_shared<Source>();
    source->initWithContext(context);
    return source;
}

TEST_F(LVArchiveKeyOrderTest, EachSourceWritesItsKeysInItsListedOrder)
{
    const QString folder = home.path();
    const struct {
        const char* kind;
        std::function<std::shared_ptr<LVEffect>(LVContext*)> make;
        QStringList keys;
    } cases[] = {
        {"Movie",
         [folder](LVContext* context) {
             auto movie = fresh<MovieSource>(context);
             movie->addMoviePathToPlayList(folder + "/missing.mp4");
             movie->setAtEndTimeLine("Closing");
             movie->setHotFolder(folder);
             return movie;
         },
         {"class", "enabled", "loopMode", "autoPlay", "autoStop", "mutedInPreview", "hideWhenStopped", "volume",
          "playlist", "atEndTimeOffset", "captionPosition", "timePosition", "timeDirection", "captionSize",
          "captionFont", "captionColor", "captionShadowColor", "atEndTimeLine", "hotFolder"}},
        {"Slide Show", fresh<SlideShow>, {"class", "enabled", "interval", "paused", "autoClear", "files"}},
        {"Flickr Set", fresh<FlickrSource>, {"class", "enabled", "delay", "paused", "set", "email"}},
    };
    for (const auto& c : cases) {
        const std::shared_ptr<LVEffect> effect = c.make(context.get());
        LVKeyedArchiver archiver;
        effect->encodeWithCoder(archiver);
        // The bytes follow keys(), as the archiver's own cases above show.
        EXPECT_EQ(archiver.keys(), c.keys) << c.kind << ": " << archiver.keys().join(", ").toStdString();
    }
}

} // namespace
