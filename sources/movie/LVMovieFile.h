#pragma once
// One playlist entry: a movie file with its caption and in and out points.
#include <QJsonObject>
#include <QString>

#include <cstdint>
#include <optional>

struct LVMovieFile {
    QString path;
    std::optional<QString> storedCaption;
    int32_t inPoint = 0;     // thousandths of the movie's length
    int32_t outPoint = 1000;

    // The stored caption, else the file's name.
    QString caption() const;
    void setCaption(const QString& caption) { storedCaption = caption; }

    QJsonObject encode() const;
    // Null when the object holds no "path".
    static std::optional<LVMovieFile> decode(const QJsonObject& object);
};
