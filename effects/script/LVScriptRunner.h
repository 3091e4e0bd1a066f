#pragma once
// Runs a script in its own process: the interpreter (preference "scriptInterpreter",
// default /bin/sh) reads the script text on standard input and gets the arguments after it.
// Nothing waits for a script: each child is polled once a second until it has exited, so
// none is left a zombie. Main thread only.
#include <QByteArray>
#include <QObject>
#include <QString>
#include <QStringList>

#include <optional>
#include <set>

#include <sys/types.h>

// A script the interpreter's syntax check refused.
struct LVScriptError {
    QString briefMessage;
    QString fullMessage;
    int line = 0; // 1-based; 0 when the checker named none
};

class LVScriptRunner : public QObject {
    Q_OBJECT
public:
    static constexpr const char* interpreterKey = "scriptInterpreter";
    static constexpr const char* defaultInterpreter = "/bin/sh";
    static constexpr int reapIntervalMs = 1000;

    static LVScriptRunner& shared();
    // The interpreter the preferences name.
    static QString interpreter();

    // Starts the script; the child's id, or -1 (logged) when it could not start.
    pid_t run(const QString& interpreter, const QByteArray& script, const QStringList& arguments);
    // Shells check the script with -n; other interpreters accept anything. None when fine.
    static std::optional<LVScriptError> checkSyntax(const QString& interpreter, const QString& script);

    // Children started and not yet collected.
    size_t pendingChildren() const { return pending_.size(); }
    size_t pollsSoFar() const { return polls_; }

signals:
    void childReaped(pid_t pid, int status);

private:
    void reap(pid_t pid);

    std::set<pid_t> pending_;
    size_t polls_ = 0;
};
