#pragma once
// lumaveil-ctl's two translations: its command line into one control request, and the
// reply into what it prints and the exit status.
#include <QByteArray>
#include <QJsonObject>
#include <QString>
#include <QStringList>

#include <optional>

enum LVCtlStatus {
    LVCtlSuccess = 0,
    LVCtlFailed = 1,      // the command failed, or the command line was wrong
    LVCtlNotRunning = 2,  // no Lumaveil serves the control socket
};

struct LVCtlInvocation {
    QJsonObject request;
    bool rawJson = false;
};

// Arguments without the program name. Nothing, with error, for a wrong command line.
std::optional<LVCtlInvocation> LVCtlParseArguments(const QStringList& arguments, QString* error);
QString LVCtlUsage();

struct LVCtlOutcome {
    QString out;
    QString err;
    int status = LVCtlSuccess;
};
// One reply line as printed: the raw line with --json, else the result in plain text.
LVCtlOutcome LVCtlInterpretReply(const QByteArray& reply, bool rawJson);
