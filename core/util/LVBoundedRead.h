#pragma once
// Reading a file the user (or anyone) may have replaced by a link, a device or something huge:
// only a regular file is read, never through a link, and never more than a limit.
#include <QByteArray>
#include <QImage>
#include <QString>

// Size limits, with room to spare over what the files hold in practice.
constexpr qint64 kLVPreferencesLimit = 4 << 20;
constexpr qint64 kLVSetupLimit = 16 << 20;     // setups carry a PNG icon
constexpr qint64 kLVCompositionLimit = 1 << 20; // shader source
constexpr qint64 kLVImageLimit = 64 << 20;      // compressed image files

// Reads the whole file at path into bytes. False, with error saying why ("is a symbolic link;
// refused", "is larger than the limit of 16 MB; refused", ...) to follow the file's name,
// when it cannot be read.
bool LVReadRegularFile(const QString& path, qint64 limit, QByteArray* bytes, QString* error);
// "16 MB", "512 KB".
QString LVByteLimitText(qint64 limit);
// Reads an image file the same way (limit kLVImageLimit) and decodes it; a null image, with
// error saying why, when it is refused or cannot be decoded. format: a decoder name or null.
QImage LVReadImageFile(const QString& path, QString* error, const char* format = nullptr);
