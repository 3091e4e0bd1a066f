#include "effects/telestrator/LVStrokes.h"

#include <QJsonObject>
#include <QJsonValue>

#include <algorithm>
#include <cmath>

namespace {

QPointF clampToFrame(QPointF p)
{
    const auto unit = [](double v) { return std::isfinite(v) ? std::clamp(v, 0.0, 1.0) : 0.0; };
    return {unit(p.x()), unit(p.y())};
}

constexpr double kMinWidth = 0.001;
constexpr double kMaxWidth = 0.2;

} // namespace

void LVStrokeList::begin(QPointF p, const QColor& color, double width, bool eraser)
{
    end();
    // The oldest stroke makes room, so drawing never stops working.
    if (strokes_.size() >= kMaxStrokes) strokes_.erase(strokes_.begin());
    LVStroke stroke;
    stroke.points.push_back(clampToFrame(p));
    stroke.color = color.isValid() ? color : QColor(Qt::red);
    stroke.width = std::clamp(std::isfinite(width) ? width : kMinWidth, kMinWidth, kMaxWidth);
    stroke.eraser = eraser;
    strokes_.push_back(std::move(stroke));
    ++revision_;
}

void LVStrokeList::extend(QPointF p)
{
    if (!isDrawing()) return;
    LVStroke& stroke = strokes_.back();
    const QPointF point = clampToFrame(p);
    if (stroke.points.size() >= kMaxPoints || stroke.points.back() == point) return;
    stroke.points.push_back(point);
    ++revision_;
}

void LVStrokeList::end()
{
    if (isDrawing()) strokes_.back().finished = true;
}

bool LVStrokeList::undo()
{
    if (strokes_.empty()) return false;
    strokes_.pop_back();
    ++revision_;
    return true;
}

void LVStrokeList::age(double now, double fadeAfter)
{
    for (LVStroke& stroke : strokes_) {
        if (stroke.finished && !stroke.finishedAt) stroke.finishedAt = now;
    }
    if (fadeAfter <= 0) return;
    if (std::erase_if(strokes_, [&](const LVStroke& stroke) { return stroke.finished && opacity(stroke, now, fadeAfter) <= 0; }))
        ++revision_;
}

bool LVStrokeList::isFading(double now, double fadeAfter) const
{
    return std::any_of(strokes_.begin(), strokes_.end(), [&](const LVStroke& stroke) {
        const double alpha = opacity(stroke, now, fadeAfter);
        return alpha > 0 && alpha < 1;
    });
}

double LVStrokeList::opacity(const LVStroke& stroke, double now, double fadeAfter)
{
    if (fadeAfter <= 0 || !stroke.finishedAt) return 1.0;
    const double late = now - *stroke.finishedAt - fadeAfter;
    if (late <= 0) return 1.0;
    return std::max(0.0, 1.0 - late / kFadeSeconds);
}

LVStrokeMesh LVStrokeList::mesh(QSize frame, double now, double fadeAfter) const
{
    LVStrokeMesh mesh;
    std::vector<LVStrokeVertex>& vertices = mesh.vertices;
    const double w = frame.width();
    const double h = frame.height();
    const size_t count = strokes_.size();
    for (size_t i = 0; i < count; ++i) {
        const LVStroke& stroke = strokes_[i];
        const double alpha = opacity(stroke, now, fadeAfter);
        if (alpha <= 0) continue;
        if (mesh.runs.empty() || mesh.runs.back().eraser != stroke.eraser)
            mesh.runs.push_back({vertices.size(), 0, stroke.eraser});
        LVStrokeVertex v{};
        v.radius = float(stroke.width * h / 2);
        if (stroke.eraser) {
            v.a = 1;  // whatever lies beneath goes, fully
        } else {
            const double a = stroke.color.alphaF() * alpha;
            v.r = float(stroke.color.redF() * a);
            v.g = float(stroke.color.greenF() * a);
            v.b = float(stroke.color.blueF() * a);
            v.a = float(a);
        }
        // Depth runs from near 1 (oldest) towards 0 (newest).
        v.depth = float(1.0 - double(i + 1) / double(count + 1));
        // A single point is a segment of length zero: a dot.
        const size_t segments = std::max<size_t>(1, stroke.points.size() - 1);
        for (size_t s = 0; s < segments; ++s) {
            const QPointF a = stroke.points[s];
            const QPointF b = stroke.points[std::min(s + 1, stroke.points.size() - 1)];
            const double ax = a.x() * w, ay = (1 - a.y()) * h;
            const double bx = b.x() * w, by = (1 - b.y()) * h;
            double dx = bx - ax, dy = by - ay;
            const double length = std::hypot(dx, dy);
            if (length > 0) {
                dx /= length;
                dy /= length;
            } else {
                dx = 1;
                dy = 0;
            }
            // One pixel beyond the radius so no covered pixel centre is missed.
            const double e = v.radius + 1;
            const double nx = -dy * e, ny = dx * e;
            const QPointF corners[4] = {{ax - dx * e + nx, ay - dy * e + ny}, {ax - dx * e - nx, ay - dy * e - ny},
                                        {bx + dx * e + nx, by + dy * e + ny}, {bx + dx * e - nx, by + dy * e - ny}};
            v.ax = float(ax);
            v.ay = float(ay);
            v.bx = float(bx);
            v.by = float(by);
            for (int corner : {0, 1, 2, 2, 1, 3}) {
                v.x = float(corners[corner].x());
                v.y = float(corners[corner].y());
                vertices.push_back(v);
            }
        }
        mesh.runs.back().count = vertices.size() - mesh.runs.back().first;
    }
    return mesh;
}

QJsonArray LVStrokeList::toJson() const
{
    QJsonArray array;
    for (const LVStroke& stroke : strokes_) {
        QJsonArray points;
        for (const QPointF& p : stroke.points) {
            points.append(p.x());
            points.append(p.y());
        }
        array.append(QJsonObject{{QStringLiteral("color"), stroke.color.name(QColor::HexArgb)},
                                 {QStringLiteral("width"), stroke.width},
                                 {QStringLiteral("eraser"), stroke.eraser},
                                 {QStringLiteral("points"), points}});
    }
    return array;
}

LVStrokeList LVStrokeList::fromJson(const QJsonArray& array)
{
    LVStrokeList list;
    for (const QJsonValue& entry : array) {
        if (list.strokes_.size() >= kMaxStrokes) break;
        const QJsonObject object = entry.toObject();
        const QJsonArray points = object.value(QStringLiteral("points")).toArray();
        const QColor color = QColor::fromString(object.value(QStringLiteral("color")).toString());
        if (points.size() < 2 || !color.isValid()) continue;
        list.begin(QPointF(points.at(0).toDouble(), points.at(1).toDouble()), color,
                   object.value(QStringLiteral("width")).toDouble(0.01), object.value(QStringLiteral("eraser")).toBool());
        for (qsizetype i = 2; i + 1 < points.size(); i += 2)
            list.extend(QPointF(points.at(i).toDouble(), points.at(i + 1).toDouble()));
        list.end();
    }
    return list;
}
