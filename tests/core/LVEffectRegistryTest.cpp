#include "TestEffects.h"

#include "core/LVEffectRegistry.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

TEST(VersionString, ParsesMajorAndMinorOnly)
{
    const std::pair<const char*, int32_t> cases[] = {{"10.8", 1008}, {"10.8.5", 1008}, {"10.10", 1010}, {"12.0", 1200},
                                                      {"9.2", -1},    {"10", -1},       {"Extras", -1}, {"", -1},
                                                      {"11.x", -1}};
    for (const auto& [text, expected] : cases) EXPECT_EQ(parseVersionString(text), expected) << text;
}

// A composition file with the given header object (as JSON text).
void writeComposition(const QString& path, const QByteArray& header = R"({"INPUTS":[]})")
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("/*" + header + "*/\nvoid main() { gl_FragColor = vec4(1.0); }\n");
}

class Registry : public testing::Test {
protected:
    LVEffectFolders folders(int32_t version = 1008)
    {
        return {dir_.filePath("bundled"), dir_.filePath("user"), dir_.filePath("system"), version};
    }
    static QStringList names(const LVEffectRegistry::FactoryList& list)
    {
        QStringList out;
        for (const auto& f : list) out << f->name();
        return out;
    }
    QTemporaryDir dir_;
};

