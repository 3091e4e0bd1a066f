// The control interface's timeline and user-menu commands.
#include "automation/LVTimeLineManager.h"
#include "control/remote/LVControlCommands.h"
#include "control/usermenu/LVAutomationCommands.h"
#include "control/usermenu/LVUserMenu.h"
#include "core/LVDefaults.h"
#include "core/Lumaveil.h"
#include "tests/support/LVTestSupport.h"

#include <gtest/gtest.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QTemporaryDir>

namespace {

QString compact(const QJsonObject& object)
{
    return QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact));
}

TEST(LVAutomationCommandsTest, TimelinesAndTheUserMenuAreDrivenByName)
{
    lvEnsureApplication();
    QTemporaryDir dir;
    LVDefaults defaults(dir.filePath(QStringLiteral("prefs.json")));
    LVLaunchOptions options;
    options.startTimer = false;
    options.noPublish = true;
    options.folders.bundled = dir.filePath(QStringLiteral("none"));
    QString error;
    const std::unique_ptr<Lumaveil> app = Lumaveil::create(defaults, options, &error);
    ASSERT_TRUE(app) << error.toStdString();

    LVTimeLineManager timeLines(defaults, app.get(), nullptr);
    timeLines.startup();
    LVTimeLine* show = timeLines.newTimeLine();
    show->setName(QStringLiteral("Show"));
    show->addItemNamed(QStringLiteral("Pause"));
    timeLines.newTimeLine()->setName(QStringLiteral("Show")); // the second of a name is never reached
    LVUserMenu menu(defaults, {app.get(), &timeLines});
    menu.awakeFromNib();
    menu.addEntry();
    menu.setCurrentAction(menu.addEntry(), std::make_unique<LVStopTimeLineMenuAction>(*show));
    menu.shortcutRecorderKeyComboDidChange(1, LVKeyComboFromQt(Qt::Key_S, Qt::ControlModifier));
    LVControlCommands commands(*app);
    LVAddAutomationCommands(commands, timeLines, menu);

    const struct {
        const char* request;
        const char* reply;
    } rows[] = {
        {R"({"command":"timelines"})", R"({"ok":true,"result":[{"name":"Show","state":0},{"name":"Show","state":0}]})"},
        {R"({"command":"startTimeline","name":"Show"})", R"({"ok":true,"result":{"name":"Show","state":1}})"},
        {R"({"command":"pauseTimeline","name":"Show"})", R"({"ok":true,"result":{"name":"Show","state":3}})"},
        {R"({"command":"startTimeline","name":"Nope"})", R"({"error":"no timeline named \"Nope\"","ok":false})"},
        {R"({"command":"stopTimeline"})", nullptr},
        {R"({"command":"userMenu"})",
         R"({"ok":true,"result":[{"exclusive":false,"index":0,"shortcut":"","summary":""},)"
         R"({"exclusive":false,"index":1,"shortcut":"Ctrl+S","summary":"Stop Automation \"Show\""}]})"},
        {R"({"command":"invokeUserMenu","index":0})", R"({"error":"user menu entry 0 has no action","ok":false})"},
        {R"({"command":"invokeUserMenu","index":2})", R"j({"error":"no user menu entry at index 2 (there are 2)","ok":false})j"},
        {R"({"command":"invokeUserMenu","index":0.5})", R"({"error":"invokeUserMenu takes \"index\", a whole number","ok":false})"},
        {R"({"command":"invokeUserMenu","index":1})", R"({"ok":true,"result":{"index":1,"summary":"Stop Automation \"Show\""}})"},
        {R"({"command":"timelines"})", R"({"ok":true,"result":[{"name":"Show","state":0},{"name":"Show","state":0}]})"},
    };
    for (const auto& row : rows) {
        const QJsonObject reply = commands.handle(QJsonDocument::fromJson(row.request).object());
        if (!row.reply) {
            EXPECT_FALSE(reply.value(QStringLiteral("ok")).toBool()) << row.request;
            continue;
        }
        EXPECT_EQ(compact(reply), QString::fromUtf8(row.reply)) << row.request;
    }
}

} // namespace
