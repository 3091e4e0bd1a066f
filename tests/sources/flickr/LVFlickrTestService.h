#pragma once
// What every photo-set test starts from: a local server answering as the service documents,
// the preferences pointing at it, and a context for the source. Call start() from SetUp.
#include "LVTestHttpServer.h"

#include "core/LVDefaults.h"
#include "render/LVContext.h"

#include <QBuffer>
#include <QImage>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <memory>

struct LVFlickrTestService {
    ~LVFlickrTestService() { LVDefaults::setStandardUserDefaults(nullptr); }

    void start()
    {
        // Its sockets need the application.
        server = std::make_unique<LVTestHttpServer>();
        ASSERT_TRUE(home.isValid());
        defaults = std::make_unique<LVDefaults>(home.filePath("prefs.json"));
        LVDefaults::setStandardUserDefaults(defaults.get());
        defaults->setValue("flickrRESTAddress", server->address());
        defaults->setValue("flickrPhotoAddress", server->address() + "/farm%1");
        QString error;
        context = LVContext::create(QSize(40, 30), &error);
        ASSERT_TRUE(context) << error.toStdString();
    }

    static QByteArray jpeg(QColor colour)
    {
        QImage image(40, 30, QImage::Format_RGB32);
        image.fill(colour);
        QByteArray bytes;
        QBuffer buffer(&bytes);
        buffer.open(QIODevice::WriteOnly);
        image.save(&buffer, "JPEG", 100);
        return bytes;
    }

    void servePhoto(const QString& path, QColor colour, bool slow = false)
    {
        server->answer(path, {200, jpeg(colour), "image/jpeg", slow});
    }

    QTemporaryDir home;
    std::unique_ptr<LVTestHttpServer> server;
    std::unique_ptr<LVDefaults> defaults;
    std::unique_ptr<LVContext> context;
};
