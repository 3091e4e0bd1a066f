#include "sources/testpattern/TestPatternCounter.h"

#include <QFont>
#include <QFontMetricsF>
#include <QPainter>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace {

// What TestPatternSource::counterText gives until 100 hours or a million frames.
const QString kShape = QStringLiteral("00:00:00.000  #000000");
const QString kSample = QStringLiteral("12:34:56.789  #901234");

QFont counterFont(QSize size)
{
    QFont font(QStringLiteral("DejaVu Sans Mono"));
    font.setPixelSize(std::max(6, size.height() * 3 / 5));
    return font;
}

// The bottom row first, as the frame's texture holds it.
QImage forUpload(const QImage& painted)
{
    return painted.convertToFormat(QImage::Format_RGBA8888).mirrored(false, true);
}

int cellImage(int position, QChar c)
{
    return (position % 2) * 10 + (c.isDigit() ? c.digitValue() : 0);
}

} // namespace

QImage TestPatternCounter::paint(QSize size, const QString& text)
{
    QImage image(size, QImage::Format_RGB32);
    image.fill(Qt::black);
    QPainter p(&image);
    p.setFont(counterFont(size));
    p.setPen(Qt::white);
    p.drawText(image.rect(), Qt::AlignCenter, text);
    return image;
}

bool TestPatternCounter::fits(const QString& text) const
{
    if (text.size() != kShape.size()) return false;
    for (qsizetype i = 0; i < text.size(); ++i) {
        const bool ok = kShape[i] == QLatin1Char('0') ? text[i].isDigit() && text[i].unicode() < 128 : text[i] == kShape[i];
        if (!ok) return false;
    }
    return true;
}

void TestPatternCounter::prepare(QSize size)
{
    size_ = size;
    usable_ = false;
    shown_.clear();
    const int count = int(kShape.size());
    // Cells need every character at the same advance, or one digit would move the others.
    const QFontMetricsF metrics(counterFont(size));
    const qreal advance = metrics.horizontalAdvance(QLatin1Char('0'));
    for (const QChar c : QStringLiteral("0123456789:. #"))
        if (metrics.horizontalAdvance(c) != advance) return;
    const qreal left = (size.width() - advance * count) / 2;
    // The columns each position's glyphs ink, over every digit.
    std::vector<int> first(size_t(count), size.width());
    std::vector<int> last(size_t(count), -1);
    for (int parity = 0; parity < 2; ++parity) {
        for (int digit = 0; digit < 10; ++digit) {
            QString text = kShape;
            for (int i = 0; i < count; ++i) {
                if (i % 2 != parity) text[i] = QLatin1Char(' ');
                else if (text[i] == QLatin1Char('0')) text[i] = QChar(char16_t(u'0' + digit));
            }
            const QImage painted = paint(size, text);
            for (int x = 0; x < size.width(); ++x) {
                bool inked = false;
                for (int y = 0; y < size.height() && !inked; ++y)
                    inked = reinterpret_cast<const QRgb*>(painted.constScanLine(y))[x] != qRgb(0, 0, 0);
                if (!inked) continue;
                // The nearest position drawn in this picture: its neighbours are blank.
                const qreal at = (x + 0.5 - left) / advance - 0.5;
                int owner = int(std::lround((at - parity) / 2)) * 2 + parity;
                owner = std::clamp(owner, parity, count - 1 - (count - 1 - parity) % 2);
                first[size_t(owner)] = std::min(first[size_t(owner)], x);
                last[size_t(owner)] = std::max(last[size_t(owner)], x);
            }
            cells_[size_t(parity * 10 + digit)] = forUpload(painted);
        }
    }
    // Cell edges between one position's ink and the next one's, near where the advance puts them.
    edges_.assign(size_t(count) + 1, 0);
    edges_[size_t(count)] = size.width();
    for (int i = 1; i < count; ++i) {
        int edge = std::clamp(int(std::lround(left + i * advance)), 0, size.width());
        edge = std::max(edge, last[size_t(i) - 1] + 1);
        edge = std::min(edge, first[size_t(i)]);
        edges_[size_t(i)] = std::max(edge, edges_[size_t(i) - 1]);
    }
    for (int i = 0; i < count; ++i)
        if (first[size_t(i)] < edges_[size_t(i)] || last[size_t(i)] >= edges_[size_t(i) + 1]) return; // inks cross
    // Checked once against the painter itself.
    usable_ = true;
    const bool same = picture(size, kSample) == forUpload(paint(size, kSample));
    usable_ = same;
    shown_.clear();
}

const QImage& TestPatternCounter::picture(QSize size, const QString& text)
{
    if (size != size_) prepare(size);
    composed_ = usable_ && fits(text);
    if (!composed_) {
        picture_ = forUpload(paint(size, text));
        shown_.clear();
        return picture_;
    }
    if (shown_.isEmpty()) {
        picture_ = QImage(size, QImage::Format_RGBA8888);
        picture_.fill(Qt::black);
        shown_ = QString(text.size(), QLatin1Char('?'));
    }
    for (int i = 0; i < int(text.size()); ++i) {
        if (shown_[i] == text[i]) continue;
        const QImage& cell = cells_[size_t(cellImage(i, text[i]))];
        const size_t offset = size_t(edges_[size_t(i)]) * 4;
        const size_t bytes = size_t(edges_[size_t(i) + 1] - edges_[size_t(i)]) * 4;
        for (int y = 0; y < size.height(); ++y) std::memcpy(picture_.scanLine(y) + offset, cell.constScanLine(y) + offset, bytes);
        shown_[i] = text[i];
    }
    return picture_;
}
