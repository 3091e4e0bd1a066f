// The photo set's inspector against a local server answering as the service documents: the
// table lists the set's photos in order, follows the show without counting as a pick, and a
// picked row is fetched at once.
#include "gui/main/LVSettingsPanel.h"
#include "gui/sources/LVFlickrPhotoModel.h"
#include "gui/sources/LVPlaylistModel.h"
#include "core/LVDefaults.h"
#include "render/LVContext.h"
#include "sources/flickr/FlickrSource.h"
#include "LVTestHttpServer.h"
#include "tests/support/LVTestSupport.h"

#include <QApplication>
#include <QBuffer>
#include <QEventLoop>
#include <QImage>
#include <QTableView>
#include <QTemporaryDir>
#include <QTimer>

#include <gtest/gtest.h>

#include <functional>

namespace {

const QByteArray kPhotos = R"(<?xml version="1.0" encoding="utf-8" ?>
<rsp stat="ok">
  <photoset id="4" primary="2483" page="1" perpage="500" pages="1" total="3">
    <photo id="2484" secret="123456" server="1" farm="1" title="my photo" isprimary="0" />
    <photo id="2483" secret="654321" server="1" farm="1" title="flickr rocks" isprimary="1" />
    <photo id="2485" secret="abcdef" server="1" farm="1" title="" isprimary="0" />
  </photoset>
</rsp>)";

const QByteArray kEmptySet = R"(<?xml version="1.0" encoding="utf-8" ?>
<rsp stat="ok"><photoset id="5" page="1" perpage="500" pages="1" total="0"></photoset></rsp>)";

QByteArray jpeg(QColor colour)
{
    QImage image(40, 30, QImage::Format_RGB32);
    image.fill(colour);
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "JPEG", 100);
    return bytes;
}

// Serves the main thread's events (the table's own refresh among them) until done() or ten
// seconds have passed.
bool waitFor(const std::function<bool()>& done)
{
    QEventLoop loop;
    QTimer check;
    QObject::connect(&check, &QTimer::timeout, &loop, [&] {
        if (done()) loop.quit();
    });
    QTimer::singleShot(10000, &loop, &QEventLoop::quit);
    check.start(5);
    if (!done()) loop.exec();
    return done();
}

class LVFlickrInspectorTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        lvEnsureApplication<QApplication>();
        LVRegisterSourceInspectors();
        server = std::make_unique<LVTestHttpServer>();
        ASSERT_TRUE(home.isValid());
        defaults = std::make_unique<LVDefaults>(home.filePath("prefs.json"));
        LVDefaults::setStandardUserDefaults(defaults.get());
        defaults->setValue("flickrRESTAddress", server->address());
        defaults->setValue("flickrPhotoAddress", server->address() + "/farm%1");
        server->answer("flickr.photosets.getPhotos", {200, kPhotos});
        server->answer("/farm1/1/2484_123456.jpg", {200, jpeg(Qt::red), "image/jpeg"});
        server->answer("/farm1/1/2483_654321.jpg", {200, jpeg(Qt::blue), "image/jpeg"});
        server->answer("/farm1/1/2485_abcdef.jpg", {200, jpeg(Qt::green), "image/jpeg"});
        QString error;
        context = LVContext::create(QSize(40, 30), &error);
        ASSERT_TRUE(context) << error.toStdString();
        source = std::make_shared<FlickrSource>();
        source->initWithContext(context.get());
        panel = std::make_unique<LVSettingsPanel>();
        panel->setEffect(source);
        table = panel->findChild<QTableView*>("photosTable");
        ASSERT_TRUE(table);
    }
    void TearDown() override
    {
        panel.reset();
        if (source) source->waitForFetches();
        source.reset();
        LVDefaults::setStandardUserDefaults(nullptr);
    }

    QStringList rows() const
    {
        QStringList list;
        const QAbstractItemModel* model = table->model();
        for (int row = 0; row < model->rowCount(); ++row) {
            QStringList cells;
            for (int column = 0; column < model->columnCount(); ++column)
                cells << model->data(model->index(row, column)).toString();
            list << cells.join('|');
        }
        return list;
    }

    int selectedTableRow() const
    {
        const QModelIndexList selected = table->selectionModel()->selectedRows();
        return selected.size() == 1 ? selected.front().row() : -1;
    }

    // Runs frames until the photo number row arrives and shows.
    bool showUntilRow(int row, double& t)
    {
        return waitFor([&] {
            t += 0.5;
            context->setFrameTime(t);
            context->reset(false);
            source->doit();
            return source->selectedRow() == row && source->nextImageTime() > t;
        });
    }

    std::unique_ptr<LVTestHttpServer> server;
    QTemporaryDir home;
    std::unique_ptr<LVDefaults> defaults;
    std::unique_ptr<LVContext> context;
    std::shared_ptr<FlickrSource> source;
    std::unique_ptr<LVSettingsPanel> panel;
    QTableView* table = nullptr;
};

