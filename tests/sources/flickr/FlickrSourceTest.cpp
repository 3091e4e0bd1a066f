// The photo set source against a local server answering as the service's API documentation
// shows: the look-up sequence, set addresses, errors, and the photo show with its mailbox.
#include "LVFlickrTestService.h"

#include "sources/flickr/FlickrSource.h"
#include "sources/flickr/LVXmlElement.h"
#include "tests/support/LVWaitFor.h"
#include "tests/support/LVTestSupport.h"

#include <QGuiApplication>
#include <QJsonDocument>

#include <gtest/gtest.h>

namespace {

const QByteArray kUser = R"(<?xml version="1.0" encoding="utf-8" ?>
<rsp stat="ok">
  <user id="12037949632@N01" nsid="12037949632@N01">
    <username>Stewart</username>
  </user>
</rsp>)";

const QByteArray kSets = R"(<?xml version="1.0" encoding="utf-8" ?>
<rsp stat="ok">
  <photosets page="1" pages="1" perpage="30" total="2" cancreate="1">
    <photoset id="72157626216528324" primary="5504567858" secret="017804c585" server="5174" farm="6" photos="22" videos="0">
      <title>Avis Blanche</title>
      <description>My Grandma's Recipe File.</description>
    </photoset>
    <photoset id="72157624618609504" primary="4847770787" secret="6abd09a292" server="4153" farm="5" photos="43" videos="12">
      <title>Mah Kittehs</title>
      <description>Sixty and Niner.</description>
    </photoset>
  </photosets>
</rsp>)";

const QByteArray kPhotos = R"(<?xml version="1.0" encoding="utf-8" ?>
<rsp stat="ok">
  <photoset id="4" primary="2483" page="1" perpage="500" pages="1" total="2">
    <photo id="2484" secret="123456" server="1" farm="1" title="my photo" isprimary="0" />
    <photo id="2483" secret="654321" server="1" farm="1" title="flickr rocks" isprimary="1" />
  </photoset>
</rsp>)";

const QByteArray kUserNotFound = R"(<?xml version="1.0" encoding="utf-8" ?>
<rsp stat="fail">
  <err code="1" msg="User not found" />
</rsp>)";

const QByteArray kNoSets = R"(<?xml version="1.0" encoding="utf-8" ?>
<rsp stat="ok"><photosets page="1" pages="0" perpage="30" total="0" /></rsp>)";

class FlickrSourceTest : public ::testing::Test, protected LVFlickrTestService {
protected:
    void SetUp() override
    {
        lvEnsureApplication<QGuiApplication>();
        LVRegisterFlickrKinds();
        ASSERT_NO_FATAL_FAILURE(start());
        defaults->setValue("flickrAPIKey", "feedfacefeedfacefeedfacefeedface");
        server->answer("flickr.people.findByUsername", {200, kUser});
        server->answer("flickr.people.findByEmail", {200, kUser});
        server->answer("flickr.photosets.getList", {200, kSets});
        server->answer("flickr.photosets.getPhotos", {200, kPhotos});
        servePhoto("/farm1/1/2484_123456.jpg", Qt::red);
        servePhoto("/farm1/1/2483_654321.jpg", Qt::blue);
    }

    std::unique_ptr<FlickrSource> makeSource()
    {
        auto source = std::make_unique<FlickrSource>();
        source->initWithContext(context.get());
        return source;
    }

    static QStringList titles(const FlickrSource& source)
    {
        QStringList list;
        for (const QVariantMap& set : source.sets()) list << set.value("title").toString();
        return list;
    }

    QStringList restCalls() const
    {
        QStringList calls;
        for (const QString& request : server->requests())
            if (request.startsWith("/services/rest/")) calls << request.mid(int(strlen("/services/rest/?")));
        return calls;
    }

    char shownAt(FlickrSource& source, double t)
    {
        context->setFrameTime(t);
        context->reset(false);
        source.doit();
        std::vector<uint8_t> argb(40 * 30 * 4);
        context->fetchOpenGLPixels(argb.data(), 40 * 4);
        const uint8_t* p = argb.data() + (15 * 40 + 20) * 4;
        if (p[1] > 200 && p[2] < 60 && p[3] < 60) return 'r';
        if (p[1] < 60 && p[2] < 60 && p[3] > 200) return 'b';
        if (p[1] < 20 && p[2] < 20 && p[3] < 20) return 'k';
        return '?';
    }

    // Lists the photos of the documented set.
    std::unique_ptr<FlickrSource> sourceWithPhotos()
    {
        auto source = makeSource();
        source->setSetURL("4");
        EXPECT_TRUE(lvWaitFor([&] { return source->photos().size() == 2; }));
        return source;
    }
};

