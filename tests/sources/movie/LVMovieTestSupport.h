#pragma once
// Movies made for the tests with ffmpeg's generated sources: solid colours for exact
// pixels, and a clip whose colour changes every half second for seeks.
#include "render/LVContext.h"

#include <QProcess>
#include <QRgb>
#include <QStringList>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <memory>

// An H.264 clip of an ffmpeg-generated picture graph; false (with ffmpeg's output in error) when
// it fails.
inline bool lvMakeMovie(const QString& graph, const QString& path, QString* error, const QStringList& extra = {})
{
    QProcess ffmpeg;
    ffmpeg.start(QStringLiteral("ffmpeg"), QStringList{"-hide_banner", "-loglevel", "error", "-y", "-f", "lavfi", "-i", graph,
                                                       "-c:v", "libx264", "-pix_fmt", "yuv420p"} + extra + QStringList{path});
    if (!ffmpeg.waitForFinished(60000) || ffmpeg.exitCode() != 0) {
        *error = QString::fromUtf8(ffmpeg.readAllStandardError());
        return false;
    }
    return true;
}

// A solid-colour clip of the given length at 30 fps, 64x48.
inline bool lvMakeSolidMovie(const QString& colour, double seconds, const QString& path, QString* error,
                             const QString& title = {})
{
    return lvMakeMovie(QStringLiteral("color=c=%1:s=64x48:r=30:d=%2").arg(colour).arg(seconds), path, error,
                       title.isEmpty() ? QStringList{} : QStringList{"-metadata", "title=" + title});
}

// Two seconds: red, green, blue and white for half a second each.
inline bool lvMakeQuarterMovie(const QString& path, QString* error)
{
    return lvMakeMovie(QStringLiteral("color=c=red:s=64x48:r=30:d=0.5[a];color=c=lime:s=64x48:r=30:d=0.5[b];"
                                      "color=c=blue:s=64x48:r=30:d=0.5[c];color=c=white:s=64x48:r=30:d=0.5[d];"
                                      "[a][b][c][d]concat=n=4"),
                       path, error);
}

// The colour at the centre of the context's frame.
inline QRgb lvCentrePixel(LVContext& context)
{
    std::vector<uint8_t> argb(size_t(context.width()) * size_t(context.height()) * 4);
    context.fetchOpenGLPixels(argb.data(), context.width() * 4);
    const size_t at = (size_t(context.height() / 2) * size_t(context.width()) + size_t(context.width() / 2)) * 4;
    return qRgba(argb[at + 1], argb[at + 2], argb[at + 3], argb[at]);
}

// Which of red, green, blue, white or black a decoded pixel is ('?' when none is close).
inline char lvColourName(QRgb pixel)
{
    const auto near = [](int v, int target) { return std::abs(v - target) <= 40; };
    const int r = qRed(pixel), g = qGreen(pixel), b = qBlue(pixel);
    if (near(r, 255) && near(g, 0) && near(b, 0)) return 'r';
    if (near(r, 0) && near(g, 255) && near(b, 0)) return 'g';
    if (near(r, 0) && near(g, 0) && near(b, 255)) return 'b';
    if (near(r, 255) && near(g, 255) && near(b, 255)) return 'w';
    if (near(r, 0) && near(g, 0) && near(b, 0)) return 'k';
    return '?';
}
