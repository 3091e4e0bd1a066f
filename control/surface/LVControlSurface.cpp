#include "control/surface/LVControlSurface.h"

#include "control/midi/LVRtMidiPort.h"
#include "control/socket/LVControlSocket.h"
#include "control/surface/LVStudioControl.h"
#include "control/surface/LVStudioMIDIKeys.h"
#include "core/util/LVLog.h"

namespace {

const char* const studioCommands[] = {"cut", "startTransition", "studioDissolve", "button"};
const char* const studioProperties[] = {
    "studioButtons",        "studioSwapMode",       "studioNamedTransition", "studioTransitionTime",
    "studioTransitions",    "studioPreviewButtons", "studioProgramButtons",  "studioTransition",
};
const QString noStudio = QStringLiteral("this Lumaveil runs without the studio (start it with --studio)");

// Known to the vocabulary, so the answer says what is missing instead of "unknown".
void addStudioAbsence(LVControlCommands& commands)
{
    for (const char* name : studioCommands) {
        commands.addCommand(QLatin1String(name), [](const QJsonObject&) { return LVControlError(noStudio); });
    }
    for (const char* name : studioProperties) {
        commands.addProperty(
            QLatin1String(name), [] { return QJsonValue(QJsonValue::Null); },
            [](const QJsonValue&) { return noStudio; });
    }
}

} // namespace

LVControlSurface::LVControlSurface(Lumaveil& app, LVStudio* studio, std::unique_ptr<LVMIDIPort> midiPort,
                                   const QString& socketPath, LVControlLimits limits)
    : commands_(app),
      server_([this](const QJsonObject& request) { return commands_.handle(request); }, limits),
      midi_(std::make_unique<LVMIDI>(std::move(midiPort)))
{
    if (studio) {
        LVAddStudioCommands(commands_, *studio);
        midiKeys_ = std::make_unique<LVStudioMIDIKeys>(*studio, *midi_);
    } else {
        addStudioAbsence(commands_);
    }
    QString error;
    listening_ = server_.listen(socketPath, &error);
    if (listening_) {
        LVLog("Control: serving %s", qPrintable(socketPath));
    } else {
        LVLog("Control: no control socket: %s", qPrintable(error));
    }
}

LVControlSurface::~LVControlSurface() = default;

std::unique_ptr<LVControlSurface> LVControlSurface::start(Lumaveil& app, LVStudio* studio)
{
    return std::make_unique<LVControlSurface>(app, studio, std::make_unique<LVRtMidiPort>(),
                                              LVControlSocket::socketPath());
}
