#include "core/LVParameter.h"

#include "core/util/KDFileUtil.h"
#include "core/util/LVAtomicFile.h"
#include "core/util/LVBoundedRead.h"
#include "core/util/LVLog.h"

#include <QBuffer>
#include <QColor>
#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QImageReader>
#include <QJsonArray>
#include <QJsonObject>
#include <QPointF>
#include <QRegularExpression>

#include <algorithm>
#include <cmath>

namespace {

double clampNumber(double value, const QVariant& minimum, const QVariant& maximum)
{
    if (minimum.isValid()) value = std::max(value, minimum.toDouble());
    if (maximum.isValid()) value = std::min(value, maximum.toDouble());
    return value;
}

bool isNumber(const QVariant& value)
{
    switch (value.typeId()) {
    case QMetaType::Bool:
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Double:
    case QMetaType::Float:
        return true;
    default:
        return false;
    }
}

// An image value archived with the picture itself: an animated file as it is, a still one
// flattened to PNG. The original path stays for reference; a plain path when the file cannot
// be read, so nothing is lost that the old archives held.
QJsonValue archiveImage(const QString& path)
{
    if (path.isEmpty()) return path;
    QByteArray bytes;
    QString error;
    if (!LVReadRegularFile(path, kLVImageLimit, &bytes, &error)) {
        LVLog("Image \"%s\" %s; archived by its path only", qPrintable(path), qPrintable(error));
        return path;
    }
    QBuffer buffer(&bytes);
    QImageReader reader(&buffer);
    QByteArray format = reader.format();
    if (!(reader.supportsAnimation() && reader.imageCount() > 1)) {
        const QImage image = reader.read();
        if (image.isNull()) {
            LVLog("Image \"%s\" cannot be decoded (%s); archived by its path only", qPrintable(path),
                  qPrintable(reader.errorString()));
            return path;
        }
        bytes.clear();
        QBuffer png(&bytes);
        png.open(QIODevice::WriteOnly);
        image.save(&png, "PNG");
        format = "png";
    }
    return QJsonObject{{QStringLiteral("path"), path},
                       {QStringLiteral("format"), QString::fromLatin1(format)},
                       {QStringLiteral("data"), QString::fromLatin1(bytes.toBase64())}};
}

// Archived pictures are written once, named by their content, into a folder only the user
// reads; the renderer takes them from there as from any other file.
QString unarchiveImage(const QJsonObject& archived)
{
    const QString format = archived.value(QStringLiteral("format")).toString();
    const auto decoded = QByteArray::fromBase64Encoding(archived.value(QStringLiteral("data")).toString().toLatin1(),
                                                        QByteArray::Base64Encoding | QByteArray::AbortOnBase64DecodingErrors);
    static const QRegularExpression formatName(QStringLiteral("^[a-z0-9]{1,8}$"));
    if (!decoded || decoded.decoded.isEmpty() || decoded.decoded.size() > kLVImageLimit ||
        !formatName.match(format).hasMatch()) {
        LVLog("Archived image for \"%s\" is damaged; the image is left empty",
              qPrintable(archived.value(QStringLiteral("path")).toString()));
        return {};
    }
    const QString folder = LVArchivedImageFolder();
    const QString name = QString::fromLatin1(QCryptographicHash::hash(decoded.decoded, QCryptographicHash::Sha256).toHex());
    const QString path = QStringLiteral("%1/%2.%3").arg(folder, name, format);
    QByteArray existing;
    QString error;
    if (LVReadRegularFile(path, kLVImageLimit, &existing, &error) && existing == decoded.decoded) return path;
    if (!QDir().mkpath(folder) ||
        !QFile::setPermissions(folder, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner)) {
        LVLog("Unable to make the folder \"%s\" for archived images", qPrintable(folder));
        return {};
    }
    if (!LVWriteFileAtomically(path, decoded.decoded, &error) ||
        !QFile::setPermissions(path, QFileDevice::ReadOwner | QFileDevice::WriteOwner)) {
        LVLog("Unable to write the archived image \"%s\": %s", qPrintable(path), qPrintable(error));
        return {};
    }
    return path;
}

} // namespace

QString LVArchivedImageFolder()
{
    return KDFileUtil::findApplicationSupportFor(QStringLiteral("Lumaveil")) + QStringLiteral("/Archived Images");
}

QVariant LVParameter::clamp(const QVariant& value) const
{
    switch (type) {
    case LVParameterType::Bool:
    case LVParameterType::Event:
        return isNumber(value) ? QVariant(value.toBool()) : defaultValue;
    case LVParameterType::Integer: {
        if (!isNumber(value) || !std::isfinite(value.toDouble())) return defaultValue;
        return QVariant(int(std::lround(clampNumber(value.toDouble(), minimum, maximum))));
    }
    case LVParameterType::Float: {
        if (!isNumber(value) || !std::isfinite(value.toDouble())) return defaultValue;
        return QVariant(clampNumber(value.toDouble(), minimum, maximum));
    }
    case LVParameterType::Choice: {
        if (!isNumber(value)) return defaultValue;
        const int chosen = value.toInt();
        if (choiceValues.isEmpty() || choiceValues.contains(chosen)) return QVariant(chosen);
        return defaultValue;
    }
    case LVParameterType::Point2D: {
        if (value.typeId() != QMetaType::QPointF && value.typeId() != QMetaType::QPoint) return defaultValue;
        QPointF point = value.toPointF();
        if (!std::isfinite(point.x()) || !std::isfinite(point.y())) return defaultValue;
        const QPointF low = minimum.isValid() ? minimum.toPointF() : QPointF(-1e9, -1e9);
        const QPointF high = maximum.isValid() ? maximum.toPointF() : QPointF(1e9, 1e9);
        point.setX(std::clamp(point.x(), low.x(), high.x()));
        point.setY(std::clamp(point.y(), low.y(), high.y()));
        return QVariant(point);
    }
    case LVParameterType::Color: {
        const QColor color = value.value<QColor>();
        return color.isValid() ? QVariant(color) : defaultValue;
    }
    case LVParameterType::Text:
    case LVParameterType::Image:
        return value.typeId() == QMetaType::QString ? value : defaultValue;
    }
    return defaultValue;
}