TEST_F(FlickrSourceTest, TypedTextIsLookedUpAndAChosenSetListsItsPhotosInOrder)
{
    const struct {
        const char* typed;
        const char* call;
    } cases[] = {
        {"stewart@example.com", "api_key=feedfacefeedfacefeedfacefeedface&method=flickr.people.findByEmail&find_email=stewart%40example.com"},
        {"Stewart", "api_key=feedfacefeedfacefeedfacefeedface&method=flickr.people.findByUsername&username=Stewart"},
        {"Big Al & Co", "api_key=feedfacefeedfacefeedfacefeedface&method=flickr.people.findByUsername&username=Big%20Al%20%26%20Co"},
    };
    std::unique_ptr<FlickrSource> source;
    for (const auto& c : cases) {
        source = makeSource();
        const qsizetype before = restCalls().size();
        source->setEmail(c.typed);
        EXPECT_EQ(titles(*source), QStringList{"Searching"});
        ASSERT_TRUE(lvWaitFor([&] { return source->sets().size() == 3; })) << c.typed;
        EXPECT_EQ(restCalls().at(before), QLatin1String(c.call));
        EXPECT_EQ(restCalls().at(before + 1), "api_key=feedfacefeedfacefeedfacefeedface&method=flickr.photosets.getList&user_id=12037949632%40N01");
    }
    EXPECT_EQ(titles(*source), (QStringList{"Select a set", "Avis Blanche", "Mah Kittehs"}));
    source->setChanged(0);
    EXPECT_TRUE(source->setURL().isEmpty()) << "the message line is no set";
    source->setChanged(2);
    EXPECT_EQ(source->setURL(), "72157624618609504");
    ASSERT_TRUE(lvWaitFor([&] { return source->photos().size() == 2; }));
    EXPECT_EQ(source->photos()[0].eyeD, "2484");
    EXPECT_EQ(source->photos()[0].title, "my photo");
    EXPECT_EQ(source->photos()[1].url(), server->address() + "/farm1/1/2483_654321.jpg");
    EXPECT_EQ(source->selectedRow(), 0);
    EXPECT_EQ(source->requestsInFlight(), 0u);
}

TEST_F(FlickrSourceTest, PastedSetAddressesAskForTheSetNumber)
{
    const char* cases[] = {"http://www.flickr.com/photos/someone/sets/72157626216528324/",
                           "http://www.flickr.com/photos/someone/sets/72157626216528324",
                           "https://www.flickr.com/photos/someone/sets/72157626216528324/", "72157626216528324"};
    for (const char* typed : cases) {
        auto source = makeSource();
        source->setSetURL(typed);
        ASSERT_TRUE(lvWaitFor([&] { return source->photos().size() == 2; })) << typed;
        EXPECT_TRUE(restCalls().last().endsWith("method=flickr.photosets.getPhotos&photoset_id=72157626216528324")) << typed;
    }
}

TEST_F(FlickrSourceTest, BadAnswersAreReportedOnceAndTheSourceStaysUsable)
{
    const struct {
        const char* what;
        const char* method;
        LVTestHttpServer::Answer answer;
        const char* message; // the pop-up's line
        const char* note;    // part of the inspector's note
    } cases[] = {
        {"unknown user", "flickr.people.findByUsername", {200, kUserNotFound}, "Not found", "User not found"},
        {"not XML", "flickr.people.findByUsername", {200, "<rsp stat=\"ok\"><user nsid="}, "Not found", "not XML"},
        {"no sets", "flickr.photosets.getList", {200, kNoSets}, "No sets found", ""},
        {"server error", "flickr.people.findByUsername", {500, "broken"}, "Searching", "Error"},
    };
    for (const auto& c : cases) {
        auto source = makeSource();
        server->answer(c.method, c.answer);
        source->setEmail("Stewart");
        ASSERT_TRUE(lvWaitFor([&] { return source->requestsInFlight() == 0; })) << c.what;
        EXPECT_EQ(titles(*source), QStringList{c.message}) << c.what;
        EXPECT_TRUE(source->statusNote().contains(QLatin1String(c.note))) << c.what << ": " << source->statusNote().toStdString();
        // Fixed on the server, typed again: it works.
        server->answer("flickr.people.findByUsername", {200, kUser});
        server->answer("flickr.photosets.getList", {200, kSets});
        source->setEmail("Stewart again");
        ASSERT_TRUE(lvWaitFor([&] { return source->sets().size() == 3; })) << c.what;
        EXPECT_TRUE(source->statusNote().isEmpty()) << c.what;
    }
}