TEST_F(Registry, FoldersAreSearchedInOrderAndSystemCompositionsFiltered)
{
    const QByteArray plain = R"({"INPUTS":[]})";
    struct Case {
        const char* what;
        std::vector<std::pair<const char*, QByteArray>> files;
        int32_t version;
        QStringList effects, transitions;
        const char* fileName; // and the path that serves it
        const char* servedFrom;
    };
    const Case cases[] = {
        {"the version folder wins; newer and foreign folders are skipped (10.10 > 10.8)",
         {{"user/Blur.fs", plain}, {"user/10.6/Blur.fs", plain}, {"user/10.9/Future.fs", plain},
          {"user/Extras/Extra.fs", plain}, {"user/10.10/Lexical.fs", plain}},
         1008, {"Blur"}, {}, "Blur.fs", "user/10.6/Blur.fs"},
        // "10.9" sorts above "10.10" as a string, so it loads first.
        {"version folders load in descending lexical order",
         {{"user/10.9/Shared.fs", plain}, {"user/10.10/Shared.fs", plain}}, 1010, {"Shared"}, {}, "Shared.fs",
         "user/10.9/Shared.fs"},
        {"bundled wins over user; a missing system folder is fine",
         {{"bundled/Tint.fs", plain}, {"user/Tint.fs", plain}}, 1008, {"Tint"}, {}, "Tint.fs", "bundled/Tint.fs"},
        {"system compositions are filtered by their attributes, plug-in folders are not",
         {{"system/Plain.fs", plain},
          {"system/Filter.fs", R"({"protocols":["ImageFilter","Other"]})"},
          {"system/OtherProtocol.fs", R"({"protocols":["Generator"]})"},
          {"system/Backdrop.fs", R"({"isBackdrop":true})"},
          {"system/Face.fs", R"({"isFaceTrackingEffect":true})"},
          {"system/Broken.fs", R"({"INPUTS": [)"},
          {"user/Generator.fs", R"({"protocols":["Generator"]})"}},
         1008, {"Broken", "Filter", "Generator", "Plain"}, {}, "Plain.fs", "system/Plain.fs"},
        {"transitions are listed apart",
         {{"user/Dissolve.fs", R"({"INPUTS":[{"NAME":"targetImage","TYPE":"image"},{"NAME":"transitionTime","TYPE":"float"}]})"},
          {"user/Wipe.fs",
           R"({"INPUTS":[{"NAME":"startImage","TYPE":"image"},{"NAME":"endImage","TYPE":"image"},{"NAME":"progress","TYPE":"float"}]})"},
          {"user/Half.fs", R"({"INPUTS":[{"NAME":"targetImage","TYPE":"image"}]})"}},
         1008, {"Half"}, {"Dissolve", "Wipe"}, "Wipe.fs", "user/Wipe.fs"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        QTemporaryDir dir;
        for (const auto& [file, header] : c.files) writeComposition(dir.filePath(file), header);
        LVEffectRegistry registry({dir.filePath("bundled"), dir.filePath("user"), dir.filePath("system"), c.version});
        registry.findEffects();
        EXPECT_EQ(names(registry.allEffects()), c.effects);
        EXPECT_EQ(names(registry.transitions()), c.transitions);
        EXPECT_EQ(registry.effectPathFromFilename(c.fileName), dir.filePath(c.servedFrom));
    }
}

TEST_F(Registry, HiddenFilesOtherTypesAndSymlinks)
{
    writeComposition(dir_.filePath("user/.Hidden.fs"));
    writeComposition(dir_.filePath("elsewhere/Linked.fs"));
    QFile(dir_.filePath("user/notes.txt")).open(QIODevice::WriteOnly);
    QFile::link(dir_.filePath("elsewhere/Linked.fs"), dir_.filePath("user/Linked.fs"));
    LVEffectRegistry registry(folders());
    registry.findEffects();
    EXPECT_EQ(names(registry.allEffects()), QStringList{"Linked"});
}

TEST_F(Registry, EffectsSortCaseInsensitivelyButNamesMatchExactly)
{
    writeComposition(dir_.filePath("user/glow.fs"));
    writeComposition(dir_.filePath("user/Glow.fs"));
    writeComposition(dir_.filePath("user/Aura.fs"));
    writeComposition(dir_.filePath("user/zoom.fs"));
    LVEffectRegistry registry(folders());
    registry.findEffects();
    const QStringList sorted = names(registry.allEffects());
    EXPECT_EQ(sorted.first(), "Aura");
    EXPECT_EQ(sorted.last(), "zoom");
    EXPECT_EQ(sorted.mid(1, 2).join(',').toLower(), "glow,glow");

    QString asked;
    LVQCEffectFactory::setCompositionEffectMaker([&](LVContext*, const QString& fileName) {
        asked = fileName;
        auto e = blurDescriptor().make();
        e->initWithContext(nullptr);
        return LVMakeEffectHandle(std::move(e));
    });
    EXPECT_TRUE(registry.instantiateNamedEffect("glow", nullptr));
    EXPECT_EQ(asked, "glow.fs");
    testing::internal::CaptureStderr();
    EXPECT_FALSE(registry.instantiateNamedEffect("GLOW", nullptr));
    EXPECT_NE(testing::internal::GetCapturedStderr().find("No effect named \"GLOW\""), std::string::npos);
    LVQCEffectFactory::setCompositionEffectMaker(nullptr);
}

TEST_F(Registry, BuiltInsKeepTheDocumentedOrderWhateverTheRegistrationOrder)
{
    registerNamedKind("AppleScriptEffect", "AppleScript", LVEffectRole::Effect);
    registerNamedKind("ZExtraSource", "Extra Source", LVEffectRole::Source);
    registerNamedKind("SlideShow", "Slide Show", LVEffectRole::Source);
    registerNamedKind("CamSource", "Webcam", LVEffectRole::Source);
    LVEffectRegistry registry(folders());
    int announcements = 0;
    registry.setChangeObserver([&](const QString&) { ++announcements; });
    registry.findEffects();
    const QStringList sources = names(registry.allSources());
    EXPECT_LT(sources.indexOf("Webcam"), sources.indexOf("Slide Show"));
    EXPECT_LT(sources.indexOf("Slide Show"), sources.indexOf("Extra Source"));
    EXPECT_TRUE(names(registry.allEffects()).contains("AppleScript"));
    EXPECT_EQ(announcements, 3);
    EXPECT_TRUE(registry.instantiateNamedSource("Webcam", nullptr));
    EXPECT_FALSE(registry.instantiateNamedSource("webcam", nullptr));
}

TEST_F(Registry, PluginsLoadForRealAndBrokenOnesAreReportedWithoutStoppingOthers)
{
    const QString folder = dir_.filePath("user");
    QDir().mkpath(folder);
    for (const char* name : {"good_plugin.so", "throwing_plugin.so", "no_entry_plugin.so"}) {
        ASSERT_TRUE(QFile::copy(QStringLiteral(LV_TEST_PLUGIN_DIR "/") + name, folder + "/" + name)) << name;
    }
    QFile garbage(folder + "/garbage.so");
    ASSERT_TRUE(garbage.open(QIODevice::WriteOnly));
    garbage.write("not an ELF file");
    garbage.close();
    writeComposition(folder + "/Zoom.fs");

    LVEffectRegistry registry(folders());
    testing::internal::CaptureStderr();
    registry.findEffects();
    const std::string log = testing::internal::GetCapturedStderr();

    EXPECT_NE(log.find("throwing_plugin.so failed while registering: no licence for this machine"), std::string::npos)
        << log;
    EXPECT_NE(log.find("no_entry_plugin.so not loaded: it has no entry point LVPluginRegister"), std::string::npos)
        << log;
    EXPECT_NE(log.find("garbage.so not loaded:"), std::string::npos) << log;
    const QStringList effects = names(registry.allEffects());
    EXPECT_TRUE(effects.contains("Zoom"));
    ASSERT_TRUE(effects.contains("Plugin Glow"));
    const auto& glowFactory = registry.allEffects()[effects.indexOf("Plugin Glow")];
    EXPECT_EQ(glowFactory->origin(), LVEffectOrigin::Plugin);
    EXPECT_EQ(glowFactory->path(), folder + "/good_plugin.so");

    auto glow = registry.instantiateNamedEffect("Plugin Glow", nullptr);
    ASSERT_TRUE(glow);
    auto decoded = LVEffect::effectFromData(LVEffect::dataFromEffect(*glow), nullptr);
    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->descriptor().className, "PluginGlow");

    // A refresh keeps plug-in kinds out of the built-ins and lists them once.
    registry.findEffects();
    EXPECT_EQ(names(registry.allEffects()).count("Plugin Glow"), 1);
}

} // namespace
