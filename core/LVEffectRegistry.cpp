#include "core/LVEffectRegistry.h"

#include "core/LVCompositionHeader.h"
#include "core/util/KDFileUtil.h"
#include "core/util/LVLog.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMap>
#include <QRegularExpression>
#include <QSet>

#include <dlfcn.h>

#include <algorithm>
#include <cstdio>
#include <exception>

namespace {

LVEffectRegistry* currentRegistry = nullptr;
LVQCEffectFactory::CompositionEffectMaker& compositionMaker()
{
    static LVQCEffectFactory::CompositionEffectMaker maker;
    return maker;
}

LVQCEffectFactory::CompositionEffectMaker& generatorSourceMaker()
{
    static LVQCEffectFactory::CompositionEffectMaker maker;
    return maker;
}

// Class names that came from plug-ins; the built-in catalogue leaves them out.
QSet<QString>& pluginClassNames()
{
    static QSet<QString> names;
    return names;
}

LVEffectRef instantiateNamed(const LVEffectRegistry::FactoryList& list, const QString& name, LVContext* context,
                             const char* what)
{
    for (const auto& factory : list) {
        if (factory->name() == name) return factory->instantiateWithContext(context);
    }
    LVLog("No %s named \"%s\"", what, qPrintable(name));
    return nullptr;
}

QString readOsReleaseVersion()
{
    QFile file(QStringLiteral("/etc/os-release"));
    if (!file.open(QIODevice::ReadOnly)) return {};
    static const QRegularExpression versionLine(QStringLiteral("^VERSION_ID=\"?([^\"\\n]*)\"?$"),
                                                QRegularExpression::MultilineOption);
    const auto match = versionLine.match(QString::fromUtf8(file.readAll()));
    return match.hasMatch() ? match.captured(1) : QString();
}

} // namespace

QString LVEffectOriginName(LVEffectOrigin origin)
{
    switch (origin) {
    case LVEffectOrigin::BuiltIn: return QStringLiteral("built-in");
    case LVEffectOrigin::BundledFolder: return QStringLiteral("bundled folder");
    case LVEffectOrigin::UserFolder: return QStringLiteral("user folder");
    case LVEffectOrigin::SystemFolder: return QStringLiteral("system folder");
    case LVEffectOrigin::Plugin: return QStringLiteral("plug-in");
    }
    return {};
}

LVBuiltinEffectFactory::LVBuiltinEffectFactory(const LVEffectDescriptor* effectClass, LVEffectOrigin origin,
                                               QString path)
    : LVEffectFactory(effectClass->name, origin, std::move(path)), effectClass_(effectClass)
{
}

LVEffectRef LVBuiltinEffectFactory::instantiateWithContext(LVContext* context) const
{
    std::unique_ptr<LVEffect> effect = effectClass_->make();
    if (!effect) return nullptr;
    effect->initWithContext(context);
    return LVMakeEffectHandle(std::move(effect));
}

LVQCEffectFactory::LVQCEffectFactory(const QString& path, LVEffectOrigin origin)
    : LVEffectFactory(nameFromPath(path), origin, path), isTransition_(false), isGenerator_(false)
{
    const LVCompositionHeader header = LVCompositionHeader::read(path);
    isTransition_ = header.isTransition();
    isGenerator_ = header.isGenerator();
}

QString LVQCEffectFactory::nameFromPath(const QString& path)
{
    return QFileInfo(path).completeBaseName();
}

LVEffectRef LVQCEffectFactory::instantiateWithContext(LVContext* context) const
{
    if (!compositionMaker()) {
        LVLog("Composition %s cannot be instantiated: no composition effect kind is registered", qPrintable(path()));
        return nullptr;
    }
    return compositionMaker()(context, QFileInfo(path()).fileName());
}

void LVQCEffectFactory::setCompositionEffectMaker(CompositionEffectMaker maker)
{
    compositionMaker() = std::move(maker);
}

LVQCSourceFactory::LVQCSourceFactory(const LVQCEffectFactory& composition)
    : LVEffectFactory(composition.name(), composition.origin(), composition.path())
{
}

LVEffectRef LVQCSourceFactory::instantiateWithContext(LVContext* context) const
{
    if (!generatorSourceMaker()) {
        LVLog("Generator %s cannot be a source: no generator source kind is registered", qPrintable(path()));
        return nullptr;
    }
    return generatorSourceMaker()(context, QFileInfo(path()).fileName());
}

void LVQCSourceFactory::setGeneratorSourceMaker(LVQCEffectFactory::CompositionEffectMaker maker)
{
    generatorSourceMaker() = std::move(maker);
}

