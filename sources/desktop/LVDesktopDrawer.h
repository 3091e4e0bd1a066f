#pragma once
// Draws captured desktop pictures and the mouse arrow into a frame. Lives on the render thread:
// a picture is uploaded once, when a new one arrives; frames in between draw the kept texture.
#include "sources/desktop/LVDesktopGrabber.h"

#include "render/LVContext.h"

#include <QRectF>

class LVDesktopDrawer {
public:
    LVDesktopDrawer() = default;
    LVDesktopDrawer(const LVDesktopDrawer&) = delete;
    LVDesktopDrawer& operator=(const LVDesktopDrawer&) = delete;
    // Textures go with release(), on the render thread with the context current.
    ~LVDesktopDrawer() = default;
    void release(LVContext* context);

    // Uploads the picture when it is new; false when there is nothing to draw.
    bool update(const std::shared_ptr<const LVDesktopPicture>& picture);
    // Draws the kept picture aspect-fitted into ctx's frame and answers where it went.
    QRectF draw(LVContext& ctx);
    // Draws the arrow with its hot spot at hotSpotAt (picture pixels, origin top left), scaled
    // and clipped like the picture in destination.
    void drawCursor(LVContext& ctx, const LVCursorImage& cursor, QPointF hotSpotAt, const QRectF& destination);
    // The grabber's latest picture, with the arrow over it when withCursor; nothing until one came.
    void drawLatest(LVContext& ctx, const LVDesktopGrabber& grabber, bool withCursor);
    uint64_t uploads() const { return uploads_; }
    // The part of the picture the last upload sent (picture pixels, origin top left).
    QRect lastUpload() const { return lastUpload_; }
    QSize pictureSize() const { return QSize(width_, height_); }

private:
    GLuint texture_ = 0;
    int width_ = 0;
    int height_ = 0;
    uint64_t serial_ = 0;
    uint64_t uploads_ = 0;
    QRect lastUpload_;
    GLuint cursorTexture_ = 0;
    unsigned long cursorSerial_ = 0;
    QSize cursorSize_;
};
