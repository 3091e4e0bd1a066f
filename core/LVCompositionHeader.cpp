#include "core/LVCompositionHeader.h"

#include "core/util/LVBoundedRead.h"

#include <QFile>
#include <QJsonDocument>
#include <QJsonParseError>

namespace {

int lineOfOffset(const QByteArray& text, qsizetype offset)
{
    return int(text.left(offset).count('\n')) + 1;
}

} // namespace

LVCompositionHeader LVCompositionHeader::parse(const QByteArray& text)
{
    LVCompositionHeader header;
    const qsizetype open = text.indexOf("/*");
    const qsizetype close = open < 0 ? -1 : text.indexOf("*/", open + 2);
    if (open < 0 || close < 0 || !text.left(open).trimmed().isEmpty()) {
        header.error = QStringLiteral("no /*{ ... }*/ header comment at the start of the file");
        header.errorLine = 1;
        return header;
    }
    const QByteArray jsonText = text.mid(open + 2, close - open - 2);
    QJsonParseError parseError{};
    const QJsonDocument document = QJsonDocument::fromJson(jsonText, &parseError);
    if (parseError.error != QJsonParseError::NoError || !document.isObject()) {
        header.error = parseError.error != QJsonParseError::NoError
                           ? QStringLiteral("header is not valid JSON: %1").arg(parseError.errorString())
                           : QStringLiteral("header is not a JSON object");
        header.errorLine = lineOfOffset(text, open + 2 + parseError.offset);
        return header;
    }
    header.json = document.object();
    const QJsonValue inputs = header.json.value(QStringLiteral("INPUTS"));
    if (!inputs.isUndefined() && !inputs.isArray()) {
        header.error = QStringLiteral("header key \"INPUTS\" is not an array");
        header.errorLine = lineOfOffset(text, open);
        return header;
    }
    header.shaderSource = QString::fromUtf8(text.mid(close + 2));
    header.sourceFirstLine = lineOfOffset(text, close + 2);
    header.valid = true;
    return header;
}

LVCompositionHeader LVCompositionHeader::read(const QString& path)
{
    QByteArray bytes;
    QString error;
    if (!LVReadRegularFile(path, kLVCompositionLimit, &bytes, &error)) {
        LVCompositionHeader header;
        header.error = error;
        return header;
    }
    return parse(bytes);
}

bool LVCompositionHeader::hasInputNamed(const QString& name) const
{
    for (const QJsonValue& input : inputs()) {
        if (input.toObject().value(QStringLiteral("NAME")).toString() == name) return true;
    }
    return false;
}

bool LVCompositionHeader::isTransition() const
{
    if (hasInputNamed(QStringLiteral("transitionTime")) && hasInputNamed(QStringLiteral("targetImage"))) return true;
    return hasInputNamed(QStringLiteral("startImage")) && hasInputNamed(QStringLiteral("endImage")) &&
           hasInputNamed(QStringLiteral("progress"));
}

bool LVCompositionHeader::isGenerator() const
{
    return valid && !isTransition() && !hasInputNamed(QStringLiteral("inputImage")) &&
           !hasInputNamed(QStringLiteral("_protocolInput_Image"));
}

QStringList LVCompositionHeader::protocols() const
{
    QStringList list;
    for (const QJsonValue& value : json.value(QStringLiteral("protocols")).toArray()) list << value.toString();
    return list;
}
