// The slide show on real image files: folder drops, the interval rules, advancing with the
// frame clock, row picks, delete keys, albums from the Pictures folder and the archive.
#include "render/LVContext.h"
#include "sources/slideshow/LVImageLoader.h"
#include "sources/slideshow/SlideShow.h"
#include "tests/support/LVTestSupport.h"

#include <QDir>
#include <QFileInfo>
#include <QGuiApplication>
#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>

#include <gtest/gtest.h>

namespace {

class SlideShowTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        lvEnsureApplication<QGuiApplication>();
        LVRegisterSlideShowKinds();
        QString error;
        context = LVContext::create(QSize(64, 48), &error);
        ASSERT_TRUE(context) << error.toStdString();
        ASSERT_TRUE(folder.isValid());
    }

    QString image(const QString& relative, QColor colour = Qt::red, QSize size = QSize(32, 24))
    {
        const QString path = folder.filePath(relative);
        QDir().mkpath(QFileInfo(path).path());
        QImage picture(size, QImage::Format_RGB32);
        picture.fill(colour);
        EXPECT_TRUE(picture.save(path, "PNG")) << path.toStdString();
        return path;
    }

    std::unique_ptr<SlideShow> makeShow()
    {
        auto show = std::make_unique<SlideShow>();
        show->initWithContext(context.get());
        return show;
    }

    static QStringList names(const SlideShow& show)
    {
        QStringList list;
        for (const auto& entry : show.files()) list << entry.name;
        return list;
    }

    // One frame at time t, then the decoded picture on screen.
    QRgb frameAt(SlideShow& show, double t)
    {
        context->setFrameTime(t);
        context->reset(false);
        show.doit();
        show.waitForImages();
        context->reset(false);
        show.doit();
        std::vector<uint8_t> argb(64 * 48 * 4);
        context->fetchOpenGLPixels(argb.data(), 64 * 4);
        const size_t at = (24 * 64 + 32) * 4;
        return qRgb(argb[at + 1], argb[at + 2], argb[at + 3]);
    }

    QTemporaryDir folder;
    std::unique_ptr<LVContext> context;
};

TEST_F(SlideShowTest, FolderDropsWalkEverythingAndRepeatDeeperFiles)
{
    image("F/a.png");
    image("F/.hidden.png");
    image("F/sub/b.png");
    image("F/sub/.c.png");
    image("F/sub/deeper/d.png");
    image("lone.png");
    const struct {
        const char* what;
        bool autoClear;
        QStringList before;
        QStringList drop;
        QStringList expected;
    } cases[] = {
        {"one file", false, {}, {"lone.png"}, {"lone.png"}},
        // Sub-folders are dropped again while the walk also descends: each level down doubles.
        {"folder", false, {}, {"F"}, {"a.png", "b.png", "d.png", "d.png", ".c.png", "b.png", "d.png", "d.png"}},
        {"adds to the list", false, {"lone.png"}, {"lone.png"}, {"lone.png", "lone.png"}},
        {"auto-clear replaces it", true, {"lone.png"}, {"F/sub/deeper"}, {"d.png"}},
    };
    for (const auto& c : cases) {
        auto show = makeShow();
        for (const QString& path : c.before) show->addFileDrop(folder.filePath(path));
        show->setAutoClear(c.autoClear);
        QStringList paths;
        for (const QString& path : c.drop) paths << folder.filePath(path);
        EXPECT_TRUE(show->dropFiles(paths));
        EXPECT_EQ(names(*show), c.expected) << c.what;
    }
    EXPECT_FALSE(makeShow()->dropFiles({})) << "no file names, no drop";
}

TEST_F(SlideShowTest, IntervalIsAtLeastATenthAndShiftsTheDueTimeByTheOldWholeSeconds)
{
    const struct {
        double from, to;
        double interval;
        double due; // from a due time of 10
    } cases[] = {{4.0, 0.05, 0.1, 6.1}, {2.5, 3.0, 3.0, 11.0}, {4.0, 10.0, 10.0, 16.0}, {0.5, 1.0, 1.0, 11.0}};
    for (const auto& c : cases) {
        auto show = makeShow();
        show->addFile(image("a.png"), "a.png");
        show->setInterval(c.from);
        // Shown at 6 with the first interval: due at 6 + from.
        frameAt(*show, 10.0 - c.from);
        ASSERT_DOUBLE_EQ(show->nextImageTime(), 10.0);
        show->setInterval(c.to);
        EXPECT_DOUBLE_EQ(show->interval(), c.interval) << c.from << " -> " << c.to;
        EXPECT_DOUBLE_EQ(show->nextImageTime(), c.due) << c.from << " -> " << c.to;
    }
}

