#pragma once
// Effects drawn on by hand (the telestrator): the preview widgets hand pointer strokes to
// the first enabled one in the chain they show, in frame coordinates (0..1, origin top left).
#include <QPointF>

class LVStrokeReceiver {
public:
    virtual ~LVStrokeReceiver() = default;
    virtual void beginStroke(QPointF point) = 0;
    virtual void continueStroke(QPointF point) = 0;
    virtual void endStroke() = 0;
    // Takes every stroke away (the user menu's shortcut).
    virtual void clearStrokes() = 0;
};
