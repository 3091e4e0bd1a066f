#pragma once
// A QR code of a text (a link for a phone's camera), black modules on white with the quiet
// zone the standard asks for.
#include <QImage>
#include <QString>

// moduleSize: pixels per module. A null image when the text cannot be encoded (too long).
QImage LVQRCodeImage(const QString& text, int moduleSize = 6);

// Modules per side of the code for text (without the quiet zone); 0 when it cannot be encoded.
int LVQRCodeModules(const QString& text);
