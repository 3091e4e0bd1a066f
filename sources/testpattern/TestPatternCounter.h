#pragma once
// The test pattern's counter line. Drawing 72-pixel text with QPainter fills glyph outlines
// every frame (too large for its glyph cache), which costs more than the rest of the frame.
// The line always has the same shape ("00:00:00.000  #000000"), so each character cell is
// rendered once per size, the same way, and a frame's line is copied together from cells.
// When the glyphs' ink would cross cells, or the text has another shape, it is painted.
#include <QImage>
#include <QSize>
#include <QString>

#include <array>
#include <vector>

class TestPatternCounter {
public:
    // The line as QPainter draws it: white, centred, on black, rows top first.
    static QImage paint(QSize size, const QString& text);

    // The same pixels as paint(size, text), as RGBA bytes with the bottom row first (ready
    // to upload under a frame's GL origin).
    const QImage& picture(QSize size, const QString& text);
    // Whether the last picture was composed from cells rather than painted.
    bool composed() const { return composed_; }

private:
    void prepare(QSize size);
    bool fits(const QString& text) const;

    QSize size_;
    bool usable_ = false;
    bool composed_ = false;
    // For each parity of position and digit: every cell of that parity holding its character,
    // the others blank, so no cell's ink touches another's.
    std::array<QImage, 20> cells_;
    std::vector<int> edges_; // cell i spans columns [edges_[i], edges_[i + 1])
    QImage picture_;
    QString shown_; // what picture_ holds, by cell
};
