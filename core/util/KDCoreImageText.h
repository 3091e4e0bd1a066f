#pragma once
// A line of text drawn with a font, a colour, a shadow colour and a size into an image that
// the render loop uploads once per change.
#include <QColor>
#include <QImage>
#include <QString>

class KDCoreImageText {
public:
    explicit KDCoreImageText(QString text = {}) : text_(std::move(text)) {}

    void setText(const QString& text);
    void setFontName(const QString& family);
    void setColor(const QColor& color);
    void setShadowColor(const QColor& color);
    void setSize(int pixels);
    const QString& text() const { return text_; }

    // The text as straight-alpha ARGB, redrawn only after a change; a null image for no text.
    const QImage& image();
    // Bumped on every redraw, so a holder knows when to upload again.
    quint64 generation() const { return generation_; }

private:
    QString text_;
    QString family_ = QStringLiteral("DejaVu Sans");
    QColor color_ = Qt::white;
    QColor shadow_ = QColor(0, 0, 0, 200);
    int size_ = 24;
    bool dirty_ = true;
    QImage image_;
    quint64 generation_ = 0;
};