QJsonValue LVParameter::toJson(const QVariant& value) const
{
    const QVariant v = clamp(value);
    switch (type) {
    case LVParameterType::Bool:
    case LVParameterType::Event:
        return v.toBool();
    case LVParameterType::Integer:
    case LVParameterType::Choice:
        return v.toInt();
    case LVParameterType::Float:
        return v.toDouble();
    case LVParameterType::Point2D:
        return QJsonArray{v.toPointF().x(), v.toPointF().y()};
    case LVParameterType::Color: {
        const QColor c = v.value<QColor>();
        return QJsonArray{c.redF(), c.greenF(), c.blueF(), c.alphaF()};
    }
    case LVParameterType::Text:
        return v.toString();
    case LVParameterType::Image:
        return archiveImage(v.toString());
    }
    return QJsonValue();
}

QVariant LVParameter::fromJson(const QJsonValue& json) const
{
    switch (type) {
    case LVParameterType::Bool:
    case LVParameterType::Event:
    case LVParameterType::Integer:
    case LVParameterType::Float:
    case LVParameterType::Choice:
        if (json.isBool()) return clamp(QVariant(json.toBool()));
        return json.isDouble() ? clamp(QVariant(json.toDouble())) : defaultValue;
    case LVParameterType::Point2D: {
        const QJsonArray a = json.toArray();
        if (a.size() != 2 || !a[0].isDouble() || !a[1].isDouble()) return defaultValue;
        return clamp(QVariant(QPointF(a[0].toDouble(), a[1].toDouble())));
    }
    case LVParameterType::Color: {
        const QJsonArray a = json.toArray();
        if (a.size() < 3) return defaultValue;
        auto channel = [&](int i) { return std::clamp(i < a.size() ? a[i].toDouble(1.0) : 1.0, 0.0, 1.0); };
        return QVariant(QColor::fromRgbF(float(channel(0)), float(channel(1)), float(channel(2)), float(channel(3))));
    }
    case LVParameterType::Text:
        return json.isString() ? QVariant(json.toString()) : defaultValue;
    case LVParameterType::Image:
        // Older archives hold only the path.
        if (json.isObject()) return unarchiveImage(json.toObject());
        return json.isString() ? QVariant(json.toString()) : defaultValue;
    }
    return defaultValue;
}

LVParameter LVFloatParameter(const QString& key, const QString& name, double defaultValue, double minimum,
                             double maximum)
{
    return {key, name, LVParameterType::Float, defaultValue, minimum, maximum, {}, {}, LVParameterEditor::Standard, {}, {}};
}

LVParameter LVIntegerParameter(const QString& key, const QString& name, int defaultValue, int minimum, int maximum)
{
    return {key, name, LVParameterType::Integer, defaultValue, minimum, maximum, {}, {}, LVParameterEditor::Standard, {}, {}};
}

LVParameter LVBoolParameter(const QString& key, const QString& name, bool defaultValue)
{
    return {key, name, LVParameterType::Bool, defaultValue, {}, {}, {}, {}, LVParameterEditor::Standard, {}, {}};
}

LVParameter LVTextParameter(const QString& key, const QString& name, const QString& defaultValue)
{
    return {key, name, LVParameterType::Text, defaultValue, {}, {}, {}, {}, LVParameterEditor::Standard, {}, {}};
}

LVParameter LVImageParameter(const QString& key, const QString& name)
{
    return {key, name, LVParameterType::Image, QString(), {}, {}, {}, {}, LVParameterEditor::Standard, {}, {}};
}

LVParameter LVColorParameter(const QString& key, const QString& name, const QVariant& defaultColor)
{
    return {key, name, LVParameterType::Color, defaultColor, {}, {}, {}, {}, LVParameterEditor::Standard, {}, {}};
}

LVParameter LVPointParameter(const QString& key, const QString& name, QPointF defaultValue, QPointF minimum,
                             QPointF maximum)
{
    return {key, name, LVParameterType::Point2D, defaultValue, minimum, maximum, {}, {}, LVParameterEditor::Standard, {}, {}};
}

LVParameter LVChoiceParameter(const QString& key, const QString& name, int defaultValue, const QStringList& labels,
                              const QList<int>& values)
{
    return {key, name, LVParameterType::Choice, defaultValue, {}, {}, labels, values, LVParameterEditor::Standard, {}, {}};
}
