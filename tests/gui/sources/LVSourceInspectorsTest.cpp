// The sources' own settings pages: the playlist table and slide list (row drags, file drops,
// delete keys), and the photo set's table against a local server answering as the service
// documents (the set's photos in order, following the show, a picked row fetched at once).
#include "gui/main/LVSettingsPanel.h"
#include "gui/sources/LVFlickrPhotoModel.h"
#include "gui/sources/LVPlaylistModel.h"
#include "sources/flickr/FlickrSource.h"
#include "sources/movie/MovieSource.h"
#include "sources/slideshow/SlideShow.h"
#include "tests/sources/flickr/LVFlickrTestService.h"
#include "tests/support/LVTestSupport.h"

#include <QApplication>
#include <QListView>
#include <QMimeData>
#include <QTableView>
#include <QTest>
#include <QUrl>

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

// Serves the main thread's events (the table's own refresh among them) until done().
bool waitFor(const std::function<bool()>& done) { return QTest::qWaitFor(done, 10000); }

class LVFlickrInspectorTest : public ::testing::Test, protected LVFlickrTestService {
protected:
    void SetUp() override
    {
        lvEnsureApplication<QApplication>();
        LVRegisterSourceInspectors();
        ASSERT_NO_FATAL_FAILURE(start());
        server->answer("flickr.photosets.getPhotos", {200, kPhotos});
        servePhoto("/farm1/1/2484_123456.jpg", Qt::red);
        servePhoto("/farm1/1/2483_654321.jpg", Qt::blue);
        servePhoto("/farm1/1/2485_abcdef.jpg", Qt::green);
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

    std::shared_ptr<FlickrSource> source;
    std::unique_ptr<LVSettingsPanel> panel;
    QTableView* table = nullptr;
};

TEST_F(LVFlickrInspectorTest, TheTableListsTheSetsPhotosWithTheIntervalBesideIt)
{
    EXPECT_TRUE(panel->editorFor("Seconds per Photo")) << "the interval every photo stays";
    EXPECT_EQ(table->model()->rowCount(), 0);
    QStringList headers;
    for (int column = 0; column < 3; ++column) headers << table->model()->headerData(column, Qt::Horizontal).toString();
    EXPECT_EQ(headers, (QStringList{"#", "Title", "Photo"}));

    const struct { const char* set; QStringList rows; int selected; } cases[] = {
        {"4", {"1|my photo|2484", "2|flickr rocks|2483", "3||2485"}, 0},
        {"5", {}, -1}, // a set without photos empties the table
        {"http://www.flickr.com/photos/someone/sets/4/", {"1|my photo|2484", "2|flickr rocks|2483", "3||2485"}, 0},
    };
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

class LVPlaylistModelTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        lvEnsureApplication<QApplication>();
        QString error;
        context = LVContext::create(QSize(32, 24), &error);
        ASSERT_TRUE(context) << error.toStdString();
    }

    std::shared_ptr<MovieSource> playlist(const QStringList& names)
    {
        auto source = std::make_shared<MovieSource>();
        source->initWithContext(context.get());
        for (const QString& name : names) source->addMoviePathToPlayList("/movies/" + name);
        return source;
    }

    static QStringList captions(const LVPlaylistModel& model)
    {
        QStringList list;
        for (int row = 0; row < model.rowCount(); ++row) list << model.data(model.index(row, 0), Qt::DisplayRole).toString();
        return list;
    }

    std::unique_ptr<LVContext> context;
};

TEST_F(LVPlaylistModelTest, DraggedRowsLandWhereDropped)
{
    const struct { std::vector<int> dragged; int row; QStringList expected; } cases[] = {
        {{0}, 3, {"b", "c", "a", "d"}}, {{3}, 0, {"d", "a", "b", "c"}}, {{1, 2}, 4, {"a", "d", "b", "c"}},
        {{0, 2}, 1, {"a", "c", "b", "d"}}, {{2}, -1, {"a", "b", "d", "c"}},
    };
    for (const auto& c : cases) {
        auto source = playlist({"a", "b", "c", "d"});
        LVPlaylistModel model(source);
        QModelIndexList indexes;
        for (int row : c.dragged) indexes << model.index(row, 0) << model.index(row, 2);
        std::unique_ptr<QMimeData> data(model.mimeData(indexes));
        ASSERT_TRUE(data->hasFormat("LVRowReorderDataType"));
        EXPECT_TRUE(model.dropMimeData(data.get(), Qt::MoveAction, c.row, 0, {}));
        EXPECT_EQ(captions(model), c.expected) << "to row " << c.row;
    }
}

TEST_F(LVPlaylistModelTest, DroppedFilesJoinWhereTheyFallAndTheCurrentEntryFollowsItsRow)
{
    auto source = playlist({"a", "b"});
    source->selectMovieFromPlaylist(1);
    LVPlaylistModel model(source);
    QMimeData files;
    files.setUrls({QUrl::fromLocalFile("/drop/x.mp4"), QUrl::fromLocalFile("/drop/y.mp4"), QUrl("http://example.com/z.mp4")});
    EXPECT_TRUE(model.dropMimeData(&files, Qt::CopyAction, 1, 0, {}));
    EXPECT_EQ(captions(model), (QStringList{"a", "x.mp4", "y.mp4", "b"}));
    EXPECT_EQ(source->playlistFile(), 3) << "b keeps playing at its new row";
    QMimeData nothing;
    EXPECT_FALSE(model.dropMimeData(&nothing, Qt::CopyAction, 0, 0, {}));
    model.removeEntry(0);
    EXPECT_EQ(source->playlistFile(), 2);
    model.removeEntry(2);
    EXPECT_EQ(source->playlistFile(), MovieSource::kNoEntry) << "removing the playing row clears the movie";
}

TEST_F(LVPlaylistModelTest, SettingsPanelShowsTheListsAndDeleteKeysRemoveRows)
{
    LVRegisterSourceInspectors();
    auto show = std::make_shared<SlideShow>();
    show->initWithContext(context.get());
    for (const char* name : {"a", "b", "c"}) show->addFile(QStringLiteral("/p/%1.png").arg(name), name);
    LVSettingsPanel panel;
    panel.setEffect(show);
    auto* list = panel.findChild<QListView*>("slideList");
    ASSERT_TRUE(list);
    EXPECT_EQ(list->model()->rowCount(), 3);
    list->setCurrentIndex(list->model()->index(1, 0));
    EXPECT_EQ(show->nextImageNumber(), 1);
    EXPECT_LT(show->nextImageTime(), 0) << "a picked row shows at once";
    QTest::keyClick(list, Qt::Key_Delete);
    EXPECT_EQ(list->model()->rowCount(), 2);
    EXPECT_EQ(show->files()[1].name, "c");

    auto movie = playlist({"a", "b"});
    panel.setEffect(movie);
    auto* table = panel.findChild<QTableView*>("playlistTable");
    ASSERT_TRUE(table);
    EXPECT_EQ(table->model()->rowCount(), 2);
    table->setCurrentIndex(table->model()->index(0, 0));
    QTest::keyClick(table, Qt::Key_Backspace);
    EXPECT_EQ(movie->playlist().size(), 1u);
    EXPECT_TRUE(panel.findChild<QObject*>("inSlider"));
    panel.setEffect(nullptr);
}

} // namespace
