#pragma once
// Small effect kinds for tests: a source, an effect with parameters, a transition.
#include "core/LVEffect.h"

#include <QColor>
#include <QStringList>

#include <memory>
#include <ostream>
#include <vector>

// Readable gtest failure messages for Qt strings.
inline void PrintTo(const QString& s, std::ostream* os) { *os << '"' << s.toStdString() << '"'; }
inline void PrintTo(const QStringList& l, std::ostream* os) { *os << l.join(", ").toStdString(); }

template <const LVEffectDescriptor& (*Describe)()>
class TestKind : public LVEffect {
public:
    const LVEffectDescriptor& descriptor() const override { return Describe(); }
    void destruct() override { ++destructCount; }
    static inline int destructCount = 0;
};

inline const LVEffectDescriptor& blurDescriptor();
inline const LVEffectDescriptor& sourceDescriptor();

using TestBlur = TestKind<blurDescriptor>;
using TestSource = TestKind<sourceDescriptor>;

inline const LVEffectDescriptor& blurDescriptor()
{
    static const LVEffectDescriptor d{
        "TestBlur", "Blur", LVEffectRole::Effect, [] { return std::make_unique<TestBlur>(); },
        {LVFloatParameter("radius", "Radius", 2.0, 0.0, 10.0), LVBoolParameter("soft", "Soft edges", true),
         LVColorParameter("tint", "Tint", QColor(Qt::white)), LVTextParameter("label", "Label", "hello")}};
    return d;
}

inline const LVEffectDescriptor& sourceDescriptor()
{
    static const LVEffectDescriptor d{"TestSource", "Test Source", LVEffectRole::Source,
                                      [] { return std::make_unique<TestSource>(); }, {}};
    return d;
}

// A kind whose descriptor is chosen at run time (for remap and ordering tests).
class NamedKind : public LVEffect {
public:
    explicit NamedKind(const LVEffectDescriptor* descriptor) : descriptor_(descriptor) {}
    const LVEffectDescriptor& descriptor() const override { return *descriptor_; }
    bool initWithCoder(LVKeyedUnarchiver& coder) override
    {
        // "needsThis" stands for a key a kind cannot work without.
        if (descriptor_->className == "NeedsKey" && !coder.containsValueForKey("needsThis")) return false;
        return LVEffect::initWithCoder(coder);
    }

private:
    const LVEffectDescriptor* descriptor_;
};

// Registers a kind under an arbitrary class name; descriptors live for the process.
inline const LVEffectDescriptor* registerNamedKind(const QString& className, const QString& name, LVEffectRole role)
{
    static std::vector<std::unique_ptr<LVEffectDescriptor>> kept;
    auto* d = kept.emplace_back(std::make_unique<LVEffectDescriptor>(LVEffectDescriptor{className, name, role, nullptr, {}})).get();
    d->make = [d] { return std::make_unique<NamedKind>(d); };
    LVEffectClasses::registerClass(d);
    return d;
}