int32_t parseVersionString(const QString& version)
{
    int major = 0, minor = 0;
    if (std::sscanf(version.toUtf8().constData(), "%d.%d", &major, &minor) < 2) return -1;
    if (major < 10) return -1;
    return major * 100 + minor;
}

QString LVSystemVersionString()
{
    QString version = qEnvironmentVariable("LUMAVEIL_OS_VERSION");
    if (version.isEmpty()) version = readOsReleaseVersion();
    // Linux releases often name only a major version.
    if (!version.isEmpty() && !version.contains(QLatin1Char('.'))) version += QStringLiteral(".0");
    return version;
}

LVEffectFolders LVEffectFolders::standard()
{
    LVEffectFolders folders;
    folders.bundled = qEnvironmentVariable("LUMAVEIL_EFFECTS_DIR");
    if (folders.bundled.isEmpty()) {
        // Installed: <prefix>/bin/lumaveil beside <prefix>/share/lumaveil/Effects.
        const QString appDir = QCoreApplication::instance() ? QCoreApplication::applicationDirPath() : QString();
        folders.bundled = QDir::cleanPath(appDir + QStringLiteral("/../share/lumaveil/Effects"));
    }
    folders.user = KDFileUtil::findApplicationSupportFor(QStringLiteral("Lumaveil")) + QStringLiteral("/Effects");
    folders.system = qEnvironmentVariable("LUMAVEIL_COMPOSITIONS_DIR");
    if (folders.system.isEmpty()) {
        const QString appDir = QCoreApplication::instance() ? QCoreApplication::applicationDirPath() : QString();
        folders.system = QDir::cleanPath(appDir + QStringLiteral("/../share/lumaveil/Compositions"));
    }
    folders.systemVersion = parseVersionString(LVSystemVersionString());
    return folders;
}

LVEffectRegistry::LVEffectRegistry(LVEffectFolders folders) : folders_(std::move(folders))
{
    allSources_.reserve(5);
    allEffects_.reserve(5);
    transitions_.reserve(5);
    effectFileMapping_.reserve(50);
    currentRegistry = this;
}

LVEffectRegistry::~LVEffectRegistry()
{
    if (currentRegistry == this) currentRegistry = nullptr;
}

LVEffectRegistry* LVEffectRegistry::current()
{
    return currentRegistry;
}

const QStringList& LVEffectRegistry::builtInOrder()
{
    static const QStringList order = {
        QStringLiteral("CamSource"),    QStringLiteral("DesktopPlus"),  QStringLiteral("DesktopLion"),
        QStringLiteral("SlideShow"),    QStringLiteral("MovieSource"),  QStringLiteral("FlickrSource"),
        QStringLiteral("SyphonSource"), QStringLiteral("iTunesSong"),   QStringLiteral("Telestrator"),
        QStringLiteral("AppleScriptEffect"),
    };
    return order;
}

void LVEffectRegistry::addEffectFactory(std::shared_ptr<LVEffectFactory> factory)
{
    if (factory->isSource()) {
        allSources_.push_back(std::move(factory));
    } else if (factory->isTransition()) {
        transitions_.push_back(std::move(factory));
    } else {
        allEffects_.push_back(std::move(factory));
    }
}

void LVEffectRegistry::findBuiltInEffects()
{
    // The documented kinds keep their order whatever order they registered in; kinds
    // outside that list follow in registration order.
    for (const QString& className : builtInOrder()) {
        if (className == QStringLiteral("DesktopLion")) LVEffect::remapEffect(QStringLiteral("DesktopEffect"), className);
        if (const auto* cls = LVEffectClasses::classNamed(className)) {
            addEffectFactory(std::make_shared<LVBuiltinEffectFactory>(cls));
        }
    }
    for (const auto* cls : LVEffectClasses::allClasses()) {
        if (builtInOrder().contains(cls->className) || pluginClassNames().contains(cls->className) || !cls->make ||
            cls->name.isEmpty()) {
            continue;
        }
        addEffectFactory(std::make_shared<LVBuiltinEffectFactory>(cls));
    }
}

void LVEffectRegistry::findPluginEffects()
{
    scanEffectDir(folders_.bundled, LVEffectOrigin::BundledFolder);
    scanEffectDir(folders_.user, LVEffectOrigin::UserFolder);
}

void LVEffectRegistry::find3rdPartyEffects()
{
    loadEffectsFrom(folders_.system, true, LVEffectOrigin::SystemFolder);
}

void LVEffectRegistry::findEffects()
{
    allSources_.clear();
    allEffects_.clear();
    effectFileMapping_.clear();
    transitions_.clear();
    findBuiltInEffects();
    findPluginEffects();
    find3rdPartyEffects();
    std::stable_sort(allEffects_.begin(), allEffects_.end(), [](const auto& a, const auto& b) {
        return a->name().compare(b->name(), Qt::CaseInsensitive) < 0;
    });
    if (changeObserver_) {
        changeObserver_(QStringLiteral("transitions"));
        changeObserver_(QStringLiteral("effects"));
        changeObserver_(QStringLiteral("sources"));
    }
}

