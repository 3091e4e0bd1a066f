// The main window under the offscreen platform, driving a real controller.
#include "core/util/KDDelayedDispatcher.h"
#include "gui/main/LVChainModel.h"
#include "gui/main/LVPreviewWidget.h"
#include "gui/main/LVSettingsPanel.h"
#include "gui/setups/LVSavedSetupsWindow.h"
#include "setups/model/LVSetupManager.h"
#include "tests/app/LVTestKinds.h"
#include "tests/gui/LVGuiTestSupport.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QLabel>
#include <QListView>
#include <QMenu>
#include <QMimeData>
#include <QPushButton>
#include <QTabWidget>
#include <QUrl>

namespace {

class LVMainWindowTest : public LVWindowTest {
protected:
    static void SetUpTestSuite()
    {
        LVWindowTest::SetUpTestSuite();
        LVRegisterTestKinds();
        registerSettingsKind();
    }

    // An effect with one parameter of each editor kind the panel builds.
    static void registerSettingsKind()
    {
        static LVEffectDescriptor descriptor;
        descriptor.className = "TestSettings";
        descriptor.name = "Settings Test";
        descriptor.parameters = {LVFloatParameter("amount", "Amount", 0.5, 0.0, 2.0),
                                 LVBoolParameter("invert", "Invert", false), LVTextParameter("text", "Text", "Hello"),
                                 LVChoiceParameter("mode", "Mode", 2, {"One", "Two"}, {1, 2})};
        descriptor.make = [] { return std::make_unique<LVRecordingEffect>(descriptor); };
        LVEffectClasses::registerClass(&descriptor);
    }

    void SetUp() override
    {
        LVWindowTest::SetUp();
        start(dir.filePath(QStringLiteral("none")));
    }

    QStringList chainTexts() const
    {
        QStringList names;
        auto* model = window->chainModel();
        for (int row = 0; row < model->rowCount(); ++row) names.append(model->index(row).data().toString());
        return names;
    }
};

} // namespace

TEST_F(LVMainWindowTest, PreviewShowsTheFrameMirroredOnlyWhenAsked)
{
    auto marker = makeTestEffect("Marker", app->context());
    // Left third red: a mirrored preview shows it on the right.
    marker->paint = [](LVContext& context) { fillFrameRect(context, 0, 0, 100, 240, Qt::red); };
    app->addOneEffect(marker);
    app->renderFrame();
    const QImage& picture = window->preview()->picture();
    ASSERT_EQ(picture.size(), QSize(320, 240));
    EXPECT_EQ(picture.pixel(0, 0), qRgb(255, 0, 0));
    EXPECT_EQ(picture.pixel(319, 0), qRgb(0, 0, 0));

    app->setMirrorImagePreview(true);
    app->renderFrame();
    EXPECT_EQ(window->preview()->picture().pixel(0, 0), qRgb(0, 0, 0));
    EXPECT_EQ(window->preview()->picture().pixel(319, 0), qRgb(255, 0, 0));

    window->hide();
    const qint64 before = window->preview()->picture().cacheKey();
    app->renderFrame();
    EXPECT_EQ(window->preview()->picture().cacheKey(), before) << "a hidden preview is skipped";
}

TEST_F(LVMainWindowTest, SourceChooserAndEffectButtonsEditTheChain)
{
    QComboBox* sources = window->sourceChooser();
    ASSERT_GE(sources->findText(QStringLiteral("Red Source")), 1);
    sources->setCurrentIndex(sources->findText(QStringLiteral("Red Source")));
    emit sources->activated(sources->currentIndex());
    EXPECT_EQ(chainTexts(), (QStringList{QStringLiteral("Red Source")}));

    QComboBox* effects = window->effectChooser();
    effects->setCurrentIndex(effects->findText(QStringLiteral("Marker")));
    window->findChild<QPushButton*>(QStringLiteral("addEffect"))->click();
    window->findChild<QPushButton*>(QStringLiteral("addEffect"))->click();
    EXPECT_EQ(chainTexts(), (QStringList{QStringLiteral("Red Source"), QStringLiteral("Marker"), QStringLiteral("Marker")}));
    EXPECT_EQ(window->chainView()->currentIndex().row(), 2) << "the added effect is selected";
    EXPECT_EQ(window->settingsPanel()->effect(), app->liveEffects()[2]);

    // Unchecking disables the effect; it stays in the chain.
    auto* model = window->chainModel();
    ASSERT_TRUE(model->setData(model->index(1), Qt::Unchecked, Qt::CheckStateRole));
    EXPECT_FALSE(app->liveEffects()[1]->isEnabled());
    EXPECT_EQ(model->index(1).data(Qt::CheckStateRole).toInt(), Qt::Unchecked);

    window->chainView()->setCurrentIndex(model->index(2));
    window->findChild<QPushButton*>(QStringLiteral("removeEffect"))->click();
    EXPECT_EQ(chainTexts(), (QStringList{QStringLiteral("Red Source"), QStringLiteral("Marker")}));

    window->findChild<QPushButton*>(QStringLiteral("clearEffects"))->click();
    EXPECT_EQ(chainTexts(), (QStringList{QStringLiteral("Red Source")})) << "Clear keeps the source";
    sources->setCurrentIndex(0);
    emit sources->activated(0);
    EXPECT_TRUE(chainTexts().isEmpty()) << "None removes the source";
}