TEST_F(SlideShowTest, AdvancesEveryIntervalWrapsAndShowsPickedRowsAtOnce)
{
    auto show = makeShow();
    show->addFile(image("r.png", Qt::red), "r");
    show->addFile(image("g.png", Qt::green), "g");
    show->addFile(image("b.png", Qt::blue), "b");
    const struct {
        double t;
        int row;
        QRgb colour;
    } steps[] = {{1.0, 0, qRgb(255, 0, 0)}, {3.0, 0, qRgb(255, 0, 0)}, {5.5, 1, qRgb(0, 255, 0)},
                 {9.6, 2, qRgb(0, 0, 255)}, {13.7, 0, qRgb(255, 0, 0)}};
    for (const auto& step : steps) {
        EXPECT_EQ(frameAt(*show, step.t), step.colour) << "at " << step.t;
        EXPECT_EQ(show->shownRow(), step.row) << "at " << step.t;
    }
    // Paused: no advance, but a picked row shows at once.
    show->setPaused(true);
    EXPECT_EQ(frameAt(*show, 30.0), qRgb(255, 0, 0));
    show->selectRow(2);
    EXPECT_EQ(frameAt(*show, 30.1), qRgb(0, 0, 255));
    EXPECT_EQ(show->shownRow(), 2);
}

TEST_F(SlideShowTest, DeleteKeysRemoveTheSelectedRowOnly)
{
    const struct {
        int character;
        int selected;
        QStringList left;
    } cases[] = {{127, 1, {"a", "c"}}, {63272, 0, {"b", "c"}}, {63294, 2, {"a", "b"}},
                 {127, -1, {"a", "b", "c"}}, {'x', 1, {"a", "b", "c"}}, {127, 7, {"a", "b", "c"}}};
    for (const auto& c : cases) {
        auto show = makeShow();
        for (const char* name : {"a", "b", "c"}) show->addFile(folder.filePath(name), name);
        show->deleteKeyPressed(c.character, c.selected);
        EXPECT_EQ(names(*show), c.left) << c.character << " on row " << c.selected;
    }
}

TEST_F(SlideShowTest, HugeAndBrokenImagesNeverStopTheShow)
{
    // Scaled while decoding: the picture that reaches the GPU is at most the video size.
    QImage huge(12000, 12000, QImage::Format_Grayscale8);
    huge.fill(200);
    const QString hugePath = folder.filePath("huge.jpg");
    ASSERT_TRUE(huge.save(hugePath, "JPEG"));
    huge = QImage();
    ASSERT_TRUE(lvWriteFiles(folder.path(), {{"broken.png", "not a picture"}}));

    auto show = makeShow();
    show->addFile(hugePath, "huge");
    show->addFile(folder.filePath("broken.png"), "broken");
    show->addFile(image("g.png", Qt::green), "g");
    frameAt(*show, 1.0);
    EXPECT_LE(show->shownImage().width(), LVGetWidth());
    EXPECT_LE(show->shownImage().height(), LVGetHeight());
    EXPECT_FALSE(show->shownImage().isNull());
    EXPECT_EQ(frameAt(*show, 5.1), qRgb(0, 0, 0)) << "an unreadable file shows nothing";
    EXPECT_EQ(frameAt(*show, 9.2), qRgb(0, 255, 0)) << "and the show goes on";
}

