#pragma once
// Where the control socket lives and how both ends reach it: a Unix socket in a private
// folder of the user's runtime directory.
#include <QString>

namespace LVControlSocket {

// "$XDG_RUNTIME_DIR/lumaveil"; with no runtime directory, "<temp>/lumaveil-<uid>".
QString folderPath();
// "<folder>/control.sock".
QString socketPath();

// Makes the folder 0700 if missing, tightens our own folder if others may enter it, and
// refuses a link, a non-folder or a folder of another user. False with error otherwise.
bool prepareFolder(const QString& folder, QString* error);

// A connected, blocking socket, or -1 with errno set (ENOENT, ECONNREFUSED, ...).
int connectTo(const QString& path);

} // namespace LVControlSocket
