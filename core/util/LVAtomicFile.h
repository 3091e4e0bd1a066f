#pragma once
// Writes a whole file so that readers only ever see the old or the new bytes.
#include <QByteArray>
#include <QString>

// Writes to a temporary file beside the target, flushes it and renames it over the
// target. Creates missing parent folders. On failure the old file is untouched and
// error (when given) says what failed.
bool LVWriteFileAtomically(const QString& path, const QByteArray& bytes, QString* error = nullptr);
// The same for a file only its owner may read (settings that hold a password): the
// temporary file is made 0600 before anything is written into it.
bool LVWritePrivateFileAtomically(const QString& path, const QByteArray& bytes, QString* error = nullptr);
