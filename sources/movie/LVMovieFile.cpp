#include "sources/movie/LVMovieFile.h"

#include <QFileInfo>

#include <algorithm>

QString LVMovieFile::caption() const
{
    return storedCaption ? *storedCaption : QFileInfo(path).fileName();
}

QJsonObject LVMovieFile::encode() const
{
    QJsonObject object{{QStringLiteral("class"), QStringLiteral("LVMovieFile")},
                       {QStringLiteral("path"), path},
                       {QStringLiteral("inPoint"), inPoint},
                       {QStringLiteral("outPoint"), outPoint}};
    if (storedCaption) object.insert(QStringLiteral("caption"), *storedCaption);
    return object;
}

std::optional<LVMovieFile> LVMovieFile::decode(const QJsonObject& object)
{
    const QJsonValue path = object.value(QStringLiteral("path"));
    if (!path.isString() || path.toString().isEmpty()) return std::nullopt;
    LVMovieFile file;
    file.path = path.toString();
    if (object.value(QStringLiteral("caption")).isString()) file.storedCaption = object.value(QStringLiteral("caption")).toString();
    file.inPoint = std::clamp(object.value(QStringLiteral("inPoint")).toInt(0), 0, 1000);
    file.outPoint = std::clamp(object.value(QStringLiteral("outPoint")).toInt(1000), 0, 1000);
    return file;
}
