#include "effects/telestrator/Telestrator.h"

#include "render/LVContext.h"

namespace {

const QString kColor = QStringLiteral("strokeColor");
const QString kWidth = QStringLiteral("strokeWidth");
const QString kEraser = QStringLiteral("eraser");
const QString kFadeAfter = QStringLiteral("fadeAfter");
const QString kKeep = QStringLiteral("keepStrokes");
const QString kUndo = QStringLiteral("undo");
const QString kClear = QStringLiteral("clear");
const QString kStrokes = QStringLiteral("strokes");

LVParameter eventParameter(const QString& key, const QString& name)
{
    LVParameter parameter;
    parameter.key = key;
    parameter.name = name;
    parameter.type = LVParameterType::Event;
    parameter.defaultValue = false;
    return parameter;
}

} // namespace

const LVEffectDescriptor& Telestrator::classDescriptor()
{
    static const LVEffectDescriptor descriptor{
        QStringLiteral("Telestrator"),
        QStringLiteral("Telestrator"),
        LVEffectRole::Effect,
        [] { return std::make_unique<Telestrator>(); },
        {LVColorParameter(kColor, QStringLiteral("Colour"), QColor(255, 32, 32)),
         // Fractions of the picture's height, so a stroke looks the same at every video size.
         LVFloatParameter(kWidth, QStringLiteral("Width"), 0.01, 0.002, 0.1),
         LVBoolParameter(kEraser, QStringLiteral("Eraser"), false),
         // Seconds after the pen lifts; 0 keeps strokes until cleared.
         LVFloatParameter(kFadeAfter, QStringLiteral("Fade After"), 0, 0, 600),
         LVBoolParameter(kKeep, QStringLiteral("Keep Strokes With Setup"), false),
         eventParameter(kUndo, QStringLiteral("Undo")), eventParameter(kClear, QStringLiteral("Clear"))},
    };
    return descriptor;
}

void LVRegisterTelestrator()
{
    LVEffectClasses::registerClass(&Telestrator::classDescriptor());
}

bool Telestrator::initWithCoder(LVKeyedUnarchiver& coder)
{
    if (!LVEffect::initWithCoder(coder)) return false;
    if (parameterValue(kKeep).toBool() && coder.containsValueForKey(kStrokes))
        strokes_ = LVStrokeList::fromJson(coder.decodeValue(kStrokes).toArray());
    return true;
}

void Telestrator::encodeWithCoder(LVKeyedArchiver& coder) const
{
    LVEffect::encodeWithCoder(coder);
    if (parameterValue(kKeep).toBool()) coder.encodeValue(kStrokes, strokes_.toJson());
}

void Telestrator::destruct()
{
    renderer_.reset();
    drawnRevision_.reset();
}

QStringList Telestrator::inspectorNotes() const
{
    return {QStringLiteral("Draw on the preview with the mouse or a pen.")};
}

void Telestrator::parameterChanged(const QString& key)
{
    if (key == kUndo && parameterValue(kUndo).toBool()) undo();
    if (key == kClear && parameterValue(kClear).toBool()) clearStrokes();
}

void Telestrator::beginStroke(QPointF point)
{
    strokes_.begin(point, parameterValue(kColor).value<QColor>(), parameterValue(kWidth).toDouble(),
                   parameterValue(kEraser).toBool());
}

void Telestrator::continueStroke(QPointF point)
{
    strokes_.extend(point);
}

void Telestrator::endStroke()
{
    strokes_.end();
}

void Telestrator::doit()
{
    LVContext* ctx = context();
    if (!ctx) return;
    const double fadeAfter = parameterValue(kFadeAfter).toDouble();
    const double now = ctx->frameTime();
    strokes_.age(now, fadeAfter);
    if (strokes_.isEmpty()) return;
    if (!renderer_) renderer_ = std::make_unique<LVStrokeRenderer>();
    // Strokes that stay cost one layer over the frame; drawing them again waits for a change.
    if (drawnRevision_ != strokes_.revision() || strokes_.isFading(now, fadeAfter) || !renderer_->hasLayer(*ctx)) {
        renderer_->drawLayer(*ctx, strokes_.mesh(QSize(ctx->width(), ctx->height()), now, fadeAfter));
        drawnRevision_ = strokes_.revision();
    }
    renderer_->composite(*ctx);
}
