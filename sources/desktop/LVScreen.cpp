#include "sources/desktop/LVScreen.h"

LVScreenRef LVScreen::screenWithScreen(const LVDisplayInfo& screen, int rootHeight)
{
    return screenWithScreen(screen, rootHeight, QString());
}

LVScreenRef LVScreen::screenWithScreen(const LVDisplayInfo& screen, int rootHeight, const QString& displayName)
{
    auto entry = std::make_shared<LVScreen>();
    entry->screen_ = screen;
    entry->displayName_ = displayName;
    entry->name_ = screen.productName.isEmpty() ? screen.outputName : screen.productName;
    entry->rootHeight_ = rootHeight;
    return entry;
}

QRectF LVScreen::frame() const
{
    const QRect& f = screen_.frame;
    return QRectF(f.x(), rootHeight_ - f.y() - f.height(), f.width(), f.height());
}

std::vector<LVScreenRef> LVBuildScreenList(const std::vector<LVDisplayInfo>& monitors, int rootHeight,
                                           int thisScreen, int mainScreen)
{
    std::vector<LVScreenRef> list;
    list.reserve(5);
    if (monitors.empty()) return list;
    const auto index = [&](int i) { return size_t(i >= 0 && size_t(i) < monitors.size() ? i : 0); };
    list.push_back(LVScreen::screenWithScreen(monitors[index(thisScreen)], rootHeight, QStringLiteral("This screen")));
    list.push_back(LVScreen::screenWithScreen(monitors[index(mainScreen)], rootHeight, QStringLiteral("Main screen")));
    list.push_back(nullptr);
    for (size_t i = 0; i < monitors.size(); ++i) {
        if (i != index(thisScreen)) list.push_back(LVScreen::screenWithScreen(monitors[i], rootHeight));
    }
    return list;
}

QStringList LVScreenDescriptions(const std::vector<LVScreenRef>& list)
{
    QStringList descriptions;
    for (const LVScreenRef& entry : list) descriptions << (entry ? entry->description() : QStringLiteral("-"));
    return descriptions;
}

QRectF LVScreenUtils::toQ4(const QRectF& rect, const LVScreen& screen)
{
    const QRectF display = screen.frame();
    return QRectF(display.x() + rect.x(), screen.rootHeight() - rect.y() - display.y() - rect.height(), rect.width(),
                  rect.height());
}

QRectF LVScreenUtils::fromQ4(const QRectF& rect, const LVScreen& screen)
{
    const QRectF display = screen.frame();
    return QRectF(rect.x() - display.x(), screen.rootHeight() - rect.y() - display.y() - rect.height(), rect.width(),
                  rect.height());
}

QString LVEdidProductName(const QByteArray& edid)
{
    // Four 18-byte descriptors from byte 54; a display descriptor starts with three zero bytes
    // and its tag, and the text ends at a line feed.
    if (edid.size() < 128) return QString();
    for (int at = 54; at <= 108; at += 18) {
        const auto* d = reinterpret_cast<const unsigned char*>(edid.constData()) + at;
        if (d[0] != 0 || d[1] != 0 || d[2] != 0 || d[3] != 0xFC) continue;
        QByteArray text(reinterpret_cast<const char*>(d + 5), 13);
        const qsizetype end = text.indexOf('\n');
        if (end >= 0) text.truncate(end);
        return QString::fromLatin1(text).trimmed();
    }
    return QString();
}
