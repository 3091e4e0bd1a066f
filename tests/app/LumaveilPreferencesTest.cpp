// The preference table, the version rule, a damaged file, sizes and start-up/quit order.
#include "tests/app/LVControllerFixture.h"

#include "core/LVAudioOutputs.h"
#include "core/LVVideoSizes.h"

#include "core/util/LVBoundedRead.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSignalSpy>

#include <algorithm>

namespace {

// The file's bytes; a null array when it cannot be read.
QByteArray readFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QJsonObject readJson(const QString& path)
{
    return QJsonDocument::fromJson(readFile(path)).object();
}

void writeFile(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(bytes);
}

} // namespace

TEST_F(LVControllerTest, SettersWriteThroughAtOnceAndApplyAtTheNextStart)
{
    QSignalSpy changed(app.get(), &Lumaveil::preferenceChanged);
    app->setFrameRate(24);
    app->setMirrorImagePreview(true);
    app->setSyphonServerEnabled(true);
    app->setNoVirtualDriver(true);
    app->setAudioOutputDevice(QStringLiteral("Speakers"));
    EXPECT_EQ(readJson(prefsPath()), (QJsonObject{{"version", 300}, {"frameRate", 24}, {"mirrorImagePreview", true},
                                                  {"syphonServerEnabled", true}, {"noVirtualDriver", true},
                                                  {"audioOutputDevice", "Speakers"}}));
    EXPECT_GE(changed.count(), 5);
    for (int refused : {0, -1, LVMaxFrameRate + 1}) {
        app->setFrameRate(refused);
        EXPECT_EQ(app->frameRate(), 24) << refused;
    }

    app.reset();
    defaults = std::make_unique<LVDefaults>(prefsPath());
    start();
    EXPECT_EQ(app->frameRate(), 24);
    EXPECT_TRUE(app->isNoVirtualDriver());
    EXPECT_FALSE(app->shmem().appRunning());
    EXPECT_TRUE(app->isMirrorImagePreview());
}

TEST_F(LVControllerTest, UnusableStoredPreferencesFallBack)
{
    for (const QJsonValue& bad : {QJsonValue(0), QJsonValue(-5), QJsonValue("fast"), QJsonValue(100000)}) {
        defaults->setValue("frameRate", bad);
        start();
        EXPECT_EQ(app->frameRate(), 15) << QJsonDocument(QJsonObject{{"v", bad}}).toJson().constData();
    }
    // Stored sizes are "{w, h}" with doubles; anything else, or out of range, is the default size.
    const std::pair<const char*, QSize> sizes[] = {{"{1280.7,720}", {1280, 720}}, {"{0, 0}", {320, 240}},
                                                   {"640, 480", {320, 240}}, {"{99999, 10}", {320, 240}}, {"", {320, 240}}};
    for (const auto& [text, size] : sizes) {
        defaults->setValue("videoSize", text);
        EXPECT_EQ(app->videoSize(), size) << text;
    }
}

// Only values below 100 are old decimal versions: they are scaled first, then become 300.
TEST_F(LVControllerTest, OldDecimalVersionIsScaledThenBecomes300)
{
    const std::pair<QJsonValue, QList<int>> cases[] = {{2.5, {250, 300}}, {"2.1", {210, 300}}, {250, {300}}};
    for (const auto& [old, expected] : cases) {
        defaults->setValue("version", old);
        QList<int> written;
        QObject::connect(defaults.get(), &LVDefaults::valueChanged, [&](const QString& key) {
            if (key == "version") written.append(defaults->integerForKey(key));
        });
        start();
        EXPECT_EQ(written, expected);
        defaults->disconnect();
    }
}

TEST_F(LVControllerTest, DamagedPreferencesAreKeptAsideAndDefaultsUsed)
{
    app.reset();
    defaults.reset();
    const QByteArray damaged = "{\"frameRate\": 30, \"videoSize\": ";
    writeFile(prefsPath(), damaged);
    defaults = std::make_unique<LVDefaults>(prefsPath());
    ASSERT_FALSE(defaults->damagedFileBackup().isEmpty());
    EXPECT_EQ(readFile(defaults->damagedFileBackup()), damaged) << "the damaged file is never deleted";
    start();
    EXPECT_EQ(app->frameRate(), 15);
    EXPECT_EQ(readJson(prefsPath()), (QJsonObject{{"version", 300}})) << "a fresh, valid file replaces it";
    EXPECT_EQ(QDir(dir.path()).entryList({"prefs.json.damaged-*"}).size(), 1);
}

// Backup names LVDefaults may pick for a damaged file moved aside around now.
QStringList backupNamesAroundNow(const QString& path, int perSecond)
{
    QStringList names;
    const QDateTime now = QDateTime::currentDateTime();
    for (int second = -1; second <= 2; ++second) {
        const QString base =
            path + QStringLiteral(".damaged-") + now.addSecs(second).toString(QStringLiteral("yyyyMMdd-HHmmss"));
        for (int n = 1; n <= perSecond; ++n) names.append(n == 1 ? base : QStringLiteral("%1-%2").arg(base).arg(n));
    }
    return names;
}

