#include "gui/remote/LVQRCode.h"

#include <QPainter>

#include <qrencode.h>

#include <memory>

namespace {

constexpr int kQuietZoneModules = 4;

struct QRcodeFree {
    void operator()(QRcode* code) const { QRcode_free(code); }
};
using QRcodeRef = std::unique_ptr<QRcode, QRcodeFree>;

QRcodeRef encode(const QString& text)
{
    const QByteArray bytes = text.toUtf8();
    // Medium error correction: a phone still reads a code shown on a glossy screen.
    return QRcodeRef(QRcode_encodeData(int(bytes.size()), reinterpret_cast<const unsigned char*>(bytes.constData()), 0, QR_ECLEVEL_M));
}

} // namespace

int LVQRCodeModules(const QString& text)
{
    const QRcodeRef code = encode(text);
    return code ? code->width : 0;
}

QImage LVQRCodeImage(const QString& text, int moduleSize)
{
    const QRcodeRef code = encode(text);
    if (!code || moduleSize < 1) return {};
    const int side = (code->width + 2 * kQuietZoneModules) * moduleSize;
    QImage image(side, side, QImage::Format_RGB32);
    image.fill(Qt::white);
    QPainter painter(&image);
    for (int y = 0; y < code->width; ++y) {
        for (int x = 0; x < code->width; ++x) {
            // Bit 0 of each byte is the module's colour; the rest tell what the module is for.
            if (code->data[y * code->width + x] & 1) {
                painter.fillRect((x + kQuietZoneModules) * moduleSize, (y + kQuietZoneModules) * moduleSize, moduleSize,
                                 moduleSize, Qt::black);
            }
        }
    }
    return image;
}
