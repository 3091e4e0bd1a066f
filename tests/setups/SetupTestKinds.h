#pragma once
// Effect kinds for setup tests: a source and an effect with one parameter, plus helpers
// to build setup files the way other builds and other programs leave them.
#include "core/LVEffect.h"

#include <QByteArray>
#include <QFile>
#include <QString>
#include <QStringList>

#include <memory>
#include <ostream>

inline void PrintTo(const QString& s, std::ostream* os) { *os << '"' << s.toStdString() << '"'; }
inline void PrintTo(const QStringList& l, std::ostream* os) { *os << '[' << l.join(", ").toStdString() << ']'; }

class SetupTestKind : public LVEffect {
public:
    explicit SetupTestKind(const LVEffectDescriptor* descriptor) : descriptor_(descriptor) {}
    const LVEffectDescriptor& descriptor() const override { return *descriptor_; }

private:
    const LVEffectDescriptor* descriptor_;
};

inline const LVEffectDescriptor& setupTestSource()
{
    static const LVEffectDescriptor d{"SetupTestSource", "Test Pattern", LVEffectRole::Source,
                                      [] { return std::make_unique<SetupTestKind>(&setupTestSource()); }, {}};
    return d;
}

inline const LVEffectDescriptor& setupTestEffect()
{
    static const LVEffectDescriptor d{"SetupTestEffect", "Tint", LVEffectRole::Effect,
                                      [] { return std::make_unique<SetupTestKind>(&setupTestEffect()); },
                                      {LVFloatParameter("amount", "Amount", 0.5, 0.0, 1.0)}};
    return d;
}

inline void registerSetupTestKinds()
{
    LVEffectClasses::registerClass(&setupTestSource());
    LVEffectClasses::registerClass(&setupTestEffect());
}

inline LVEffectRef newTestEffect(const LVEffectDescriptor& kind, const QString& name = {})
{
    auto effect = kind.make();
    effect->initWithContext(nullptr);
    if (!name.isEmpty()) effect->setName(name);
    return LVMakeEffectHandle(std::move(effect));
}

// An archive of a kind this build does not know, written the way a newer build might:
// odd spacing, key order and a number a double cannot hold exactly.
inline const QByteArray kForeignBlob =
    R"({ "class" : "HoloWarp",  "enabled":true, "seed": 12345678901234567891, "zeta": [1.50, 2e3] })";

inline QByteArray readAll(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

inline void writeAll(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    if (file.open(QIODevice::WriteOnly | QIODevice::Truncate)) file.write(bytes);
}