TEST_F(LVMainWindowTest, ChainDragsCarryRowsAndNeverTheSource)
{
    app->addOneEffect(makeTestEffect("RedSource", app->context()));
    for (const char* name : {"A", "B", "C"}) {
        auto effect = makeTestEffect("Marker", app->context());
        effect->setName(QString::fromLatin1(name));
        app->addOneEffect(effect);
    }
    auto* model = window->chainModel();
    EXPECT_FALSE(model->flags(model->index(0)) & Qt::ItemIsDragEnabled);
    EXPECT_TRUE(model->flags(model->index(1)) & Qt::ItemIsDragEnabled);
    EXPECT_EQ(model->mimeData({model->index(0), model->index(1)}), nullptr);

    std::unique_ptr<QMimeData> drag(model->mimeData({model->index(3), model->index(2)}));
    ASSERT_TRUE(drag);
    EXPECT_TRUE(drag->hasFormat(QStringLiteral("com.marrowkit.lumaveil.myeffect")));
    EXPECT_EQ(LVChainModel::rowsFromMimeData(drag.get()), (std::vector<int>{2, 3}));
    ASSERT_TRUE(model->dropMimeData(drag.get(), Qt::CopyAction, 1, 0, {}));
    EXPECT_EQ(chainTexts(), (QStringList{QStringLiteral("Red Source"), QStringLiteral("B"), QStringLiteral("C"),
                                         QStringLiteral("A")}));

    // Dropped files that make nothing are refused and change nothing.
    QMimeData files;
    files.setUrls({QUrl::fromLocalFile(dir.filePath(QStringLiteral("missing.txt")))});
    EXPECT_FALSE(model->dropMimeData(&files, Qt::CopyAction, -1, 0, {}));
    EXPECT_EQ(model->rowCount(), 4);
}

TEST_F(LVMainWindowTest, SettingsPanelIsGeneratedAndEditsReachTheEffectOncePerFrame)
{
    auto effect = makeTestEffect("TestSettings", app->context());
    app->addOneEffect(effect);
    window->chainView()->setCurrentIndex(window->chainModel()->index(0));
    LVSettingsPanel* panel = window->settingsPanel();
    ASSERT_EQ(panel->effect(), effect);
    auto* mode = qobject_cast<QComboBox*>(panel->editorFor(QStringLiteral("Mode")));
    ASSERT_TRUE(mode);
    EXPECT_EQ(mode->currentText(), QStringLiteral("Two"));

    auto* amount = panel->editorFor(QStringLiteral("Amount"))->findChild<QDoubleSpinBox*>();
    ASSERT_TRUE(amount);
    amount->setValue(1.0);
    amount->setValue(1.5);
    qobject_cast<QCheckBox*>(panel->editorFor(QStringLiteral("Invert")))->setChecked(true);
    EXPECT_DOUBLE_EQ(effect->effectPropertyForName(QStringLiteral("Amount")).toDouble(), 0.5) << "deferred";
    EXPECT_EQ(KDDelayedDispatcher::pendingCount(), 2u) << "repeated edits coalesce";
    app->renderFrame();
    EXPECT_DOUBLE_EQ(effect->effectPropertyForName(QStringLiteral("Amount")).toDouble(), 1.5) << "the newest value";
    EXPECT_TRUE(effect->effectPropertyForName(QStringLiteral("Invert")).toBool());

    window->chainView()->clearSelection();
    EXPECT_EQ(panel->effect(), nullptr);
}