TEST_F(LVFlickrInspectorTest, TheTableListsTheSetsPhotosWithTheIntervalBesideIt)
{
    EXPECT_TRUE(panel->editorFor("Seconds per Photo")) << "the interval every photo stays";
    EXPECT_EQ(table->model()->rowCount(), 0);
    const QStringList headers{table->model()->headerData(0, Qt::Horizontal).toString(),
                              table->model()->headerData(1, Qt::Horizontal).toString(),
                              table->model()->headerData(2, Qt::Horizontal).toString()};
    EXPECT_EQ(headers, (QStringList{"#", "Title", "Photo"}));

    const struct {
        const char* set;
        QStringList rows;
        int selected;
    } cases[] = {
        {"4", {"1|my photo|2484", "2|flickr rocks|2483", "3||2485"}, 0},
        {"5", {}, -1}, // a set without photos empties the table
        {"http://www.flickr.com/photos/someone/sets/4/", {"1|my photo|2484", "2|flickr rocks|2483", "3||2485"}, 0},
    };
    server->answer("flickr.photosets.getPhotos", {200, kPhotos});
    for (const auto& c : cases) {
        server->answer("flickr.photosets.getPhotos", {200, QByteArray(c.set) == "5" ? kEmptySet : kPhotos});
        source->setSetURL(c.set);
        EXPECT_TRUE(waitFor([&] { return source->requestsInFlight() == 0 && rows() == c.rows; }))
            << c.set << ": " << rows().join(", ").toStdString();
        EXPECT_TRUE(waitFor([&] { return selectedTableRow() == c.selected; })) << c.set;
        EXPECT_EQ(table->model()->data(table->model()->index(0, 1), Qt::ToolTipRole).toString().isEmpty(), c.rows.isEmpty());
    }
}

TEST_F(LVFlickrInspectorTest, TheShowMovesTheSelectionAndAPickIsFetchedAtOnce)
{
    source->setSetURL("4");
    ASSERT_TRUE(waitFor([&] { return table->model()->rowCount() == 3; }));
    double t = 0;
    // The show's own advance: the table follows, and the photo keeps its time.
    for (int row : {0, 1, 2, 0}) {
        ASSERT_TRUE(showUntilRow(row, t)) << "row " << row;
        ASSERT_TRUE(waitFor([&] { return selectedTableRow() == row; })) << "row " << row;
        EXPECT_GT(source->nextImageTime(), 0) << "the table's following is no pick";
        t = source->nextImageTime();
    }
    // The user's pick: fetched on the next frame, shown when it arrives.
    table->selectionModel()->setCurrentIndex(table->model()->index(2, 0), QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
    EXPECT_EQ(source->nextImageNumber(), 2);
    EXPECT_LT(source->nextImageTime(), 0);
    ASSERT_TRUE(showUntilRow(2, t));
    EXPECT_EQ(selectedTableRow(), 2);
}

TEST_F(LVFlickrInspectorTest, TheTableOutlivesNoSourceAndTheSourceOutlivesNoTable)
{
    source->setSetURL("4");
    ASSERT_TRUE(waitFor([&] { return table->model()->rowCount() == 3; }));
    // The panel shows something else: the source goes on without its table.
    panel->setEffect(nullptr);
    double t = 0;
    EXPECT_TRUE(showUntilRow(0, t));
    // A table whose source went lists nothing and never reaches it.
    LVFlickrPhotoModel orphan(source);
    QTableView view;
    view.setModel(&orphan);
    source->waitForFetches();
    source.reset();
    orphan.sync(&view);
    EXPECT_EQ(orphan.rowCount(), 0);
    EXPECT_FALSE(orphan.data(orphan.index(0, 0), Qt::DisplayRole).isValid());
}

} // namespace
