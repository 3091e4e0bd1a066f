// Editors made from a composition's inputs, the chain's close buttons, the window's start-up
// restores and strokes drawn on the preview, under the offscreen platform with a real controller.
#include "control/usermenu/LVUserMenuActions.h"
#include "core/util/KDDelayedDispatcher.h"
#include "effects/registration/LVEffectKinds.h"
#include "effects/telestrator/Telestrator.h"
#include "gui/main/LVChainModel.h"
#include "gui/main/LVChainRowDelegate.h"
#include "gui/main/LVPreviewWidget.h"
#include "gui/main/LVSettingsPanel.h"
#include "gui/widgets/LVFontPicker.h"
#include "gui/widgets/LVXYPad.h"
#include "tests/gui/LVGuiTestSupport.h"

#include <QComboBox>
#include <QDoubleSpinBox>
#include <QFontDatabase>
#include <QFormLayout>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QListView>
#include <QPushButton>

#include <cmath>

namespace {

const QByteArray kLabels = R"(/*{
    "DESCRIPTION": "Puts a logo somewhere.",
    "CREDIT": "Jo Example",
    "INPUTS": [
        {"NAME": "inputImage", "TYPE": "image"},
        {"NAME": "Logo_X_Position", "TYPE": "float", "DEFAULT": 0.25},
        {"NAME": "Logo_Y_Position", "TYPE": "float", "DEFAULT": -0.5},
        {"NAME": "Band_Y_Position", "TYPE": "float"},
        {"NAME": "Band_X_Position", "TYPE": "float"},
        {"NAME": "X_Position", "LABEL": "Across", "TYPE": "float", "DEFAULT": 0.1},
        {"NAME": "Top_Y_Position", "TYPE": "float"},
        {"NAME": "Font_Name", "LABEL": "Font", "TYPE": "text", "DEFAULT": "No Such Family Here"},
        {"NAME": "note", "LABEL": "static_text", "TYPE": "text", "DEFAULT": "Drag the pad to move it."}
    ]
}*/
void main() { gl_FragColor = IMG_THIS_PIXEL(inputImage); }
)";

class LVSettingsEditorsTest : public LVWindowTest {
protected:
    static void SetUpTestSuite()
    {
        LVWindowTest::SetUpTestSuite();
        LVRegisterEffectKinds();
    }

    void SetUp() override
    {
        LVWindowTest::SetUp();
        ASSERT_TRUE(lvWriteFiles(dir.filePath(QStringLiteral("Effects")), {{"Labels.fs", kLabels}}));
        for (const char* bundled : {"Clock.fs", "Lower Third.fs", "Image Overlay.fs", "Chroma Key.fs"}) {
            ASSERT_TRUE(QFile::copy(QStringLiteral(LV_TEST_BUNDLED_EFFECTS "/") + QLatin1String(bundled),
                                    dir.filePath(QStringLiteral("Effects/")) + QLatin1String(bundled)));
        }
        // Pictures taken out of archives land in the test's own data folder.
        qputenv("XDG_DATA_HOME", QFile::encodeName(dir.filePath(QStringLiteral("data"))));
    }

    void start() { LVWindowTest::start(dir.filePath(QStringLiteral("Effects"))); }

    // Adds the named effect and shows its settings.
    LVEffectRef select(const QString& name)
    {
        EXPECT_TRUE(app->addNamedEffect(name)) << name.toStdString();
        const LVEffectRef effect = app->liveEffects().back();
        app->setSelectedEffect(effect);
        EXPECT_EQ(panel()->effect(), effect);
        return effect;
    }

    LVSettingsPanel* panel() const { return window->settingsPanel(); }

    // The text in front of an editor in its form, empty when it has none.
    static QString labelOf(QWidget* editor)
    {
        auto* form = qobject_cast<QFormLayout*>(editor->parentWidget()->layout());
        if (!form) return {};
        auto* label = qobject_cast<QLabel*>(form->labelForField(editor));
        return label ? label->text() : QString();
    }
};

