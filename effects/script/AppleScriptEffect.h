#pragma once
// Draws nothing: each real change of its mode runs the user's script in its own process with
// the role the effect now plays ("Idle", "Program", "Preview", "Transition", "Unknown") as
// its first argument. The script text is never archived: a reloaded effect has the default.
#include "core/LVEffect.h"
#include "effects/script/LVScriptRunner.h"

#include <optional>

class AppleScriptEffect : public LVEffect {
public:
    // Shows the role on the desktop when a notifier is installed, and prints it.
    static constexpr const char* defaultScript =
        "role=\"$1\"\n"
        "if command -v notify-send >/dev/null 2>&1; then\n"
        "  notify-send Lumaveil \"$role\"\n"
        "fi\n"
        "echo \"$role\"\n";

    static const LVEffectDescriptor& classDescriptor();
    const LVEffectDescriptor& descriptor() const override { return classDescriptor(); }
    static QString roleWord(int32_t mode);

    void initWithContext(LVContext* context) override;
    // The archive is ignored on purpose: a fresh effect with the default script.
    bool initWithCoder(LVKeyedUnarchiver& coder) override;
    bool setMode(int32_t mode) override;

    const QString& scriptText() const { return text_; }
    // The editor's text; compiled on the next compile().
    void setScriptText(const QString& text) { text_ = text; }
    // The interpreter's syntax check; the error to show, or none once compiled.
    std::optional<LVScriptError> compile();
    bool isCompiled() const { return compiled_.has_value(); }
    const std::optional<LVScriptError>& lastError() const { return lastError_; }
    QString statusNote() const override;

private:
    void initCommon();

    std::optional<QString> compiled_;
    QString text_;
    std::optional<LVScriptError> lastError_;
};

void LVRegisterScriptEffect();
