#pragma once
// The catalogues of sources, effects and transitions, built from the compiled-in kinds,
// the Effects folders (with per-version subfolders) and the system compositions folder.
#include "core/LVEffect.h"
#include "core/LVPlugin.h"

#include <QHash>
#include <QString>

#include <functional>
#include <memory>
#include <vector>

class LVContext;

// Where a catalogue entry came from.
enum class LVEffectOrigin { BuiltIn, BundledFolder, UserFolder, SystemFolder, Plugin };
QString LVEffectOriginName(LVEffectOrigin origin);

class LVEffectFactory {
public:
    LVEffectFactory(QString name, LVEffectOrigin origin, QString path)
        : name_(std::move(name)), origin_(origin), path_(std::move(path)) {}
    virtual ~LVEffectFactory() = default;

    const QString& name() const { return name_; }
    virtual bool isSource() const { return false; }
    virtual bool isTransition() const { return false; }
    virtual LVEffectRef instantiateWithContext(LVContext* context) const = 0;

    LVEffectOrigin origin() const { return origin_; }
    // The file it came from; empty for compiled-in kinds.
    const QString& path() const { return path_; }

private:
    QString name_;
    LVEffectOrigin origin_;
    QString path_;
};

class LVBuiltinEffectFactory : public LVEffectFactory {
public:
    explicit LVBuiltinEffectFactory(const LVEffectDescriptor* effectClass,
                                    LVEffectOrigin origin = LVEffectOrigin::BuiltIn, QString path = {});
    bool isSource() const override { return effectClass_->isSource(); }
    LVEffectRef instantiateWithContext(LVContext* context) const override;
    const LVEffectDescriptor* effectClass() const { return effectClass_; }

private:
    const LVEffectDescriptor* effectClass_;
};

class LVQCEffectFactory : public LVEffectFactory {
public:
    LVQCEffectFactory(const QString& path, LVEffectOrigin origin);
    // Whether the file's header reads as a generator (see LVCompositionHeader::isGenerator).
    bool isGenerator() const { return isGenerator_; }
    // The file name without folder and extension.
    static QString nameFromPath(const QString& path);
    bool isTransition() const override { return isTransition_; }
    // A composition effect for the file name only; it finds its file again through the
    // registry's file-name map.
    LVEffectRef instantiateWithContext(LVContext* context) const override;

    using CompositionEffectMaker = std::function<LVEffectRef(LVContext* context, const QString& fileName)>;
    // The composition effect kind lives above the registry; it installs its maker here.
    static void setCompositionEffectMaker(CompositionEffectMaker maker);

private:
    bool isTransition_;
    bool isGenerator_;
};

// The same generator composition file listed among the sources: it draws the base picture.
class LVQCSourceFactory : public LVEffectFactory {
public:
    explicit LVQCSourceFactory(const LVQCEffectFactory& composition);
    bool isSource() const override { return true; }
    LVEffectRef instantiateWithContext(LVContext* context) const override;

    // The generator source kind lives above the registry too; it installs its maker here.
    static void setGeneratorSourceMaker(LVQCEffectFactory::CompositionEffectMaker maker);
};

// Folders and system version the registry scans. standard() reads the environment:
// LUMAVEIL_EFFECTS_DIR (bundled), XDG_DATA_HOME (user), LUMAVEIL_COMPOSITIONS_DIR
// (system) and LUMAVEIL_OS_VERSION (else VERSION_ID of /etc/os-release).
struct LVEffectFolders {
    QString bundled;
    QString user;
    QString system;
    int32_t systemVersion = -1;

    static LVEffectFolders standard();
};

// "%d.%d": major * 100 + minor; fewer than two numbers or a major below 10 give -1.
int32_t parseVersionString(const QString& version);
// The running system's version string for plug-in subfolders ("12" reads as "12.0").
QString LVSystemVersionString();

class LVEffectRegistry : private LVPluginHost {
public:
    using FactoryList = std::vector<std::shared_ptr<LVEffectFactory>>;

    explicit LVEffectRegistry(LVEffectFolders folders);
    ~LVEffectRegistry();
    // The registry of the running application (the last one made).
    static LVEffectRegistry* current();

    void addEffectFactory(std::shared_ptr<LVEffectFactory> factory);
    void findBuiltInEffects();
    void findPluginEffects();
    void find3rdPartyEffects();
    // The whole refresh: empty, built-ins, plug-in folders, system compositions, sort.
    void findEffects();
    void scanEffectDir(const QString& folder, LVEffectOrigin origin);
    void loadEffectsFrom(const QString& folder, bool checkProtocol, LVEffectOrigin origin);

    QString effectPathFromFilename(const QString& fileName) const { return effectFileMapping_.value(fileName); }
    LVEffectRef instantiateNamedEffect(const QString& name, LVContext* context) const;
    LVEffectRef instantiateNamedSource(const QString& name, LVContext* context) const;

    const FactoryList& allSources() const { return allSources_; }
    const FactoryList& allEffects() const { return allEffects_; }
    const FactoryList& transitions() const { return transitions_; }
    const QHash<QString, QString>& effectFileMapping() const { return effectFileMapping_; }
    const LVEffectFolders& folders() const { return folders_; }

    // Called with "transitions", "effects", "sources" after every refresh.
    void setChangeObserver(std::function<void(const QString& key)> observer) { changeObserver_ = std::move(observer); }

    // Class names in the order the built-in catalogue lists them.
    static const QStringList& builtInOrder();

private:
    void registerEffectKind(const LVEffectDescriptor* descriptor) override;
    void loadPlugin(const QString& path);

    LVEffectFolders folders_;
    FactoryList allSources_;
    FactoryList allEffects_;
    FactoryList transitions_;
    QHash<QString, QString> effectFileMapping_;
    std::function<void(const QString&)> changeObserver_;
    // Set while a plug-in registers, so its kinds are filed as coming from it.
    const QString* loadingPluginPath_ = nullptr;
};