TEST_F(LVMainWindowTest, PictureInPicturePagesChooseSwapAndEditTheInsetSource)
{
    app->setNamedSource(QStringLiteral("Red Source"));
    auto pip = makeTestEffect<LVTestPip>(QStringLiteral("TestPip"), app->context());
    app->addOneEffect(pip);
    window->chainView()->setCurrentIndex(window->chainModel()->index(1));
    LVSettingsPanel* panel = window->settingsPanel();
    // The panel may rebuild its pages: the chooser is looked up afresh each time.
    const auto chooser = [panel] { return panel->findChild<QComboBox*>(QStringLiteral("otherSourceChooser")); };
    const auto choose = [&](const QString& name) {
        chooser()->setCurrentIndex(name.isEmpty() ? 0 : chooser()->findText(name));
        emit chooser()->activated(chooser()->currentIndex());
    };
    const auto swap = [panel] { panel->findChild<QPushButton*>(QStringLiteral("swapWithVideoSource"))->click(); };
    const struct {
        const char* step;
        std::function<void()> act;
        QString inset, source; // source: the chain's
    } steps[] = {
        {"alone", [] {}, "", "Red Source"},
        {"choose an inset source", [&] { choose("Blue Source"); }, "Blue Source", "Red Source"},
        {"swap", swap, "Red Source", "Blue Source"},
        {"swap back", swap, "Blue Source", "Red Source"},
        {"no inset source", [&] { choose(""); }, "", "Red Source"},
    };
    for (const auto& s : steps) {
        SCOPED_TRACE(s.step);
        s.act();
        QApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        EXPECT_EQ(pip->other ? pip->other->name() : QString(), s.inset);
        EXPECT_EQ(app->source()->name(), s.source);
        ASSERT_EQ(panel->effect(), pip);
        QStringList titles, expected{"PIP Settings"};
        for (int i = 0; panel->tabs() && i < panel->tabs()->count(); ++i) titles << panel->tabs()->tabText(i);
        if (!s.inset.isEmpty()) expected << s.inset + " Settings";
        EXPECT_EQ(titles, expected);
        // The second page is the inset source's own panel; the chooser names the inset source.
        EXPECT_EQ(panel->otherSourcePanel() ? panel->otherSourcePanel()->effect() : nullptr, pip->other);
        ASSERT_TRUE(chooser());
        EXPECT_EQ(chooser()->currentIndex() == 0 ? QString() : chooser()->currentText(), s.inset);
    }
}

TEST_F(LVMainWindowTest, MenusOfferARestartForANewSizeStoreTheRateAndShowAbout)
{
    window->videoSizeMenu()->actions().at(4)->trigger();
    EXPECT_EQ(defaults->stringForKey("videoSize"), "{1280, 720}");
    EXPECT_EQ(window->findChild<QMessageBox*>("restartForSize"), nullptr) << "no way to restart";

    // With a way to restart, a new size offers it: "No" first, only "Yes" restarts.
    int restarts = 0;
    window->setRestartHandler([&] { ++restarts; });
    for (const char* answer : {"No", "Yes"}) {
        window->videoSizeMenu()->actions().at(2)->trigger();
        auto* offer = window->findChild<QMessageBox*>("restartForSize");
        ASSERT_TRUE(offer) << answer;
        EXPECT_TRUE(offer->text().contains("640x480")) << offer->text().toStdString();
        ASSERT_EQ(offer->buttons().size(), 2);
        ASSERT_TRUE(lvAnswer(offer, answer));
    }
    EXPECT_EQ(restarts, 1);

    for (QAction* action : window->frameRateMenu()->actions()) {
        if (action->data().toInt() == 30) action->trigger();
    }
    EXPECT_EQ(app->frameRate(), 30);
    EXPECT_EQ(defaults->integerForKey("frameRate"), 30);
    emit app->fpsChanged(29.96);
    EXPECT_EQ(window->fpsLabel()->text(), "30.0 fps");

    window->findChild<QAction*>("about")->trigger();
    auto* about = window->findChild<QMessageBox*>("aboutBox");
    ASSERT_TRUE(about);
    EXPECT_TRUE(about->text().startsWith("Lumaveil ")) << about->text().toStdString();
    about->close();
}

TEST_F(LVMainWindowTest, BetaNoticeAppearsOnceWithItsText)
{
    window->showBetaNagIfNeeded();
    auto* box = window->findChild<QMessageBox*>(QStringLiteral("betaNag"));
    ASSERT_TRUE(box);
    EXPECT_TRUE(box->text().startsWith(QStringLiteral("This version of Lumaveil is a BETA build.  You should")));
    // On Linux the first thing to set up is the camera device.
    for (const char* says : {"v4l2loopback-dkms", "sudo modprobe v4l2loopback exclusive_caps=1 card_label=Lumaveil"})
        EXPECT_TRUE(box->text().contains(QLatin1String(says))) << says;
    EXPECT_EQ(lvButtonTexts(*box), QStringList{"OK, got it"});
    EXPECT_TRUE(defaults->boolForKey("betaNag"));
    ASSERT_TRUE(lvAnswer(box, "OK, got it"));
    window->showBetaNagIfNeeded();
    EXPECT_EQ(window->findChild<QMessageBox*>(QStringLiteral("betaNag")), nullptr);
}