TEST(LVDefaultsTest, AFileThatCannotBeReadOrKeptIsNeverWrittenOver)
{
    enum class Kind { TakenBackupName, NoFreeBackupName, LinkToDevZero, Huge, Directory };
    struct Case {
        Kind kind;
        bool saving;     // whether changes reach the file
        const char* log; // in the one line said
    };
    const Case cases[] = {
        {Kind::TakenBackupName, true, "moved to"},
        {Kind::NoFreeBackupName, false, "could not be moved aside (every backup name"},
        {Kind::LinkToDevZero, false, "is a symbolic link; refused; using defaults without saving"},
        {Kind::Huge, false, "is larger than the limit of 4 MB; refused"},
        {Kind::Directory, false, "is not a regular file; refused"},
    };
    const QByteArray damaged = "{\"frameRate\": 30, \"videoSize\": ";
    for (const Case& c : cases) {
        SCOPED_TRACE(int(c.kind));
        QTemporaryDir dir;
        const QString path = dir.filePath(QStringLiteral("prefs.json"));
        const QByteArray planted = "planted by someone else";
        QStringList taken;
        switch (c.kind) {
        case Kind::TakenBackupName:
        case Kind::NoFreeBackupName:
            writeFile(path, damaged);
            taken = backupNamesAroundNow(path, c.kind == Kind::TakenBackupName ? 1 : 100);
            for (const QString& name : taken) writeFile(name, planted);
            break;
        case Kind::LinkToDevZero:
            ASSERT_TRUE(QFile::link(QStringLiteral("/dev/zero"), path));
            break;
        case Kind::Huge:
            writeFile(path, damaged);
            ASSERT_TRUE(QFile(path).resize(kLVPreferencesLimit + 1));
            break;
        case Kind::Directory:
            ASSERT_TRUE(QDir().mkdir(path));
            break;
        }
        const QFileInfo before(path);
        testing::internal::CaptureStderr();
        LVDefaults defaults(path);
        defaults.setValue("frameRate", 25);
        const std::string log = testing::internal::GetCapturedStderr();
        EXPECT_NE(log.find(c.log), std::string::npos) << log;
        EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 1) << log;
        EXPECT_EQ(defaults.isSaving(), c.saving);
        EXPECT_EQ(defaults.integerForKey("frameRate"), 25) << "changes still apply in memory";
        for (const QString& name : taken) EXPECT_EQ(readFile(name), planted) << "a backup name in use was written over";
        if (c.saving) {
            EXPECT_EQ(readFile(defaults.damagedFileBackup()), damaged);
            EXPECT_EQ(readJson(path).value("frameRate").toInt(), 25);
        } else {
            const QFileInfo after(path);
            EXPECT_EQ(after.isSymLink(), before.isSymLink());
            EXPECT_EQ(after.isDir(), before.isDir());
            EXPECT_EQ(after.size(), before.size());
            if (c.kind == Kind::NoFreeBackupName) {
                EXPECT_EQ(readFile(path), damaged);
            }
        }
    }
}

TEST_F(LVControllerTest, AudioOutputDeviceReachesTheChain)
{
    for (const auto& device : LVListAudioOutputDevices()) {
        EXPECT_FALSE(device.name.isEmpty());
        EXPECT_TRUE(device.deviceClass.contains(QStringLiteral("Audio/Sink"))) << device.deviceClass.toStdString();
    }
    app->addOneEffect(make("RedSource", "S"));
    app->addOneEffect(make("Marker", "A"));
    testLog().clear();
    app->setAudioOutputDevice(QStringLiteral("USB Headset"));
    EXPECT_EQ(testLog(), (QStringList{"S.audio=USB Headset", "A.audio=USB Headset"}));
    EXPECT_EQ(app->audioOutputDevice(), "USB Headset");
    testLog().clear();
    app->addOneEffect(make("Marker", "B"));
    EXPECT_EQ(testLog(), QStringList{"B.audio=USB Headset"}) << "new effects follow the choice";
}

TEST_F(LVControllerTest, VideoSizeMenuStoresSizesForTheNextStart)
{
    EXPECT_EQ(app->videoSizeMenuIndex(), 0);
    struct Case {
        int index;
        int customW;
        int customH;
        const char* stored;
        bool custom;
        int menuIndex;
    };
    for (const Case c : {Case{4, 0, 0, "{1280, 720}", false, 4}, Case{5, 0, 500, "{320, 500}", true, 5},
                         Case{5, 800, 0, "{800, 240}", true, 5}, Case{5, 640, 480, "{640, 480}", true, 5},
                         Case{2, 0, 0, "{640, 480}", false, 2}}) {
        app->chooseVideoSizeItem(c.index, c.customW, c.customH);
        EXPECT_EQ(defaults->stringForKey("videoSize"), c.stored);
        EXPECT_EQ(defaults->boolForKey("usingCustomVideoSize"), c.custom);
        EXPECT_EQ(app->videoSizeMenuIndex(), c.menuIndex) << c.stored;
    }
    EXPECT_EQ(LVGetWidth(), 320) << "the running size does not change";
}

TEST_F(LVControllerTest, QuitMarksTheProducerNotRunningFirst)
{
    app->setStudio(std::make_unique<LVStudioDouble>(*app));
    app->setWindowFrameSource([this] {
        testLog().append(QStringLiteral("frames running=%1").arg(app->shmem().appRunning()));
        return Lumaveil::WindowFrames{QStringLiteral("{{10, 20}, {800, 600}}"), QStringLiteral("{5, 6}")};
    });
    app->renderFrame();
    EXPECT_TRUE(app->shmem().appRunning());
    testLog().clear();
    app->applicationWillTerminate();
    EXPECT_EQ(testLog(), (QStringList{"frames running=0", "studio running=0"}));
    const QJsonObject stored = readJson(prefsPath());
    EXPECT_EQ(stored.value("windowFrame").toString(), "{{10, 20}, {800, 600}}");
    EXPECT_EQ(stored.value("previewOrigin").toString(), "{5, 6}");
}
