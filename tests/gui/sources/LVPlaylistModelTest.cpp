// The playlist table and the slide list: dragged rows land where dropped, dropped files join
// the list, delete keys remove the selected row, and the settings panel shows them.
#include "gui/main/LVSettingsPanel.h"
#include "gui/sources/LVPlaylistModel.h"
#include "render/LVContext.h"
#include "sources/movie/MovieSource.h"
#include "sources/slideshow/SlideShow.h"
#include "tests/support/LVTestSupport.h"

#include <QApplication>
#include <QListView>
#include <QMimeData>
#include <QTableView>
#include <QTest>
#include <QUrl>

#include <gtest/gtest.h>

namespace {

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
    const struct {
        std::vector<int> dragged;
        int row;
        QStringList expected;
    } cases[] = {
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
        QStringList expected;
        for (const QString& name : c.expected) expected << name;
        EXPECT_EQ(captions(model), expected) << "to row " << c.row;
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