// A 320x240 frame shown on the preview, so it has a picture to draw on.
LVFramePixelsRef frame()
{
    auto pixels = std::make_shared<LVFramePixels>();
    pixels->width = 320;
    pixels->height = 240;
    pixels->stride = 320 * 4;
    pixels->bytes.assign(size_t(pixels->stride) * 240, 0x80);
    return pixels;
}

} // namespace

TEST_F(LVSettingsEditorsTest, PortsGetTheirEditorsAndLabels)
{
    start();
    select(QStringLiteral("Labels"));
    enum Kind { Pad, Number, Font, FixedLine };
    const struct {
        const char* name; // the parameter's name
        Kind kind;
        const char* label; // in front of the editor; "" for none
    } cases[] = {
        {"Logo Position", Pad, "Logo Position"},
        {"Logo Position Y", Pad, "Logo Position"}, // the pad covers its Y
        {"Band Position", Pad, "Band Position"},   // Y declared first
        {"Across", Number, "Across"},              // a lone X
        {"Top_Y_Position", Number, "Top_Y_Position"},
        {"Font", Font, "Font"},
        {"static_text", FixedLine, ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        QWidget* editor = panel()->editorFor(QLatin1String(c.name));
        ASSERT_TRUE(editor);
        EXPECT_EQ(labelOf(editor), QLatin1String(c.label));
        auto* pad = qobject_cast<LVXYPad*>(editor);
        EXPECT_EQ(pad != nullptr, c.kind == Pad);
        EXPECT_EQ(qobject_cast<LVFontPicker*>(editor) != nullptr, c.kind == Font);
        if (pad) {
            EXPECT_EQ(std::make_pair(pad->minimum(), pad->maximum()), std::make_pair(QPointF(-1, -1), QPointF(1, 1)));
        }
        if (c.kind == Number) {
            auto* spin = editor->findChild<QDoubleSpinBox*>();
            ASSERT_TRUE(spin);
            EXPECT_EQ(std::make_pair(spin->minimum(), spin->maximum()), std::make_pair(-1.0, 1.0));
        }
        if (c.kind == FixedLine) {
            auto* line = qobject_cast<QLabel*>(editor);
            ASSERT_TRUE(line);
            EXPECT_EQ(line->text(), QStringLiteral("Drag the pad to move it."));
        }
    }
    EXPECT_EQ(panel()->editorFor(QStringLiteral("Logo Position")),
              panel()->editorFor(QStringLiteral("Logo Position Y")));
    EXPECT_EQ(panel()->findChildren<LVXYPad*>().size(), 2);

    QStringList notes;
    for (QLabel* note : panel()->findChildren<QLabel*>(QStringLiteral("inspectorNote"))) notes << note->text();
    EXPECT_EQ(notes, (QStringList{QStringLiteral("Puts a logo somewhere."), QStringLiteral("Credit: Jo Example")}));
}

TEST_F(LVSettingsEditorsTest, DraggingThePadSetsBothKeysOnceBeforeTheNextFrame)
{
    start();
    const LVEffectRef effect = select(QStringLiteral("Labels"));
    auto* pad = qobject_cast<LVXYPad*>(panel()->editorFor(QStringLiteral("Logo Position")));
    ASSERT_TRUE(pad);
    EXPECT_EQ(pad->value(), QPointF(0.25, -0.5)) << "the pad opens at the stored values";

    QTest::mousePress(pad, Qt::LeftButton, {}, pad->positionOf(QPointF(-0.5, 0.5)).toPoint());
    QMouseEvent move(QEvent::MouseMove, pad->positionOf(QPointF(1, 1)), pad->mapToGlobal(pad->positionOf(QPointF(1, 1))),
                     Qt::NoButton, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(pad, &move);
    QTest::mouseRelease(pad, Qt::LeftButton, {}, pad->positionOf(QPointF(1, 1)).toPoint());
    EXPECT_DOUBLE_EQ(effect->effectPropertyForName(QStringLiteral("Logo Position")).toDouble(), 0.25)
        << "edits wait for the frame";
    KDDelayedDispatcher::flush();
    EXPECT_NEAR(effect->effectPropertyForName(QStringLiteral("Logo Position")).toDouble(), 1.0, 0.02);
    EXPECT_NEAR(effect->effectPropertyForName(QStringLiteral("Logo Position Y")).toDouble(), 1.0, 0.02);
}

TEST_F(LVSettingsEditorsTest, FontPickerListsInstalledFamiliesAndKeepsAMissingOne)
{
    start();
    const LVEffectRef effect = select(QStringLiteral("Labels"));
    auto* picker = qobject_cast<LVFontPicker*>(panel()->editorFor(QStringLiteral("Font")));
    ASSERT_TRUE(picker);
    EXPECT_EQ(picker->family(), QStringLiteral("No Such Family Here"));
    EXPECT_TRUE(picker->currentText().contains(QStringLiteral("not installed")));
    QStringList installed;
    for (const QString& family : QFontDatabase::families())
        if (!QFontDatabase::isPrivateFamily(family)) installed << family;
    ASSERT_FALSE(installed.isEmpty()) << "the machine has no fonts";
    EXPECT_EQ(picker->count(), installed.size() + 1);

    const int row = picker->findData(installed.front());
    ASSERT_GE(row, 0);
    picker->setCurrentIndex(row);
    emit picker->activated(row);
    KDDelayedDispatcher::flush();
    EXPECT_EQ(effect->effectPropertyForName(QStringLiteral("Font")).toString(), installed.front());

    picker->setFamily(installed.front());
    EXPECT_EQ(picker->count(), installed.size()) << "the missing family's row goes once another is shown";
}

TEST_F(LVSettingsEditorsTest, OverlaysShowAPadAFontPickerAndTheirNotes)
{
    start();
    const struct {
        const char* effect;
        bool pad, font;
        int notes;
        const char* note; // how the panel's own note starts
    } cases[] = {
        {"Clock", true, false, 2, nullptr},
        {"Lower Third", true, true, 2, nullptr},
        {"News Ticker", false, true, 0, "No feed address"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.effect);
        select(QLatin1String(c.effect));
        EXPECT_EQ(qobject_cast<LVXYPad*>(panel()->editorFor("Position")) != nullptr, c.pad);
        EXPECT_EQ(panel()->findChildren<LVFontPicker*>().size(), c.font ? 1 : 0);
        EXPECT_EQ(panel()->findChildren<QLabel*>("inspectorNote").size(), c.notes);
        if (!c.note) continue;
        auto* note = panel()->findChild<QLabel*>("settingsNote");
        ASSERT_TRUE(note);
        EXPECT_TRUE(note->text().startsWith(QLatin1String(c.note))) << note->text().toStdString();
    }
}

TEST_F(LVSettingsEditorsTest, ChoosingABackgroundShowsAndSetsItsKeyColour)
{
    start();
    const LVEffectRef key = select(QStringLiteral("Chroma Key"));
    auto* background = qobject_cast<QComboBox*>(panel()->editorFor(QStringLiteral("Background")));
    auto* colour = qobject_cast<QPushButton*>(panel()->editorFor(QStringLiteral("Key colour (with Custom colour)")));
    ASSERT_TRUE(background && colour);
    const struct {
        const char* choice;
        const char* shown; // the colour editor's text, before and after the next frame
    } steps[] = {{"Blue screen", "#0000FF"}, {"Custom colour", "#0000FF"}, {"Green screen", "#00FF00"}};
    for (const auto& step : steps) {
        background->setCurrentIndex(background->findText(QLatin1String(step.choice)));
        EXPECT_EQ(colour->text(), QLatin1String(step.shown)) << step.choice;
        KDDelayedDispatcher::flush();
        EXPECT_EQ(LVColorText(key->parameterValue(QStringLiteral("keyColor")).value<QColor>()), QLatin1String(step.shown))
            << step.choice;
    }
}

TEST_F(LVSettingsEditorsTest, CloseButtonRemovesTheRowClicked)
{
    start();
    for (const char* name : {"Clock", "Lower Third", "Labels"}) ASSERT_TRUE(app->addNamedEffect(QLatin1String(name)));
    QListView* view = window->chainView();
    const auto names = [this] {
        QStringList list;
        for (const auto& effect : app->liveEffects()) list << effect->name();
        return list;
    };
    const QRect middle = view->visualRect(window->chainModel()->index(1));
    QTest::mouseClick(view->viewport(), Qt::LeftButton, {}, LVChainRowDelegate::closeButtonRect(middle).center());
    EXPECT_EQ(names(), (QStringList{QStringLiteral("Clock"), QStringLiteral("Labels")}));
    QTest::mouseClick(view->viewport(), Qt::LeftButton, {}, view->visualRect(window->chainModel()->index(0)).center());
    EXPECT_EQ(names().size(), 2) << "a click beside the button removes nothing";
}

TEST_F(LVSettingsEditorsTest, PreviewOriginIsRestoredAtStart)
{
    defaults->setValue(QStringLiteral("previewOrigin"), QStringLiteral("{130, 170}"));
    start();
    EXPECT_EQ(window->preview()->mapToGlobal(QPoint()), QPoint(130, 170));
}

TEST_F(LVSettingsEditorsTest, RefusedSavedSettingsAreReported)
{
    const struct {
        QJsonValue rate;
        const char* size;
        QStringList mentions; // one per refused setting
    } cases[] = {
        {15, "{640, 360}", {}},
        {500, "{640, 360}", {QStringLiteral("500 fps")}},
        {0, "{99999, 10}", {QStringLiteral("0 fps"), QStringLiteral("{99999, 10}")}},
        {30, "wide", {QStringLiteral("wide")}},
    };
    for (const auto& c : cases) {
        defaults->setValue(QStringLiteral("frameRate"), c.rate);
        defaults->setValue(QStringLiteral("videoSize"), QLatin1String(c.size));
        start();
        const QStringList refused = window->refusedSettings();
        ASSERT_EQ(refused.size(), c.mentions.size()) << c.size;
        for (int i = 0; i < refused.size(); ++i) EXPECT_TRUE(refused[i].contains(c.mentions[i])) << refused[i].toStdString();
        auto* shown = window->findChild<QLabel*>(QStringLiteral("refusedSettings"));
        ASSERT_TRUE(shown);
        EXPECT_EQ(shown->isVisible(), !refused.isEmpty()) << c.size;
        TearDown();
    }
}

TEST_F(LVSettingsEditorsTest, ImagesTravelWithTheSetupAndOldPathsStillLoad)
{
    start();
    const auto writeImage = [this](const char* name, QColor color) {
        QImage image(8, 8, QImage::Format_RGB32);
        image.fill(color);
        const QString path = dir.filePath(QLatin1String(name));
        EXPECT_TRUE(image.save(path));
        return path;
    };
    const QString red = writeImage("red.png", Qt::red);
    const QString blue = writeImage("blue.png", Qt::blue);

    ASSERT_TRUE(app->addNamedEffect(QStringLiteral("Image Overlay")));
    LVEffectRef overlay = app->liveEffects().back();
    const struct {
        const char* name;
        QVariant value;
    } settings[] = {{"Image", red}, {"Size", 1.0}, {"Position", 0.0}, {"Position Y", 0.0}};
    for (const auto& setting : settings) overlay->setEffectProperty(setting.value, QLatin1String(setting.name));
    const QByteArray archived = LVEffect::dataFromEffect(*overlay);
    QJsonObject oldStyle = QJsonDocument::fromJson(archived).object();
    oldStyle.insert(QStringLiteral("Image"), blue);
    app->removeEffect(overlay);
    ASSERT_TRUE(QFile::remove(red));

    const QRgb centreAlone = [&] {
        app->renderFrame();
        return window->preview()->picture().pixel(160, 120);
    }();
    const struct { const char* what; QByteArray data; QRgb centre; } cases[] = {
        {"the archived picture, its file deleted", archived, qRgb(255, 0, 0)},
        {"an old archive holding a path", QJsonDocument(oldStyle).toJson(), qRgb(0, 0, 255)},
    };
    for (const auto& c : cases) {
        const LVEffectRef restored = LVEffect::effectFromData(c.data, app->context());
        ASSERT_TRUE(restored) << c.what;
        app->addOneEffect(restored);
        app->renderFrame();
        EXPECT_EQ(window->preview()->picture().pixel(160, 120), c.centre) << c.what;
        app->removeEffect(restored);
    }
    EXPECT_NE(centreAlone, qRgb(255, 0, 0));
    const QFileInfoList kept = QDir(LVArchivedImageFolder()).entryInfoList(QDir::Files);
    ASSERT_EQ(kept.size(), 1);
    EXPECT_EQ(kept.front().permissions() & (QFile::ReadGroup | QFile::ReadOther | QFile::WriteGroup | QFile::WriteOther), 0);
}

TEST(LVXYPadTest, MapsPositionsToValuesWithYUp)
{
    LVXYPad pad(QPointF(-1, -2), QPointF(1, 2));
    pad.resize(112, 112); // a 100-pixel square inside the margins
    const struct { QPointF position; QPointF value; } cases[] = {
        {{6, 106}, {-1, -2}}, {{106, 6}, {1, 2}}, {{56, 56}, {0, 0}}, {{-50, 500}, {-1, -2}}, {{81, 31}, {0.5, 1}},
    };
    for (const auto& c : cases) {
        const QPointF value = pad.valueAt(c.position);
        EXPECT_NEAR(value.x(), c.value.x(), 1e-9) << c.position.x();
        EXPECT_NEAR(value.y(), c.value.y(), 1e-9) << c.position.y();
    }
    pad.setValue(QPointF(5, -5));
    EXPECT_EQ(pad.value(), QPointF(1, -2)) << "values are clamped into the pad";
}

TEST(LVArchivedImageTest, DamagedArchivesLeaveTheImageEmpty)
{
    QTemporaryDir data;
    ASSERT_TRUE(data.isValid());
    qputenv("XDG_DATA_HOME", QFile::encodeName(data.path()));
    const LVParameter image = LVImageParameter(QStringLiteral("Image"), QStringLiteral("Image"));
    const QString png = QString::fromLatin1(QByteArray("\x89PNG").toBase64());
    const struct { const char* what; QJsonValue archived; bool loads; } cases[] = {
        {"whole", QJsonObject{{"format", "png"}, {"data", png}}, true},
        {"not base64", QJsonObject{{"format", "png"}, {"data", "*!*"}}, false},
        {"no data", QJsonObject{{"format", "png"}}, false},
        {"a format that names a folder", QJsonObject{{"format", "../png"}, {"data", png}}, false},
        {"a number", 7, false},
    };
    for (const auto& c : cases) {
        const QString path = image.fromJson(c.archived).toString();
        EXPECT_EQ(!path.isEmpty(), c.loads) << c.what;
        if (c.loads) {
            EXPECT_TRUE(path.startsWith(LVArchivedImageFolder() + QLatin1Char('/'))) << c.what;
        }
    }
    EXPECT_EQ(QDir(LVArchivedImageFolder()).entryList(QDir::Files).size(), 1) << "nothing written for a damaged one";
}

TEST(LVPreviewWidgetTest, WidgetPositionsBecomeFramePoints)
{
    struct Case {
        const char* what;
        QPointF position;
        QSizeF widget;
        bool mirrored, clamped;
        std::optional<QPointF> expected;
    };
    const QSizeF picture(320, 240);
    for (const Case& c : {
             // Filling the widget, bars left and right, and a press on a bar: the stroke test below.
             Case{"bars above and below", {200, 200}, {400, 400}, false, false, QPointF(0.5, 0.5)},
             Case{"on a side bar, clamped", {100, 150}, {800, 300}, false, true, QPointF(0, 0.5)},
             Case{"mirrored", {100, 75}, {400, 300}, true, false, QPointF(0.75, 0.25)},
             Case{"an empty widget", {0, 0}, {0, 0}, false, true, std::nullopt},
         }) {
        const auto got = LVPreviewWidget::framePointAt(c.position, picture, c.widget, c.mirrored, c.clamped);
        ASSERT_EQ(got.has_value(), c.expected.has_value()) << c.what;
        if (!got) continue;
        EXPECT_NEAR(got->x(), c.expected->x(), 1e-9) << c.what;
        EXPECT_NEAR(got->y(), c.expected->y(), 1e-9) << c.what;
    }
}

TEST_F(LVSettingsEditorsTest, AStrokeLandsWhereDrawnAtAnyPreviewSize)
{
    start();
    ASSERT_TRUE(app->addNamedEffect(QStringLiteral("Telestrator")));
    auto* telestrator = dynamic_cast<Telestrator*>(app->liveEffects().back().get());
    ASSERT_TRUE(telestrator);
    auto* preview = window->findChild<LVPreviewWidget*>(QStringLiteral("preview"));
    ASSERT_TRUE(preview);
    preview->showPicture(frame(), false);

    // The same picture points, drawn on a preview of two sizes (the second letterboxed).
    const std::vector<QPointF> drawn = {{0.25, 0.5}, {0.5, 0.25}, {0.75, 0.75}};
    struct Size {
        QSize widget;
        QRectF picture;  // where the picture shows inside the widget
    };
    for (const Size& s : {Size{{400, 300}, {0, 0, 400, 300}}, Size{{600, 200}, {167, 0, 266, 200}}}) {
        preview->setFixedSize(s.widget);
        QApplication::processEvents();
        ASSERT_EQ(preview->size(), s.widget);
        const auto at = [&](QPointF p) {
            return QPoint(int(std::lround(s.picture.x() + p.x() * s.picture.width())),
                          int(std::lround(s.picture.y() + p.y() * s.picture.height())));
        };
        QTest::mousePress(preview, Qt::LeftButton, {}, at(drawn[0]));
        QTest::mouseMove(preview, at(drawn[1]));
        QTest::mouseRelease(preview, Qt::LeftButton, {}, at(drawn[2]));

        const auto& strokes = telestrator->strokes().strokes();
        ASSERT_FALSE(strokes.empty());
        const LVStroke& stroke = strokes.back();
        EXPECT_FALSE(telestrator->strokes().isDrawing());
        ASSERT_EQ(stroke.points.size(), drawn.size()) << s.widget.width();
        for (size_t i = 0; i < drawn.size(); ++i) {
            // Within one widget pixel of where it was meant.
            EXPECT_NEAR(stroke.points[i].x(), drawn[i].x(), 1.0 / s.picture.width()) << s.widget.width();
            EXPECT_NEAR(stroke.points[i].y(), drawn[i].y(), 1.0 / s.picture.height()) << s.widget.width();
        }
    }
    EXPECT_EQ(telestrator->strokes().strokes().size(), 2u);

    // A press outside the picture draws nothing; nor does one with no telestrator enabled.
    QTest::mouseClick(preview, Qt::LeftButton, {}, QPoint(20, 100));
    EXPECT_EQ(telestrator->strokes().strokes().size(), 2u);
    telestrator->setEnabled(false);
    QTest::mouseClick(preview, Qt::LeftButton, {}, QPoint(300, 100));
    EXPECT_EQ(telestrator->strokes().strokes().size(), 2u);
    telestrator->setEnabled(true);

    // The user menu's action, as it comes back from the preferences.
    const auto action = LVUserMenuAction::decode(LVClearTelestratorMenuAction().encode());
    ASSERT_TRUE(action);
    EXPECT_EQ(action->summary(), QStringLiteral("Clear Telestrator"));
    action->invoke(LVUserMenuTargets{app.get(), nullptr});
    EXPECT_TRUE(telestrator->strokes().isEmpty());
}