TEST_F(FlickrSourceTest, EachPhotoStaysItsDelayAfterItArrivesAndTheShowWraps)
{
    auto source = sourceWithPhotos();
    const struct {
        double t;
        bool fetchFirst; // a fetch is due at this frame: let it finish, then draw again
        char shown;
        double due;
    } steps[] = {
        {100.0, true, 'r', 104.0}, {103.0, false, 'r', 104.0}, {104.5, true, 'b', 108.5}, {108.6, true, 'r', 112.6},
    };
    for (const auto& step : steps) {
        if (step.fetchFirst) {
            context->setFrameTime(step.t - 0.01);
            source->doit();
            EXPECT_DOUBLE_EQ(source->nextImageTime(), step.t - 0.01 + FlickrSource::kRetrySeconds) << "retry if it never comes";
            source->waitForFetches();
        }
        EXPECT_EQ(shownAt(*source, step.t), step.shown) << "at " << step.t;
        EXPECT_DOUBLE_EQ(source->nextImageTime(), step.due) << "at " << step.t;
    }
    // A longer delay while a photo shows extends its time by the difference.
    source->setDelay(10);
    EXPECT_DOUBLE_EQ(source->nextImageTime(), 118.6);
    EXPECT_TRUE(source->statusNote().isEmpty());
}

TEST_F(FlickrSourceTest, APickedPhotoWinsOverAFetchStillRunning)
{
    servePhoto("/farm1/1/2484_123456.jpg", Qt::red, true);
    auto source = sourceWithPhotos();
    context->setFrameTime(1.0);
    source->doit(); // asks for the first photo, which the server holds
    source->tableViewSelectionDidChange(1);
    context->setFrameTime(1.1);
    source->doit(); // asks for the picked one
    ASSERT_TRUE(lvWaitFor([&] { return shownAt(*source, 1.2) == 'b'; }));
    server->release("/farm1/1/2484_123456.jpg");
    source->waitForFetches();
    EXPECT_EQ(shownAt(*source, 1.3), 'b') << "the late first photo is dropped";
    EXPECT_EQ(source->selectedRow(), 1);
}

TEST_F(FlickrSourceTest, AMissingPhotoKeepsTheCurrentOneAndIsSaidOnce)
{
    server->answer("/farm1/1/2483_654321.jpg", {404, "gone", "text/plain"});
    auto source = sourceWithPhotos();
    context->setFrameTime(10.0);
    source->doit();
    source->waitForFetches();
    EXPECT_EQ(shownAt(*source, 10.1), 'r');
    context->setFrameTime(14.2);
    source->doit();
    source->waitForFetches();
    EXPECT_EQ(shownAt(*source, 14.3), 'r') << "the current photo stays";
    EXPECT_DOUBLE_EQ(source->nextImageTime(), 14.2 + FlickrSource::kRetrySeconds);
    EXPECT_TRUE(source->statusNote().contains("2483_654321.jpg")) << source->statusNote().toStdString();
}

TEST_F(FlickrSourceTest, ALoadedSetupAsksTheServiceAgain)
{
    const QJsonObject archive{{"class", "FlickrSource"}, {"enabled", true}, {"delay", 7}, {"paused", 1},
                              {"email", "Stewart"}, {"set", "4"}};
    const LVEffectRef effect = LVEffect::effectFromData(QJsonDocument(archive).toJson(), context.get());
    ASSERT_TRUE(effect);
    auto& source = static_cast<FlickrSource&>(*effect);
    ASSERT_TRUE(lvWaitFor([&] { return source.photos().size() == 2 && source.sets().size() == 3; }));
    LVKeyedArchiver coder;
    source.encodeWithCoder(coder);
    // Read and written back: none of them is the default.
    for (const char* key : {"delay", "paused", "set", "email"}) EXPECT_EQ(coder.object().value(key), archive.value(key)) << key;
    EXPECT_FALSE(coder.object().contains("setChoice"));
}

TEST(LVXmlElement, ParsesWhatTheRepliesNeedAndRefusesTheRest)
{
    const struct {
        QByteArray xml;
        bool parses;
        int photos;
    } cases[] = {{kPhotos, true, 2}, {"<rsp/>", true, 0}, {"<rsp><photoset>", false, 0}, {"", false, 0},
                 {QByteArray(100, '<'), false, 0}, {"<rsp><a></b></rsp>", false, 0}};
    for (const auto& c : cases) {
        QString error;
        const auto root = LVXmlElement::parse(c.xml, &error);
        EXPECT_EQ(bool(root), c.parses) << c.xml.left(40).toStdString();
        if (!root) {
            EXPECT_FALSE(error.isEmpty());
            continue;
        }
        const LVXmlElement* set = root->firstElementForName("photoset");
        EXPECT_EQ(set ? int(set->elementsForName("photo").size()) : 0, c.photos);
    }
}

} // namespace
