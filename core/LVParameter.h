#pragma once
// One adjustable parameter of an effect kind. Declared once per kind; the settings
// editors, the archive, MIDI and scripting all read the same list.
#include <QJsonValue>
#include <QMap>
#include <QString>
#include <QStringList>
#include <QVariant>

#include <vector>

enum class LVParameterType {
    Bool,     // bool
    Integer,  // int, within minimum..maximum
    Float,    // double, within minimum..maximum
    Point2D,  // QPointF, each coordinate within minimum..maximum (QPointF bounds)
    Color,    // QColor with alpha
    Text,     // QString; drawn by the effect
    Image,    // QString: path of an image file, empty for none; archived with the picture
    Choice,   // int, one of choiceValues (labels in choiceLabels)
    Event,    // a momentary trigger, never archived
};

// How a settings panel shows a parameter when its type alone does not say.
enum class LVParameterEditor {
    Standard,   // the type's own editor
    XYPad,      // one two-axis pad for this (X) parameter and the one named by pairedKey (Y)
    PairedAxis, // the Y of a pad: edited through its X parameter, no editor of its own
    Font,       // a text holding a font family name
    FixedText,  // a text shown as a fixed line, not edited
};

struct LVParameter {
    QString key;   // archive key, scripting key path, MIDI target
    QString name;  // what a user reads: editor label, scripting property name
    LVParameterType type = LVParameterType::Float;
    QVariant defaultValue;
    QVariant minimum;
    QVariant maximum;
    QStringList choiceLabels;
    QList<int> choiceValues;
    LVParameterEditor editor = LVParameterEditor::Standard;
    QString pairedKey; // XYPad: the key of the Y parameter
    // Choice: what choosing a value also sets, by the other parameters' keys, so the
    // editors of those parameters show what the choice stands for.
    QMap<int, QVariantMap> presets;

    // The value brought into the declared type and range; an unusable value gives the default.
    QVariant clamp(const QVariant& value) const;
    QJsonValue toJson(const QVariant& value) const;
    // Decodes an archived value; a wrong type gives the default, out-of-range values are clamped.
    QVariant fromJson(const QJsonValue& json) const;
    // Events are momentary and a fixed line belongs to the effect, not to the user.
    bool isArchived() const { return type != LVParameterType::Event && editor != LVParameterEditor::FixedText; }
};

using LVParameterList = std::vector<LVParameter>;

// Where pictures taken out of archives are kept (the user's data folder).
QString LVArchivedImageFolder();

// Builders that keep kind descriptors short and readable.
LVParameter LVFloatParameter(const QString& key, const QString& name, double defaultValue, double minimum,
                             double maximum);
LVParameter LVIntegerParameter(const QString& key, const QString& name, int defaultValue, int minimum, int maximum);
LVParameter LVBoolParameter(const QString& key, const QString& name, bool defaultValue);
LVParameter LVTextParameter(const QString& key, const QString& name, const QString& defaultValue);
LVParameter LVImageParameter(const QString& key, const QString& name);
LVParameter LVColorParameter(const QString& key, const QString& name, const QVariant& defaultColor);
LVParameter LVPointParameter(const QString& key, const QString& name, QPointF defaultValue, QPointF minimum,
                             QPointF maximum);
LVParameter LVChoiceParameter(const QString& key, const QString& name, int defaultValue, const QStringList& labels,
                              const QList<int>& values);
