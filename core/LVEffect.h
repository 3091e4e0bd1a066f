#pragma once
// Base of every stage of a video chain: sources, effects and transitions.
#include "core/LVEffectDescriptor.h"
#include "core/LVKeyedArchive.h"
#include "core/LVParameter.h"
#include "core/LVProxy.h"

#include <QByteArray>
#include <QHash>
#include <QJsonValue>
#include <QRect>
#include <QSize>
#include <QString>
#include <QVariant>
#include <QVariantMap>

#include <vector>

#include <cstdint>
#include <optional>

class LVContext;
struct LVTexture;

enum LVMode : int32_t {
    LVModeOff = 0,         // in no chain: a source stops playing and grabbing
    LVModeLive = 1,        // in the live output chain, or on air in the studio
    LVModePreview = 2,     // on the studio's preview bus
    LVModeTransition = 3,  // being taken to Program by a running transition
};

// The pasteboard (MIME) type of dragged chain rows.
inline constexpr const char* LVEffectDragType = "com.marrowkit.lumaveil.myeffect";

class LVEffect {
public:
    LVEffect() = default;
    virtual ~LVEffect() = default;
    LVEffect(const LVEffect&) = delete;
    LVEffect& operator=(const LVEffect&) = delete;

    // The kind: the class operations name, isSource and isTransition live here.
    virtual const LVEffectDescriptor& descriptor() const = 0;

    // Set-up shared by both initialisers; subclasses extend it.
    virtual void initEffectCommon(LVContext* context);
    // A new effect: enabled, then the common set-up.
    virtual void initWithContext(LVContext* context);
    // A decoded effect: "enabled" (absent reads as NO), "name" kept as the saved name,
    // the coder's context, then the parameters present in the archive (clamped).
    // Answers false when a key the kind requires is missing; the effect is then dropped.
    virtual bool initWithCoder(LVKeyedUnarchiver& coder);
    // Stops timers, threads and observers; runs when the last handle is released.
    virtual void destruct() {}
    // Writes "class", "enabled", "name" (only when set) and every archived parameter.
    virtual void encodeWithCoder(LVKeyedArchiver& coder) const;

    // Per-effect preferences, kept in a dictionary stored under the effect's name.
    void setDefault(const QJsonValue& value, const QString& key);
    QJsonValue defaultForKey(const QString& key) const;

    LVContext* context() const { return context_; }
    bool isSource() const { return descriptor().isSource(); }
    bool isTransition() const { return descriptor().isTransition(); }
    virtual void setAudioDevice(const QString& device);

    // The instance name when set, otherwise the kind's name.
    QString name() const;
    void setName(const QString& name) { name_ = name; }
    QString savedSetupName() const { return savedSetupName_; }
    QString tmpSavedName() const { return savedName_; }
    void setSavedSetupName(const QString& name) { savedSetupName_ = name; }
    // "name (setup)" for effects that came from a saved setup.
    QString displayName() const;
    // Sets the name, so an edited label never carries the setup suffix.
    void setDisplayName(const QString& name) { setName(name); }

    bool isEnabled() const { return enabled_; }
    void setEnabled(bool enabled) { enabled_ = enabled; }

    // Called for every enabled effect of a chain, in order, before any of them draws.
    virtual void preDoit() {}
    // Draws this frame's contribution into the context.
    virtual void doit() {}
    // Whether doit() draws every pixel of the frame (through LVContext::framebufferToOverwrite()):
    // a chain that starts with it needs no clear first.
    virtual bool overwritesFrame() const { return false; }
    // The part of its input it reads to draw the part of its output given (GL pixels, bottom
    // row 0); none: it may read any of it.
    virtual std::optional<QRect> inputAreaFor(const QRect& output, QSize frame) const;
    // What the effects after it read of its output this frame; none: all of it. Drawing only
    // there is enough. Known while an LVChainAreas for its chain lives.
    const std::optional<QRect>& areaRead() const { return areaRead_; }
    // Transitions: blend towards the other chain's picture by fraction 0..1.
    virtual void doTransitionTo(const LVTexture& other, double percentage);

    // Stores the mode; answers true when it changed. Subclasses call this first and act
    // only when it answers true.
    virtual bool setMode(int32_t mode);
    int32_t mode() const { return lvemode_; }

    // The adjustable parameters: the kind's list unless the instance has its own.
    virtual LVParameterList effectProperties() const { return descriptor().parameters; }
    // Why the effect shows nothing, for its settings panel ("No camera found"); empty when fine.
    virtual QString statusNote() const { return {}; }
    // Lines shown under the editors (what the effect does, who made it); empty when none.
    virtual QStringList inspectorNotes() const { return {}; }
    // The first parameter whose user-facing name equals name.
    std::optional<LVParameter> propertyInfoForName(const QString& name) const;
    // Looked up by user-facing name, as scripting and automation do.
    virtual QVariant effectPropertyForName(const QString& name) const;
    virtual void setEffectProperty(const QVariant& value, const QString& name);
    // Scripting entry: arguments "property" and "value".
    void setEffectProperty(const QVariantMap& scriptArguments);
    void setEffectEnabled(const QVariantMap& scriptArguments);

    // Parameter values by key (archive key), clamped to the declared range. Setting a choice
    // also sets the values its preset names.
    QVariant parameterValue(const QString& key) const;
    void setParameterValue(const QString& key, const QVariant& value);

    // Class operations.
    static void remapEffect(const QString& archivedClassName, const QString& className);
    static const LVEffectDescriptor* effectClassWithCoder(LVKeyedUnarchiver& coder);
    static LVEffectRef effectWithCoder(LVKeyedUnarchiver& coder);
    static const LVEffectDescriptor* effectClassFromData(const QByteArray& data, LVContext* context);
    // Decodes a persisted effect; unknown class, bad JSON or a missing required key give
    // nothing and a log line that says which.
    static LVEffectRef effectFromData(const QByteArray& data, LVContext* context);
    // The persisted form of an effect.
    static QByteArray dataFromEffect(const LVEffect& effect);

protected:
    // Hook for kinds that react to a parameter change.
    virtual void parameterChanged(const QString& key) { (void)key; }
    // A value as archived: no preset applies, so a saved custom value survives its choice.
    void restoreParameterValue(const QString& key, const QVariant& value);

private:
    std::optional<LVParameter> parameterForKey(const QString& key) const;
    void storeParameterValue(const LVParameter& parameter, const QVariant& value);

    friend class LVChainAreas;

    LVContext* context_ = nullptr;
    std::optional<QRect> areaRead_;
    int32_t lvemode_ = LVModeOff;
    bool enabled_ = false;
    QString name_;
    QString savedSetupName_;
    QString savedName_;
    QHash<QString, QVariant> parameterValues_;
};

// Whether the first enabled effect of the chain overwrites the whole frame.
bool LVChainOverwritesFrame(const std::vector<LVEffectRef>& chain);

// For one frame of a chain: tells each effect that draws what the effects after it read of its
// output, worked out from the last one back. A zoom reads only the middle of its input, so
// everything before it draws only there. Forgotten when this ends.
class LVChainAreas {
public:
    // Disabled effects are passed over, as the live loop skips them, unless disabledDrawToo.
    LVChainAreas(std::vector<LVEffectRef> chain, QSize frame, bool disabledDrawToo = false);
    ~LVChainAreas();
    LVChainAreas(const LVChainAreas&) = delete;
    LVChainAreas& operator=(const LVChainAreas&) = delete;

private:
    std::vector<LVEffectRef> chain_;
};
