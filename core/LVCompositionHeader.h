#pragma once
// The JSON header of a composition file: a GLSL fragment shader that opens with a
// /*{ ... }*/ comment holding its description (inputs, passes, attributes).
#include <QJsonArray>
#include <QJsonObject>
#include <QString>
#include <QStringList>

// The protocol an effect composition declares in its "protocols" list.
inline constexpr const char* LVCompositionProtocolImageFilter = "ImageFilter";

struct LVCompositionHeader {
    bool valid = false;
    QString error;        // why it is not valid, for the log
    int errorLine = 0;    // 1-based line of the problem in the file, 0 when unknown
    QJsonObject json;     // the header object
    QString shaderSource; // everything after the header comment
    int sourceFirstLine = 1;  // file line on which shaderSource starts

    static LVCompositionHeader parse(const QByteArray& text);
    static LVCompositionHeader read(const QString& path);

    QJsonArray inputs() const { return json.value(QStringLiteral("INPUTS")).toArray(); }
    bool hasInputNamed(const QString& name) const;
    // Lumaveil's ports ("transitionTime" and "targetImage") or ISF's ("startImage",
    // "endImage" and "progress").
    bool isTransition() const;
    // No image input for the chain's picture and no transition ports: it makes a picture of
    // its own (colour bars, a clock face), so it can also serve as a source.
    bool isGenerator() const;
    bool isBackdrop() const { return json.value(QStringLiteral("isBackdrop")).toBool(false); }
    bool isFaceTrackingEffect() const { return json.value(QStringLiteral("isFaceTrackingEffect")).toBool(false); }
    bool hasProtocols() const { return json.value(QStringLiteral("protocols")).isArray(); }
    QStringList protocols() const;
};
