#include "SetupTestKinds.h"
#include "setups/model/LVSavedSetup.h"

#include <QBuffer>
#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSignalSpy>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

QByteArray sourceBlob()
{
    return LVEffect::dataFromEffect(*newTestEffect(setupTestSource()));
}

QByteArray effectBlob(const QString& name = {})
{
    return LVEffect::dataFromEffect(*newTestEffect(setupTestEffect(), name));
}

QString b64(const QByteArray& bytes)
{
    return QString::fromLatin1(bytes.toBase64());
}

QByteArray json(const QJsonValue& value)
{
    return value.isArray() ? QJsonDocument(value.toArray()).toJson() : QJsonDocument(value.toObject()).toJson();
}

QByteArray pngOf(const QImage& image)
{
    QByteArray png;
    QBuffer buffer(&png);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "PNG");
    return png;
}

QImage redImage(int w, int h)
{
    QImage image(w, h, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::red);
    return image;
}

QJsonObject fileObject(const QString& path)
{
    return QJsonDocument::fromJson(readAll(path)).object();
}

class SavedSetup : public testing::Test {
protected:
    void SetUp() override { registerSetupTestKinds(); }
    QString path(const QString& name) const { return dir_.filePath(name); }

    QTemporaryDir dir_;
};

struct FileFormCase {
    const char* label;
    QByteArray bytes;
    LVSavedSetup::FileForm form;
    int numEffects;
    uint32_t midiKey;
    bool hasVideoSource;
    bool hasIcon;
};

TEST_F(SavedSetup, ReadsEveryFileForm)
{
    using F = LVSavedSetup::FileForm;
    const QByteArray png = pngOf(redImage(4, 4));
    const std::vector<FileFormCase> cases = {
        {"dictionary", json(QJsonObject{{"encoded", QJsonArray{b64(sourceBlob()), b64(effectBlob())}},
                                        {"midiKey", 42}, {"icon", b64(png)}}),
         F::Dictionary, 2, 42, true, true},
        {"dictionary without optional keys", json(QJsonObject{{"encoded", QJsonArray{b64(effectBlob())}}}),
         F::Dictionary, 1, 0, false, false},
        {"dictionary with nothing", "{}", F::Dictionary, 0, 0, false, false},
        {"legacy array, effect first", json(QJsonArray{b64(effectBlob()), b64(sourceBlob())}), F::LegacyArray, 2, 0,
         false, false},
        {"legacy array, source first", json(QJsonArray{b64(sourceBlob())}), F::LegacyArray, 1, 0, true, false},
        {"effect written as an object", R"({"encoded": [{"class": "SetupTestSource", "enabled": true}]})",
         F::Dictionary, 1, 0, true, false},
        {"unknown kind first", json(QJsonObject{{"encoded", QJsonArray{b64(kForeignBlob), b64(sourceBlob())}}}),
         F::Dictionary, 2, 0, false, false},
        {"empty file", "", F::Unreadable, 0, 0, false, false},
        {"truncated", json(QJsonObject{{"encoded", QJsonArray{b64(sourceBlob())}}}).left(30), F::Unreadable, 0, 0,
         false, false},
        {"another program's JSON", "3", F::Unreadable, 0, 0, false, false},
        {"binary", pngOf(redImage(2, 2)), F::Unreadable, 0, 0, false, false},
        {"encoded not a list", R"({"encoded": "abc"})", F::Unreadable, 0, 0, false, false},
        {"blob not base64", R"({"encoded": ["%%%"]})", F::Unreadable, 0, 0, false, false},
        {"midiKey not a number", R"({"encoded": [], "midiKey": "C4"})", F::Unreadable, 0, 0, false, false},
        {"icon not base64", R"({"encoded": [], "icon": 7})", F::Unreadable, 0, 0, false, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.label);
        writeAll(path("Setup"), c.bytes);
        const LVSavedSetup setup(nullptr, path("Setup"));
        EXPECT_EQ(setup.fileForm(), c.form);
        EXPECT_EQ(setup.loadError().isEmpty(), c.form != F::Unreadable);
        EXPECT_EQ(setup.numEffects(), c.numEffects);
        EXPECT_EQ(setup.midiKey(), c.midiKey);
        EXPECT_EQ(setup.hasVideoSource(), c.hasVideoSource);
        EXPECT_EQ(!setup.icon().isNull(), c.hasIcon);
        EXPECT_EQ(setup.name(), "Setup");
    }
}

