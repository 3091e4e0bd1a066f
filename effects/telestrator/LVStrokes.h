#pragma once
// The telestrator's drawing: freehand strokes kept in frame coordinates (0..1, origin top
// left), so they land where they were drawn whatever size the picture is shown at.
#include <QColor>
#include <QJsonArray>
#include <QPointF>
#include <QSize>

#include <cstdint>
#include <optional>
#include <vector>

struct LVStroke {
    std::vector<QPointF> points;
    QColor color;
    double width = 0.01;  // fraction of the frame's height
    bool eraser = false;
    // The frame time at which the pen lifted; none while it is still down (or until the
    // next frame stamps it).
    std::optional<double> finishedAt;
    bool finished = false;
};

// One vertex of the stroke mesh: a quad around each segment; the fragment stage keeps the
// pixels within radius of the segment, which gives round caps and joins.
struct LVStrokeVertex {
    float x, y;          // window pixels, GL origin bottom left
    float ax, ay, bx, by; // the segment, window pixels
    float radius;
    float r, g, b, a;    // premultiplied; an eraser is (0, 0, 0, 1)
    float depth;         // newer strokes nearer, so each stroke covers a pixel once
};

// The vertices in runs of strokes that blend alike: drawing strokes add colour, eraser
// strokes take it away.
struct LVStrokeMesh {
    struct Run {
        size_t first = 0;
        size_t count = 0;
        bool eraser = false;
    };
    std::vector<LVStrokeVertex> vertices;
    std::vector<Run> runs;
};

class LVStrokeList {
public:
    // Bounds that keep a long session (or a hostile archive) from growing without end.
    static constexpr size_t kMaxStrokes = 500;
    static constexpr size_t kMaxPoints = 4096;
    // How long a stroke takes to fade out once its time is up.
    static constexpr double kFadeSeconds = 1.0;

    // Starts a stroke at p (clamped into the frame); a stroke still open is finished first.
    void begin(QPointF p, const QColor& color, double width, bool eraser);
    // Adds a point to the open stroke; repeated points and points past the bound are dropped.
    void extend(QPointF p);
    void end();
    // Removes the newest stroke; answers whether there was one.
    bool undo();
    void clear()
    {
        strokes_.clear();
        ++revision_;
    }
    bool isEmpty() const { return strokes_.empty(); }
    bool isDrawing() const { return !strokes_.empty() && !strokes_.back().finished; }
    const std::vector<LVStroke>& strokes() const { return strokes_; }
    // Changes with every edit, so a drawing of the strokes can be kept until it is stale.
    uint64_t revision() const { return revision_; }
    // Whether some stroke is part way through fading out at now.
    bool isFading(double now, double fadeAfter) const;

    // Stamps strokes finished since the last frame with now and drops those that have
    // faded out. fadeAfter <= 0 keeps strokes until cleared.
    void age(double now, double fadeAfter);
    // 1 until fadeAfter seconds after the pen lifted, then down to 0 over kFadeSeconds.
    static double opacity(const LVStroke& stroke, double now, double fadeAfter);

    // The triangles that draw the strokes into a frame of the given size.
    LVStrokeMesh mesh(QSize frame, double now, double fadeAfter) const;

    // Archived form: [{"color": "#aarrggbb", "width": w, "eraser": b, "points": [x, y, ...]}].
    QJsonArray toJson() const;
    // Reads what toJson wrote; malformed entries are skipped, bounds apply, strokes come
    // back finished and fresh (their fade starts again).
    static LVStrokeList fromJson(const QJsonArray& array);

private:
    std::vector<LVStroke> strokes_;
    uint64_t revision_ = 0;
};
