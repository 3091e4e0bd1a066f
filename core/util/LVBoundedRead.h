#pragma once
// Reading a file the user (or anyone) may have replaced by a link, a device or something huge:
// only a regular file is read, never through a link, and never more than a limit.
#include <QByteArray>
#include <QString>

// Size limits, with room to spare over what the files hold in practice.
constexpr qint64 kLVPreferencesLimit = 4 << 20;
constexpr qint64 kLVSetupLimit = 16 << 20;     // setups carry a PNG icon
constexpr qint64 kLVCompositionLimit = 1 << 20; // shader source
constexpr qint64 kLVImageLimit = 64 << 20;      // compressed image files

// Reads the whole file at path into bytes. False, with error saying which file and why (missing,
// a link, not a regular file, over the limit named in MB), when it cannot be read.
bool LVReadRegularFile(const QString& path, qint64 limit, QByteArray* bytes, QString* error);
// "16 MB", "512 KB".
QString LVByteLimitText(qint64 limit);
