#pragma once
// Lumaveil's command line: the headless main job's options, checked before anything starts.
#include <QSize>
#include <QString>
#include <QStringList>

#include <optional>

struct LVCommandLine {
    bool headless = false;
    bool listEffects = false;
    bool bench = false;
    bool help = false;
    bool version = false;
    bool noPublish = false;
    // The vision mixer: the studio populated from the current set, Program published.
    bool studio = false;
    // Serve remote control this run, on the preference's port or this one (0: any free port).
    bool remoteControl = false;
    std::optional<quint16> remoteControlPort;
    std::optional<QSize> videoSize;
    std::optional<int> frameRate;
    std::optional<qint64> frames;
    QString source;
    QStringList effects;  // in chain order
    QString setup;        // a saved setup's name or a setup file
    QString restoreChain; // the chain file a restart left (see LVRestart.h)
    QStringList play;     // files for the source dropped files would make
    QString record;       // record the frames into this file (headless)
    QString stream;       // stream the frames to this address (headless)
};

// Parses arguments (the program name first). On refusal error says what was wrong and
// what is allowed.
bool LVParseCommandLine(const QStringList& arguments, LVCommandLine* commandLine, QString* error);
QString LVCommandLineUsage();

// Names from candidates that look like name (case, a typo or two, a part of it), closest
// first, at most five.
QStringList LVCloseMatches(const QString& name, const QStringList& candidates);
// "unknown effect "X"; did you mean: A, B?" or "...; known effects: ..." when nothing is close.
QString LVUnknownNameMessage(const QString& what, const QString& name, const QStringList& candidates);
