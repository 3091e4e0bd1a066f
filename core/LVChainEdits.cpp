#include "core/LVChainEdits.h"

#include <QMimeDatabase>
#include <QMimeType>

LVDroppedFiles LVClassifyDroppedFiles(const QStringList& paths)
{
    LVDroppedFiles files;
    const QMimeDatabase database;
    for (const QString& path : paths) {
        const QMimeType type = database.mimeTypeForFile(path);
        if (type.name().startsWith(QLatin1String("image/")) || type.inherits(QStringLiteral("image/x-generic"))) {
            files.images.append(path);
        } else if (type.name().startsWith(QLatin1String("video/"))) {
            files.movies.append(path);
        }
    }
    return files;
}