TEST_F(SavedSetup, BlobsInEveryBase64Spelling)
{
    const std::vector<std::pair<QString, QByteArray>> cases = {
        {"", ""},         {"YQ==", "a"},  {"YWI=", "ab"},     {"YWJj", "abc"}, {"YQ", "a"},
        {"/+8A", QByteArray("\xff\xef\x00", 3)}, {"YWJjZA==", "abcd"}, {"YQ=a", {}},      {"Y===", {}}, {"é===", {}},
    };
    for (const auto& [text, bytes] : cases) {
        SCOPED_TRACE(text.toStdString());
        writeAll(path("Blobs"), json(QJsonObject{{"encoded", QJsonArray{text}}}));
        const LVSavedSetup setup(nullptr, path("Blobs"));
        if (bytes.isNull()) {
            EXPECT_EQ(setup.fileForm(), LVSavedSetup::FileForm::Unreadable);
        } else {
            ASSERT_EQ(setup.numEffects(), 1);
            EXPECT_EQ(setup.encoded().front(), bytes);
        }
    }
}

TEST_F(SavedSetup, LegacyArrayIsRewrittenAsDictionaryOnFirstPersist)
{
    const QJsonArray blobs{b64(sourceBlob()), b64(effectBlob("Warm"))};
    writeAll(path("Old"), json(blobs));
    LVSavedSetup setup(nullptr, path("Old"));
    ASSERT_EQ(setup.fileForm(), LVSavedSetup::FileForm::LegacyArray);
    EXPECT_EQ(readAll(path("Old")), json(blobs)) << "reading never writes";

    ASSERT_TRUE(setup.persist());
    const QJsonObject stored = fileObject(path("Old"));
    EXPECT_EQ(stored.value("encoded").toArray(), blobs);
    EXPECT_EQ(stored.value("midiKey").toInt(-1), 0);
    EXPECT_FALSE(stored.contains("icon"));
    EXPECT_EQ(LVSavedSetup(nullptr, path("Old")).fileForm(), LVSavedSetup::FileForm::Dictionary);
}

// A newer build's effect and keys come back byte for byte, whatever the setup goes through; a
// duplicate is written at once, icon and key included, and leaves the original as it was.
TEST_F(SavedSetup, UnknownKindsAndKeysKeepTheirBytesThroughRenameAndDuplicate)
{
    const QJsonObject original{{"encoded", QJsonArray{b64(sourceBlob()), b64(kForeignBlob)}},
                               {"midiKey", 3},
                               {"tags", QJsonArray{"news", "live"}}};
    writeAll(path("Future"), json(original));
    LVSavedSetup setup(nullptr, path("Future"));
    EXPECT_EQ(setup.instantiateWithContext(nullptr).size(), 1u) << "the unknown kind is skipped when loading";

    setup.setMidiKey(9);
    setup.setIcon(redImage(64, 64));
    setup.setName("Future Renamed");
    const QByteArray renamedBytes = readAll(path("Future Renamed"));
    LVSavedSetup copy(std::vector<LVEffectRef>{}, path("Copy"));
    QSignalSpy sourceChanged(&copy, &LVSavedSetup::hasVideoSourceChanged);
    copy.duplicateFrom(LVSavedSetup(nullptr, path("Future Renamed")));
    EXPECT_EQ(sourceChanged.count(), 1) << "the list redraws the copy";
    EXPECT_EQ(readAll(path("Future Renamed")), renamedBytes) << "the original is untouched";

    for (const QString& name : {QString("Future Renamed"), QString("Copy")}) {
        SCOPED_TRACE(name.toStdString());
        const QJsonObject stored = fileObject(path(name));
        const QJsonArray blobs = stored.value("encoded").toArray();
        ASSERT_EQ(blobs.size(), 2);
        EXPECT_EQ(QByteArray::fromBase64(blobs.at(1).toString().toLatin1()), kForeignBlob);
        EXPECT_EQ(stored.value("tags"), original.value("tags"));
        EXPECT_EQ(stored.value("midiKey").toInt(), 9);
        const LVSavedSetup reread(nullptr, path(name));
        EXPECT_EQ(reread.encoded(), setup.encoded());
        EXPECT_EQ(reread.iconData(), setup.iconData());
    }
}

TEST_F(SavedSetup, UnreadableFileIsNeverOverwrittenUnlessTheUserActs)
{
    const QByteArray damaged = "{\"encoded\": [\"eyJjbGFzcyI6";
    writeAll(path("Broken"), damaged);
    {
        LVSavedSetup setup(nullptr, path("Broken"));
        EXPECT_EQ(setup.fileForm(), LVSavedSetup::FileForm::Unreadable);
        EXPECT_TRUE(setup.instantiateWithContext(nullptr).empty());
    }
    EXPECT_EQ(readAll(path("Broken")), damaged);

    // Renaming moves the file as it is.
    LVSavedSetup setup(nullptr, path("Broken"));
    setup.setName("Still Broken");
    EXPECT_FALSE(QFile::exists(path("Broken")));
    EXPECT_EQ(readAll(path("Still Broken")), damaged);

    // Writing over it first keeps the original aside, hidden from the folder scan.
    setup.setMidiKey(5);
    EXPECT_EQ(readAll(path(".Still Broken.unreadable")), damaged);
    EXPECT_EQ(LVSavedSetup(nullptr, path("Still Broken")).midiKey(), 5u);
    writeAll(path("Still Broken"), damaged);
    LVSavedSetup again(nullptr, path("Still Broken"));
    again.persist();
    EXPECT_EQ(readAll(path(".Still Broken.unreadable.1")), damaged) << "an earlier kept copy is not replaced";
}