TEST_F(LVMainWindowTest, ASlowEffectIsOfferedForDisablingWithoutStoppingAnything)
{
    const struct { const char* button; bool enabledAfter; } cases[] = {{"Keep", true}, {"Disable", false}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.button);
        app->clearEffects(true);
        auto slow = makeTestEffect("Marker", app->context());
        slow->setName(QStringLiteral("Heavy"));
        app->addOneEffect(slow);
        emit app->slowEffect(slow, 0.5);
        auto* box = window->findChild<QMessageBox*>(QStringLiteral("slowEffect"));
        ASSERT_TRUE(box);
        EXPECT_NE(box->windowModality(), Qt::ApplicationModal) << "the window goes on";
        EXPECT_TRUE(box->text().contains(QStringLiteral("\u201cHeavy\u201d takes 500 ms a frame")))
            << box->text().toStdString();
        ASSERT_TRUE(lvAnswer(box, c.button));
        EXPECT_EQ(slow->isEnabled(), c.enabledAfter);
        EXPECT_EQ(window->findChild<QMessageBox*>(QStringLiteral("slowEffect")), nullptr);
    }
}

TEST_F(LVMainWindowTest, SetupsMenuOpensTheSetupsWindowsAndLoadedRowsNameTheirSetup)
{
    QList<QAction*> entries = window->setupsMenu()->actions();
    ASSERT_EQ(entries.size(), 3);
    for (QAction* action : entries) EXPECT_FALSE(action->isEnabled()) << action->text().toStdString();

    LVSetupManager manager(*defaults, app->context(), dir.filePath(QStringLiteral("Saved Setups")));
    manager.startup();
    app->setSetupCatalog(&manager);
    window->setSetupManager(&manager);
    for (QAction* action : entries) EXPECT_TRUE(action->isEnabled()) << action->text().toStdString();

    ASSERT_TRUE(manager.newSavedSetupWithName(QStringLiteral("Marked"), {makeTestEffect("Marker", app->context())}));
    EXPECT_TRUE(app->loadNamedSetup(QStringLiteral("Marked"), false));
    EXPECT_EQ(chainTexts(), QStringList{QStringLiteral("Marker (Marked)")}) << "rows name the setup an effect came from";

    entries.front()->trigger();
    auto* list = window->findChild<LVSavedSetupsWindow*>();
    ASSERT_TRUE(list);
    EXPECT_TRUE(list->isVisible());
    window->setSetupManager(nullptr);
    app->setSetupCatalog(nullptr);
    delete list;
}

TEST_F(LVMainWindowTest, KeysReachTheControllerOnceExceptWhileTyping)
{
    class Keys : public LVKeyDispatcher {
    public:
        bool dispatchWithEvent(int key, int) override
        {
            keys.append(key);
            return true;
        }
        QList<int> keys;
    } keys;
    app->setKeyDispatcher(&keys);
    window->activateWindow();
    window->chainView()->setFocus();
    QTest::keyClick(window->chainView(), Qt::Key_F5);
    EXPECT_EQ(keys.keys, (QList<int>{Qt::Key_F5}));

    auto effect = makeTestEffect("TestSettings", app->context());
    app->addOneEffect(effect);
    window->chainView()->setCurrentIndex(window->chainModel()->index(0));
    QWidget* text = window->settingsPanel()->editorFor(QStringLiteral("Text"));
    QApplication::processEvents();
    text->setFocus();
    ASSERT_EQ(QApplication::focusWidget(), text);
    QTest::keyClick(text, Qt::Key_X);
    EXPECT_EQ(keys.keys, (QList<int>{Qt::Key_F5})) << "typing stays in the field";
    QTest::keyClick(text, Qt::Key_Escape);
    EXPECT_EQ(keys.keys, (QList<int>{Qt::Key_F5, Qt::Key_Escape}));
    app->setKeyDispatcher(nullptr);
}

TEST(LVColorTextTest, ShowsRGBAndTheOpacityOnlyWhenItIsUsed)
{
    const struct { QColor color; const char* text; } cases[] = {
        {QColor(0, 255, 0), "#00FF00"},
        {QColor(255, 0, 128, 128), "#FF0080, 50% opaque"},
        {QColor(0, 0, 0, 0), "#000000, 0% opaque"},
    };
    for (const auto& c : cases) EXPECT_EQ(LVColorText(c.color), QString::fromLatin1(c.text));
}
