// Chain edits: one source always first, clearing, merging, swapping, drops and keys.
#include "tests/app/LVControllerFixture.h"

#include "core/LVChainEdits.h"

#include <QImage>

TEST(LVReorderRowsTest, DraggedRowsLandTogetherAtTheDropRowInTheirOrder)
{
    struct Case {
        std::vector<int> dragged;
        int drop;
        const char* expected;
    };
    for (const Case& c : std::vector<Case>{
             {{1}, 4, "acdbe"},
             {{3}, 1, "adbce"},
             {{1, 3}, 5, "acebd"},
             {{3, 4}, 1, "adebc"},
             {{0, 4}, 2, "baecd"},
             {{1, 2}, 3, "abcde"},
             {{2}, 2, "abcde"},
             {{0, 2, 4}, 0, "acebd"},
             {{4, 1}, 9, "acdbe"},
             {{7}, 1, "abcde"},
         }) {
        std::vector<char> rows{'a', 'b', 'c', 'd', 'e'};
        LVReorderRows(rows, c.dragged, c.drop);
        EXPECT_EQ(std::string(rows.begin(), rows.end()), c.expected) << "drop at " << c.drop;
    }
}

TEST_F(LVControllerTest, OneSourceAlwaysFirst)
{
    auto red = make("RedSource", "red");
    auto blue = make("BlueSource", "blue");
    auto a = make("Marker", "A");
    app->addOneEffect(a);
    app->addOneEffect(red);
    EXPECT_EQ(chain(), "red,A");
    EXPECT_EQ(red->mode(), LVModeLive);
    EXPECT_EQ(a->mode(), LVModeLive);

    app->setSource(red);
    EXPECT_EQ(chain(), "red,A") << "same source: no change";
    EXPECT_EQ(red->mode(), LVModeLive);

    app->addOneEffect(blue);
    EXPECT_EQ(chain(), "blue,A");
    EXPECT_EQ(red->mode(), LVModeOff);
    EXPECT_EQ(app->source(), blue);

    app->removeEffect(a);
    EXPECT_EQ(a->mode(), LVModeOff);
    app->removeOneEffect(7);
    EXPECT_EQ(chain(), "blue");
}

TEST_F(LVControllerTest, ClearKeepsOrDropsTheSource)
{
    struct Case {
        bool withSource;
        bool includingSource;
        const char* left;
    };
    for (const Case& c : {Case{true, false, "src"}, Case{true, true, ""}, Case{false, false, ""}, Case{false, true, ""}}) {
        app->clearEffects(true);
        std::vector<LVEffectRef> removed;
        if (c.withSource) app->addOneEffect(make("RedSource", "src"));
        for (const char* name : {"A", "B"}) {
            removed.push_back(make("Marker", name));
            app->addOneEffect(removed.back());
        }
        app->clearEffects(c.includingSource);
        EXPECT_EQ(chain(), c.left);
        for (const auto& effect : removed) EXPECT_EQ(effect->mode(), LVModeOff);
    }
}

TEST_F(LVControllerTest, AddEffectsFromReplacesOrMerges)
{
    app->addOneEffect(make("RedSource", "src"));
    app->addOneEffect(make("Marker", "old"));

    app->addEffectsFrom({make("Marker", "new1"), nullptr, make("Marker", "new2")}, true, false);
    EXPECT_EQ(chain(), "src,old,new1,new2");

    app->addEffectsFrom({make("Marker", "only")}, false, false);
    EXPECT_EQ(chain(), "src,only") << "replacing keeps the source, as the Clear command does";

    app->addEffectsFrom({make("Marker", "x"), make("BlueSource", "blue")}, false, false);
    EXPECT_EQ(chain(), "blue,x") << "a setup's source replaces the current one";

    auto ignored = make("Marker", "ignored");
    ignored->setMode(LVModeLive);
    app->addEffectsFrom({ignored}, true, true);
    EXPECT_EQ(chain(), "blue,x");
    EXPECT_EQ(ignored->mode(), LVModeOff);
}

TEST_F(LVControllerTest, ReorderingNeverMovesTheSource)
{
    app->addOneEffect(make("RedSource", "S"));
    for (const char* name : {"A", "B", "C"}) app->addOneEffect(make("Marker", name));
    app->moveRows({3}, 1);
    EXPECT_EQ(chain(), "S,C,A,B");
    app->moveRows({2}, 0);
    EXPECT_EQ(chain(), "S,A,C,B") << "nothing goes above the source";
    app->moveRows({0, 2}, 4);
    EXPECT_EQ(chain(), "S,A,C,B") << "a drag with the source is refused";
    EXPECT_TRUE(app->acceptDrop({}, {1, 2}, 4));
    EXPECT_EQ(chain(), "S,B,A,C");
    EXPECT_FALSE(app->acceptDrop({}, {}, 1));
}

