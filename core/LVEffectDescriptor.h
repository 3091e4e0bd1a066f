#pragma once
// One descriptor per effect kind: its class name, catalogue name, role, factory and
// parameter list. Everything that lists kinds or edits parameters reads this.
#include "core/LVParameter.h"

#include <QString>

#include <functional>
#include <memory>

class LVEffect;

enum class LVEffectRole { Source, Effect, Transition };

struct LVEffectDescriptor {
    QString className;  // the archived "class"
    QString name;       // the catalogue name a user sees and setups refer to
    LVEffectRole role = LVEffectRole::Effect;
    std::function<std::unique_ptr<LVEffect>()> make;
    LVParameterList parameters;

    bool isSource() const { return role == LVEffectRole::Source; }
    bool isTransition() const { return role == LVEffectRole::Transition; }
};

// The process-wide table of effect classes, by class name. Kinds register here (the
// application's start-up calls each subsystem's registration function); decoding and
// the built-in catalogue look classes up here.
class LVEffectClasses {
public:
    // Registers (or replaces) the class; the descriptor must outlive the process.
    static void registerClass(const LVEffectDescriptor* descriptor);
    static const LVEffectDescriptor* classNamed(const QString& className);
    // Every registered class, in registration order.
    static std::vector<const LVEffectDescriptor*> allClasses();
};
