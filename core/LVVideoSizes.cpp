#include "core/LVVideoSizes.h"

#include <QRegularExpression>

const std::vector<LVVideoSizeItem>& LVVideoSizeMenu()
{
    // Each entry's size is read from its title, as the menu shows it.
    static const std::vector<LVVideoSizeItem> items = [] {
        std::vector<LVVideoSizeItem> list;
        for (const char* title : {"320x240", "640x360", "640x480", "720x480", "1280x720", "Custom"}) {
            const QString text = QString::fromLatin1(title);
            list.push_back({text, LVParseSizeTitle(text).value_or(QSize())});
        }
        return list;
    }();
    return items;
}

int LVVideoSizeMenuIndex(QSize current, bool usingCustomVideoSize)
{
    const auto& items = LVVideoSizeMenu();
    const int custom = int(items.size()) - 1;
    if (usingCustomVideoSize) return custom;
    const QString title = LVSizeTitle(current);
    for (int i = 0; i < custom; ++i) {
        if (items[size_t(i)].title == title) return i;
    }
    return custom;
}

std::optional<QSize> LVParseSizeTitle(const QString& title)
{
    static const QRegularExpression pattern(QStringLiteral("^\\s*([-+]?\\d+)x([-+]?\\d+)"));
    const auto match = pattern.match(title);
    if (!match.hasMatch()) return std::nullopt;
    bool okW = false;
    bool okH = false;
    const int w = match.captured(1).toInt(&okW);
    const int h = match.captured(2).toInt(&okH);
    if (!okW || !okH) return std::nullopt;
    return QSize(w, h);
}

QString LVSizeTitle(QSize size)
{
    return QStringLiteral("%1x%2").arg(size.width()).arg(size.height());
}

QString LVSizeString(QSize size)
{
    return QStringLiteral("{%1, %2}").arg(size.width()).arg(size.height());
}

std::optional<QSize> LVParseSizeString(const QString& text)
{
    static const QRegularExpression pattern(
        QStringLiteral("^\\s*\\{\\s*([-+]?[0-9]*\\.?[0-9]+)\\s*,\\s*([-+]?[0-9]*\\.?[0-9]+)\\s*\\}\\s*$"));
    const auto match = pattern.match(text);
    if (!match.hasMatch()) return std::nullopt;
    // Stored sizes are doubles; the video size is their whole-number part.
    return QSize(int(match.captured(1).toDouble()), int(match.captured(2).toDouble()));
}

QSize LVCustomVideoSize(int width, int height)
{
    return QSize(width < 1 ? 320 : width, height < 1 ? 240 : height);
}

bool LVValidateVideoSize(const QString& text, QSize* size, QString* error)
{
    static const QRegularExpression pattern(QStringLiteral("^(\\d{1,6})[xX](\\d{1,6})$"));
    const auto match = pattern.match(text.trimmed());
    const QString allowed = QStringLiteral("WIDTHxHEIGHT with each side from %1 to %2, for example 1280x720")
                                .arg(LVMinVideoDimension)
                                .arg(LVMaxVideoDimension);
    if (!match.hasMatch()) {
        if (error) *error = QStringLiteral("video size \"%1\" is not WIDTHxHEIGHT; use %2").arg(text, allowed);
        return false;
    }
    const int w = match.captured(1).toInt();
    const int h = match.captured(2).toInt();
    if (w < LVMinVideoDimension || h < LVMinVideoDimension || w > LVMaxVideoDimension ||
        h > LVMaxVideoDimension) {
        if (error) *error = QStringLiteral("video size %1x%2 is out of range; use %3").arg(w).arg(h).arg(allowed);
        return false;
    }
    if (size) *size = QSize(w, h);
    return true;
}

bool LVValidateFrameRate(const QString& text, int* rate, QString* error)
{
    bool ok = false;
    const int value = text.trimmed().toInt(&ok);
    if (!ok || value < LVMinFrameRate || value > LVMaxFrameRate) {
        if (error) {
            *error = QStringLiteral("frame rate \"%1\" is not allowed; use a whole number of frames per second "
                                    "from %2 to %3")
                         .arg(text)
                         .arg(LVMinFrameRate)
                         .arg(LVMaxFrameRate);
        }
        return false;
    }
    if (rate) *rate = value;
    return true;
}