TEST_F(SlideShowTest, AlbumsAreThePicturesSubFolders)
{
    const QString pictures = folder.filePath("Pictures");
    image("Pictures/Holiday/2.png");
    image("Pictures/Holiday/1.png");
    image("Pictures/Holiday/notes.txt");
    image("Pictures/Studio/s.png");
    const QByteArray dirs = QStringLiteral("XDG_PICTURES_DIR=\"%1\"\n").arg(pictures).toUtf8();
    ASSERT_TRUE(lvWriteFiles(folder.filePath("config"), {{"user-dirs.dirs", dirs}}));
    const QByteArray oldConfig = qgetenv("XDG_CONFIG_HOME");
    qputenv("XDG_CONFIG_HOME", folder.filePath("config").toUtf8());

    auto show = makeShow();
    show->doIPhotoCheck(true);
    ASSERT_EQ(show->albums().size(), 2u);
    EXPECT_EQ(show->albums()[0].value("name").toString(), "Holiday");
    EXPECT_EQ(show->albums()[0].value("id").toString(), pictures + "/Holiday");
    show->setCurrentAlbum(0);
    EXPECT_EQ(names(*show), (QStringList{"1.png", "2.png"})) << "images only, in name order";

    // Saved by album: the album comes back; with a file list the album is ignored.
    const QByteArray byAlbum = [&] {
        auto saved = makeShow();
        saved->doIPhotoCheck(true);
        saved->setCurrentAlbum(1);
        saved->doClear();
        LVKeyedArchiver coder;
        saved->encodeWithCoder(coder);
        QJsonObject object = coder.object();
        object.remove("files");
        return QJsonDocument(object).toJson();
    }();
    const LVEffectRef restored = LVEffect::effectFromData(byAlbum, context.get());
    ASSERT_TRUE(restored);
    EXPECT_EQ(names(static_cast<SlideShow&>(*restored)), QStringList{"s.png"});
    EXPECT_EQ(static_cast<SlideShow&>(*restored).currentAlbum().value("name").toString(), "Studio");
    qputenv("XDG_CONFIG_HOME", oldConfig);
}

TEST_F(SlideShowTest, ArchiveRoundTripsAndReadsTheOlderDelay)
{
    const QString a = image("a.png");
    const struct {
        const char* what;
        QJsonObject archive;
        double interval;
        bool paused;
        QStringList files;
    } cases[] = {
        {"nothing", {}, 4.0, false, {}},
        {"older delay", {{"delay", 7}}, 7.0, false, {}},
        {"interval wins", {{"delay", 7}, {"interval", 2.5}}, 2.5, false, {}},
        {"too short", {{"interval", 0.01}}, 0.1, false, {}},
        {"paused as a number", {{"paused", 1}}, 4.0, true, {}},
        {"files beat the album", {{"files", QJsonArray{a}}, {"albumId", "/nowhere"}}, 4.0, false, {"a.png"}},
    };
    for (const auto& c : cases) {
        QJsonObject archive = c.archive;
        archive.insert("class", "SlideShow");
        const LVEffectRef effect = LVEffect::effectFromData(QJsonDocument(archive).toJson(), context.get());
        ASSERT_TRUE(effect) << c.what;
        auto& show = static_cast<SlideShow&>(*effect);
        EXPECT_DOUBLE_EQ(show.interval(), c.interval) << c.what;
        EXPECT_EQ(show.isPaused(), c.paused) << c.what;
        EXPECT_EQ(names(show), c.files) << c.what;
        // Written back: the same keys, paused as 0 or 1, the list always there.
        LVKeyedArchiver coder;
        show.encodeWithCoder(coder);
        EXPECT_EQ(coder.object().value("paused"), QJsonValue(c.paused ? 1 : 0)) << c.what;
        EXPECT_TRUE(coder.object().value("files").isArray()) << c.what;
        EXPECT_FALSE(coder.object().contains("delay")) << c.what;
        const LVEffectRef again = LVEffect::effectFromData(LVEffect::dataFromEffect(show), context.get());
        EXPECT_EQ(LVEffect::dataFromEffect(*again), LVEffect::dataFromEffect(show)) << c.what;
    }
}

TEST(LVImageLoader, DecodesOffTheCallersThreadAndScalesToFit)
{
    QTemporaryDir folder;
    QImage wide(400, 100, QImage::Format_RGB32);
    wide.fill(Qt::blue);
    const QString path = folder.filePath("wide.png");
    ASSERT_TRUE(wide.save(path));
    const struct {
        QSize fit;
        QSize expected;
    } cases[] = {{QSize(200, 200), QSize(200, 50)}, {QSize(800, 800), QSize(400, 100)}, {QSize(40, 100), QSize(40, 10)}};
    for (const auto& c : cases) {
        LVImageLoader loader(c.fit);
        QImage image;
        EXPECT_FALSE(loader.take(path, &image)) << "never asked for";
        loader.request(path);
        loader.waitIdle();
        ASSERT_TRUE(loader.take(path, &image));
        EXPECT_EQ(image.size(), c.expected) << c.fit.width() << "x" << c.fit.height();
    }
}

} // namespace