void LVEffectRegistry::scanEffectDir(const QString& folder, LVEffectOrigin origin)
{
    if (folder.isEmpty()) return;
    QMap<QString, QString> folders;  // version key -> path
    folders.insert(QStringLiteral("0"), folder);
    const QDir dir(folder);
    for (const QFileInfo& entry : dir.entryInfoList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name)) {
        const int32_t version = parseVersionString(entry.fileName());
        if (version >= 1 && version <= folders_.systemVersion) {
            folders.insert(QString::number(version), entry.absoluteFilePath());
        }
    }
    // Sorted by path string: the folder itself (a prefix of every subfolder) sorts first
    // and so loads last; a file in a version folder wins over the generic one.
    QStringList paths = folders.values();
    std::sort(paths.begin(), paths.end());
    for (auto it = paths.crbegin(); it != paths.crend(); ++it) loadEffectsFrom(*it, false, origin);
}

void LVEffectRegistry::loadEffectsFrom(const QString& folder, bool checkProtocol, LVEffectOrigin origin)
{
    const QDir dir(folder);
    if (folder.isEmpty() || !dir.exists()) return;
    const QStringList names = dir.entryList(QDir::Files | QDir::Dirs | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                                            QDir::Name);
    for (const QString& name : names) {
        if (name.startsWith(QLatin1Char('.')) || effectFileMapping_.contains(name)) continue;
        const QString path = dir.absoluteFilePath(name);
        if (name.endsWith(QStringLiteral(".fs"))) {
            if (checkProtocol) {
                const LVCompositionHeader header = LVCompositionHeader::read(path);
                if (header.isBackdrop() || header.isFaceTrackingEffect() ||
                    (header.hasProtocols() &&
                     !header.protocols().contains(QLatin1String(LVCompositionProtocolImageFilter)))) {
                    continue;
                }
            }
            auto composition = std::make_shared<LVQCEffectFactory>(path, origin);
            // A generator is offered both ways: stacked as an effect, or as the source.
            if (composition->isGenerator()) addEffectFactory(std::make_shared<LVQCSourceFactory>(*composition));
            addEffectFactory(std::move(composition));
        } else if (name.endsWith(QStringLiteral(".so"))) {
            loadPlugin(path);
        } else {
            continue;
        }
        effectFileMapping_.insert(name, path);
    }
}

void LVEffectRegistry::loadPlugin(const QString& path)
{
    // Loaded plug-ins stay loaded for the life of the process.
    void* handle = dlopen(QFile::encodeName(path).constData(), RTLD_NOW | RTLD_LOCAL);
    if (!handle) {
        LVLog("Plug-in %s not loaded: %s", qPrintable(path), dlerror());
        return;
    }
    auto entry = reinterpret_cast<LVPluginRegisterFunction>(dlsym(handle, LVPluginEntryPointName));
    if (!entry) {
        LVLog("Plug-in %s not loaded: it has no entry point %s", qPrintable(path), LVPluginEntryPointName);
        return;
    }
    loadingPluginPath_ = &path;
    try {
        entry(this);
    } catch (const std::exception& error) {
        LVLog("Plug-in %s failed while registering: %s", qPrintable(path), error.what());
    } catch (...) {
        LVLog("Plug-in %s failed while registering: unknown exception", qPrintable(path));
    }
    loadingPluginPath_ = nullptr;
}

void LVEffectRegistry::registerEffectKind(const LVEffectDescriptor* descriptor)
{
    if (!descriptor || !descriptor->make || descriptor->className.isEmpty() || descriptor->name.isEmpty()) {
        LVLog("Plug-in %s registered an incomplete effect kind; ignored",
              loadingPluginPath_ ? qPrintable(*loadingPluginPath_) : "?");
        return;
    }
    LVEffectClasses::registerClass(descriptor);
    pluginClassNames().insert(descriptor->className);
    addEffectFactory(std::make_shared<LVBuiltinEffectFactory>(descriptor, LVEffectOrigin::Plugin,
                                                              loadingPluginPath_ ? *loadingPluginPath_ : QString()));
}

LVEffectRef LVEffectRegistry::instantiateNamedEffect(const QString& name, LVContext* context) const
{
    return instantiateNamed(allEffects_, name, context, "effect");
}

LVEffectRef LVEffectRegistry::instantiateNamedSource(const QString& name, LVContext* context) const
{
    return instantiateNamed(allSources_, name, context, "source");
}