TEST_F(SavedSetup, RenameMovesTheFileOrKeepsNameAndFileWhenItCannot)
{
    const struct {
        const char* label;
        QString from, to;
        bool targetExists, targetIsFolder, renamed;
    } cases[] = {
        {"plain", "Morning", "Evening", false, false, true},
        {"case only", "news", "News", false, false, true},
        {"onto an existing file", "A", "B", true, false, true},
        {"with spaces and accents", "Intro", "Café – Live", false, false, true},
        {"onto a folder", "Here", "Blocker", false, true, false},
        {"its own name", "Here", "Here", false, false, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.label);
        QDir(dir_.path()).removeRecursively();
        QDir().mkpath(dir_.path());
        if (c.targetExists) writeAll(path(c.to), "old bytes");
        if (c.targetIsFolder) QDir(dir_.path()).mkdir(c.to);
        LVSavedSetup setup({newTestEffect(setupTestSource())}, path(c.from));
        setup.setMidiKey(60);
        const QByteArray before = readAll(path(c.from));
        QSignalSpy renamed(&setup, &LVSavedSetup::nameChanged);

        // Keeping its own name is no failure; a folder in the way is.
        EXPECT_EQ(setup.setName(c.to), c.renamed || c.from == c.to);
        EXPECT_EQ(renamed.count(), c.renamed ? 1 : 0);
        const QString now = c.renamed ? c.to : c.from;
        EXPECT_EQ(setup.name(), now);
        EXPECT_EQ(setup.path(), path(now));
        EXPECT_EQ(QFile::exists(path(c.from)), !c.renamed);
        const LVSavedSetup reread(nullptr, path(now));
        EXPECT_EQ(reread.midiKey(), 60u);
        EXPECT_TRUE(reread.hasVideoSource());
        if (!c.renamed) {
            EXPECT_EQ(readAll(path(now)), before);
        }
        EXPECT_EQ(QDir(dir_.path()).entryList(QDir::Files).size(), 1);
    }
}

TEST_F(SavedSetup, InstantiatesFreshEffectsMarkedWithTheSetupName)
{
    auto tint = newTestEffect(setupTestEffect(), "Warm");
    tint->setParameterValue("amount", 0.25);
    tint->setEnabled(false);
    LVSavedSetup setup({newTestEffect(setupTestSource()), tint}, path("Morning"));
    setup.persist();

    const LVSavedSetup reread(nullptr, path("Morning"));
    const auto first = reread.instantiateWithContext(nullptr);
    const auto second = reread.instantiateWithContext(nullptr);
    ASSERT_EQ(first.size(), 2u);
    ASSERT_EQ(second.size(), 2u);
    EXPECT_NE(first[1].get(), second[1].get());
    EXPECT_TRUE(first[0]->isSource());
    EXPECT_EQ(first[1]->displayName(), "Warm (Morning)");
    EXPECT_FALSE(first[1]->isEnabled());
    EXPECT_DOUBLE_EQ(first[1]->parameterValue("amount").toDouble(), 0.25);
}

TEST_F(SavedSetup, NameProblems)
{
    const std::vector<std::pair<QString, bool>> cases = {
        {"Morning Show", true}, {"Café", true},        {"a.b", true},
        {"", false},            {"News/Weather", false}, {".hidden", false},
        {QString(256, 'a'), false}, {QString(85, QChar(0x20AC)), true}, {QString(86, QChar(0x20AC)), false},
    };
    for (const auto& [name, usable] : cases) {
        EXPECT_EQ(LVSavedSetup::nameProblem(name).isEmpty(), usable) << name.toStdString();
    }
}

TEST_F(SavedSetup, IconIsTheFrameFittedOnBlack)
{
    const QRgb red = qRgb(255, 0, 0), black = qRgb(0, 0, 0);
    const QImage wide = LVSavedSetup::iconFromFrame(redImage(320, 160));
    ASSERT_EQ(wide.size(), QSize(64, 64));
    EXPECT_EQ((std::vector{wide.pixel(32, 32), wide.pixel(32, 4), wide.pixel(32, 60)}), (std::vector{red, black, black}));
    const QImage tall = LVSavedSetup::iconFromFrame(redImage(100, 200));
    EXPECT_EQ((std::vector{tall.pixel(32, 32), tall.pixel(4, 32)}), (std::vector{red, black}));
}

} // namespace
