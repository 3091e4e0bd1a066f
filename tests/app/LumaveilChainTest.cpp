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
    EXPECT_EQ(chainNames(), (QStringList{QStringLiteral("red"), QStringLiteral("A")}));
    EXPECT_EQ(red->mode(), LVModeLive);
    EXPECT_EQ(a->mode(), LVModeLive);

    app->setSource(red);
    EXPECT_EQ(chainNames(), (QStringList{QStringLiteral("red"), QStringLiteral("A")})) << "same source: no change";
    EXPECT_EQ(red->mode(), LVModeLive);

    app->addOneEffect(blue);
    EXPECT_EQ(chainNames(), (QStringList{QStringLiteral("blue"), QStringLiteral("A")}));
    EXPECT_EQ(red->mode(), LVModeOff);
    EXPECT_EQ(app->source(), blue);

    app->removeEffect(a);
    EXPECT_EQ(a->mode(), LVModeOff);
    app->removeOneEffect(7);
    EXPECT_EQ(chainNames(), (QStringList{QStringLiteral("blue")}));
}

TEST_F(LVControllerTest, ClearKeepsOrDropsTheSource)
{
    struct Case {
        bool withSource;
        bool includingSource;
        QStringList left;
    };
    for (const Case& c : {Case{true, false, {QStringLiteral("src")}}, Case{true, true, {}},
                          Case{false, false, {}}, Case{false, true, {}}}) {
        app->clearEffects(true);
        std::vector<LVEffectRef> removed;
        if (c.withSource) app->addOneEffect(make("RedSource", "src"));
        for (const char* name : {"A", "B"}) {
            auto effect = make("Marker", name);
            removed.push_back(effect);
            app->addOneEffect(effect);
        }
        app->clearEffects(c.includingSource);
        EXPECT_EQ(chainNames(), c.left);
        for (const auto& effect : removed) EXPECT_EQ(effect->mode(), LVModeOff);
    }
}

TEST_F(LVControllerTest, AddEffectsFromReplacesOrMerges)
{
    app->addOneEffect(make("RedSource", "src"));
    app->addOneEffect(make("Marker", "old"));

    app->addEffectsFrom({make("Marker", "new1"), nullptr, make("Marker", "new2")}, true, false);
    EXPECT_EQ(chainNames(), (QStringList{QStringLiteral("src"), QStringLiteral("old"), QStringLiteral("new1"),
                                         QStringLiteral("new2")}));

    app->addEffectsFrom({make("Marker", "only")}, false, false);
    EXPECT_EQ(chainNames(), (QStringList{QStringLiteral("src"), QStringLiteral("only")}))
        << "replacing keeps the source, as the Clear command does";

    app->addEffectsFrom({make("Marker", "x"), make("BlueSource", "blue")}, false, false);
    EXPECT_EQ(chainNames(), (QStringList{QStringLiteral("blue"), QStringLiteral("x")}))
        << "a setup's source replaces the current one";

    auto ignored = make("Marker", "ignored");
    ignored->setMode(LVModeLive);
    app->addEffectsFrom({ignored}, true, true);
    EXPECT_EQ(chainNames(), (QStringList{QStringLiteral("blue"), QStringLiteral("x")}));
    EXPECT_EQ(ignored->mode(), LVModeOff);
}

TEST_F(LVControllerTest, ReorderingNeverMovesTheSource)
{
    app->addOneEffect(make("RedSource", "S"));
    for (const char* name : {"A", "B", "C"}) app->addOneEffect(make("Marker", name));
    app->moveRows({3}, 1);
    EXPECT_EQ(chainNames().join(QString()), QStringLiteral("SCAB"));
    app->moveRows({2}, 0);
    EXPECT_EQ(chainNames().join(QString()), QStringLiteral("SACB")) << "nothing goes above the source";
    app->moveRows({0, 2}, 4);
    EXPECT_EQ(chainNames().join(QString()), QStringLiteral("SACB")) << "a drag with the source is refused";
    EXPECT_TRUE(app->acceptDrop({}, {1, 2}, 4));
    EXPECT_EQ(chainNames().join(QString()), QStringLiteral("SBAC"));
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
        const char* kind;  // the name of the kind made, or "" for none
    };
    for (const Case& c : {Case{{png}, 2, "Image Overlay"}, Case{{png}, 0, "Slide Show"}, Case{{png, jpg}, 2, "Slide Show"},
                          Case{{mp4, mkv}, 2, "Movie"}, Case{{mp4}, 0, "Movie"}, Case{{png, mp4}, 2, ""},
                          Case{{text}, 2, ""}, Case{{text, png}, 2, "Image Overlay"}}) {
        app->clearEffects(true);
        app->addOneEffect(make("RedSource", "S"));
        app->addOneEffect(make("Marker", "A"));
        const bool taken = app->acceptDrop(c.files, {}, c.row);
        const QString kind = QString::fromLatin1(c.kind);
        EXPECT_EQ(taken, !kind.isEmpty()) << c.kind << " row " << c.row;
        if (kind.isEmpty()) {
            EXPECT_EQ(chainNames().join(QString()), QStringLiteral("SA"));
            continue;
        }
        const auto& chain = app->liveEffects();
        if (kind == QStringLiteral("Image Overlay")) {
            ASSERT_EQ(chain.size(), 3u);
            EXPECT_EQ(chain.back()->name(), kind);
            EXPECT_EQ(chain.back()->effectPropertyForName(QStringLiteral("Image")).toString(), png);
        } else if (kind == QStringLiteral("Slide Show")) {
            auto* slides = dynamic_cast<LVTestSlideShow*>(chain.front().get());
            ASSERT_TRUE(slides) << "a dropped slide show replaces the source";
            QStringList images = c.files;
            images.removeAll(text);
            EXPECT_EQ(slides->files, images);
        } else {
            auto* movie = dynamic_cast<LVTestMovieSource*>(chain.front().get());
            ASSERT_TRUE(movie);
            EXPECT_EQ(movie->playlist, c.files);
        }
    }
}

TEST_F(LVControllerTest, SwapExchangesTheSourceWithThePipSource)
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
    EXPECT_EQ(chainNames(), (QStringList{QStringLiteral("blue"), QStringLiteral("pip")}));
    EXPECT_EQ(pip->other, red);
    EXPECT_EQ(blue->mode(), LVModeLive);
    EXPECT_EQ(app->selectedEffect(), pip);
    EXPECT_TRUE(app->pipSelected());
    app->setSelectedEffect(red);
    EXPECT_FALSE(app->pipSelected());
}

TEST_F(LVControllerTest, PipSourceIsChosenByKindName)
{
    auto pip = make<LVTestPip>("TestPip", "pip");
    auto marker = make("Marker", "marker");
    const struct {
        LVEffectRef effect;
        const char* kind;
        bool taken;
        const char* inset; // after the step, "" for none
    } steps[] = {
        {pip, "Blue Source", true, "Blue Source"},
        {pip, "No Such Source", false, "Blue Source"},
        {marker, "Red Source", false, "Blue Source"},
        {pip, "", true, ""},
    };
    for (const auto& s : steps) {
        EXPECT_EQ(app->setOtherSourceNamed(s.effect, QString::fromLatin1(s.kind)), s.taken) << s.kind;
        EXPECT_EQ(pip->other ? pip->other->name() : QString(), QString::fromLatin1(s.inset)) << s.kind;
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