TEST_F(LVControllerTest, DroppedFilesMakeQuickEffects)
{
    // Movies and notes by their names alone; pictures real ones.
    ASSERT_TRUE(lvWriteFiles(dir.path(), {{"c.mp4", QByteArray(64, '\0')}, {"d.mkv", QByteArray(64, '\0')}, {"notes.txt", "hello\n"}}));
    QImage picture(4, 4, QImage::Format_RGB32);
    picture.fill(Qt::green);
    const QString png = dir.filePath(QStringLiteral("a.png")), jpg = dir.filePath(QStringLiteral("b.jpg"));
    ASSERT_TRUE(picture.save(png) && picture.save(jpg));
    const QString mp4 = dir.filePath(QStringLiteral("c.mp4")), mkv = dir.filePath(QStringLiteral("d.mkv"));
    const QString text = dir.filePath(QStringLiteral("notes.txt"));

    struct Case {
        QStringList files;
        int row;
        QString kind; // the name of the kind made, or empty for none
    };
    for (const Case& c : {Case{{png}, 2, "Image Overlay"}, Case{{png}, 0, "Slide Show"}, Case{{png, jpg}, 2, "Slide Show"},
                          Case{{mp4, mkv}, 2, "Movie"}, Case{{mp4}, 0, "Movie"}, Case{{png, mp4}, 2, ""},
                          Case{{text}, 2, ""}, Case{{text, png}, 2, "Image Overlay"}}) {
        SCOPED_TRACE(testing::Message() << c.kind.toStdString() << " row " << c.row);
        app->clearEffects(true);
        app->addOneEffect(make("RedSource", "S"));
        app->addOneEffect(make("Marker", "A"));
        EXPECT_EQ(app->acceptDrop(c.files, {}, c.row), !c.kind.isEmpty());
        const auto& chain = app->liveEffects();
        if (c.kind.isEmpty()) {
            EXPECT_EQ(this->chain(), "S,A");
        } else if (c.kind == QStringLiteral("Image Overlay")) {
            ASSERT_EQ(chain.size(), 3u);
            EXPECT_EQ(chain.back()->name(), c.kind);
            EXPECT_EQ(chain.back()->effectPropertyForName(QStringLiteral("Image")).toString(), png);
        } else if (c.kind == QStringLiteral("Slide Show")) {
            auto* slides = dynamic_cast<LVTestSlideShow*>(chain.front().get());
            ASSERT_TRUE(slides) << "a dropped slide show replaces the source";
            EXPECT_EQ(slides->files, c.files);
        } else {
            auto* movie = dynamic_cast<LVTestMovieSource*>(chain.front().get());
            ASSERT_TRUE(movie);
            EXPECT_EQ(movie->playlist, c.files);
        }
    }
}

TEST_F(LVControllerTest, SwapExchangesTheSourceWithThePipSourceChosenByKindName)
{
    auto red = make("RedSource", "red");
    auto blue = make("BlueSource", "blue");
    auto pip = make<LVTestPip>("TestPip", "pip");
    pip->other = blue;
    app->doSwap(pip);
    EXPECT_TRUE(app->liveEffects().empty()) << "no source: nothing to swap";

    app->addOneEffect(red);
    app->addOneEffect(pip);
    app->doSwap(pip);
    EXPECT_EQ(chain(), "blue,pip");
    EXPECT_EQ(pip->other, red);
    EXPECT_EQ(blue->mode(), LVModeLive);
    EXPECT_EQ(app->selectedEffect(), pip);
    EXPECT_TRUE(app->pipSelected());
    app->setSelectedEffect(red);
    EXPECT_FALSE(app->pipSelected());

    // The inset is chosen by kind name, only on an effect that holds one.
    auto marker = make("Marker", "marker");
    const struct {
        LVEffectRef effect;
        QString kind;
        bool taken;
        QString inset; // after the step, empty for none
    } steps[] = {
        {pip, "Blue Source", true, "Blue Source"},
        {pip, "No Such Source", false, "Blue Source"},
        {marker, "Red Source", false, "Blue Source"},
        {pip, "", true, ""},
    };
    for (const auto& s : steps) {
        SCOPED_TRACE(s.kind.toStdString());
        EXPECT_EQ(app->setOtherSourceNamed(s.effect, s.kind), s.taken);
        EXPECT_EQ(pip->other ? pip->other->name() : QString(), s.inset);
    }
}

TEST_F(LVControllerTest, EscapeEndsFullScreenOnTheMainScreenOnly)
{
    class Keys : public LVKeyDispatcher {
    public:
        bool dispatchWithEvent(int key, int) override
        {
            testLog().append(QString::number(key));
            return true;
        }
    } keys;
    app->setKeyDispatcher(&keys);

    app->setPreviewFullScreen(std::make_unique<LVFullScreenDouble>(app->shmem(), true));
    EXPECT_TRUE(app->sendEvent(Qt::Key_Escape, 0));
    EXPECT_EQ(app->previewFullScreen(), nullptr);
    EXPECT_TRUE(testLog().isEmpty());

    app->setPreviewFullScreen(std::make_unique<LVFullScreenDouble>(app->shmem(), false));
    EXPECT_TRUE(app->sendEvent(Qt::Key_Escape, 0));
    EXPECT_NE(app->previewFullScreen(), nullptr);
    EXPECT_TRUE(app->sendEvent(Qt::Key_A, 0));
    EXPECT_EQ(testLog(), (QStringList{QString::number(Qt::Key_Escape), QString::number(Qt::Key_A)}));
    app->setKeyDispatcher(nullptr);
    EXPECT_FALSE(app->sendEvent(Qt::Key_A, 0));
}
