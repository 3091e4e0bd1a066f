#include "sources/desktop/LVDesktopDrawer.h"

#include "core/util/LVUtil.h"

void LVDesktopDrawer::release(LVContext* context)
{
    if (!texture_ && !cursorTexture_) return;
    if (context) context->makeCurrent();
    if (texture_) glDeleteTextures(1, &texture_);
    if (cursorTexture_) glDeleteTextures(1, &cursorTexture_);
    texture_ = cursorTexture_ = 0;
    width_ = height_ = 0;
    serial_ = 0;
    cursorSerial_ = 0;
}

bool LVDesktopDrawer::update(const std::shared_ptr<const LVDesktopPicture>& picture)
{
    if (!picture) return texture_ != 0;
    if (picture->serial == serial_ && texture_) return true;
    GLint previous = 0, rowLength = 0, alignment = 0;
    glGetIntegerv(GL_TEXTURE_BINDING_2D, &previous);
    glGetIntegerv(GL_UNPACK_ROW_LENGTH, &rowLength);
    glGetIntegerv(GL_UNPACK_ALIGNMENT, &alignment);
    if (!texture_) {
        glGenTextures(1, &texture_);
        glBindTexture(GL_TEXTURE_2D, texture_);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
        // The X server leaves the fourth byte undefined: the desktop is opaque.
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_SWIZZLE_A, GL_ONE);
    } else {
        glBindTexture(GL_TEXTURE_2D, texture_);
    }
    glPixelStorei(GL_UNPACK_ROW_LENGTH, picture->bytesPerLine / 4);
    glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
    // Rows go up top row first, so the texture is stored upside down; draw() turns it over.
    if (picture->width != width_ || picture->height != height_) {
        glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA8, picture->width, picture->height, 0, GL_BGRA, GL_UNSIGNED_BYTE,
                     picture->bits);
        width_ = picture->width;
        height_ = picture->height;
        lastUpload_ = QRect(0, 0, width_, height_);
    } else {
        // The texture holds the picture before this one: only what changed goes up.
        lastUpload_ = picture->previousSerial == serial_ ? picture->changed : QRect(0, 0, width_, height_);
        const uint8_t* first = picture->bits + lastUpload_.y() * picture->bytesPerLine + lastUpload_.x() * 4;
        if (!lastUpload_.isEmpty())
            glTexSubImage2D(GL_TEXTURE_2D, 0, lastUpload_.x(), lastUpload_.y(), lastUpload_.width(), lastUpload_.height(),
                            GL_BGRA, GL_UNSIGNED_BYTE, first);
    }
    glPixelStorei(GL_UNPACK_ROW_LENGTH, rowLength);
    glPixelStorei(GL_UNPACK_ALIGNMENT, alignment);
    glBindTexture(GL_TEXTURE_2D, GLuint(previous));
    serial_ = picture->serial;
    ++uploads_;
    return true;
}

QRectF LVDesktopDrawer::draw(LVContext& ctx)
{
    if (!texture_) return QRectF();
    ctx.framebuffer();
    const QRectF destination = LVUtil::fitRect(QSizeF(width_, height_), ctx.size());
    const LVTexture texture{texture_, width_, height_, nullptr};
    // From the last row to the first: the picture comes out upright.
    LVContext::drawTexture(texture, QRectF(0, height_, width_, -height_), destination, false, false);
    return destination;
}

void LVDesktopDrawer::drawCursor(LVContext& ctx, const LVCursorImage& cursor, QPointF hotSpotAt, const QRectF& destination)
{
    if (cursor.image.isNull() || width_ <= 0 || height_ <= 0 || destination.isEmpty()) return;
    if (!cursorTexture_ || cursor.serial != cursorSerial_) {
        if (cursorTexture_) glDeleteTextures(1, &cursorTexture_);
        int w = 0, h = 0;
        cursorTexture_ = ctx.textureFromImage(cursor.image, &w, &h);
        cursorSize_ = QSize(w, h);
        cursorSerial_ = cursor.serial;
    }
    ctx.framebuffer();
    const double scale = destination.width() / width_;
    const double left = hotSpotAt.x() - cursor.hotSpot.x();
    const double top = hotSpotAt.y() - cursor.hotSpot.y();
    const QRectF place(destination.x() + left * scale, destination.y() + (height_ - top - cursorSize_.height()) * scale,
                       cursorSize_.width() * scale, cursorSize_.height() * scale);
    // The arrow is cut to the picture, as if drawn into it.
    glEnable(GL_SCISSOR_TEST);
    glScissor(int(destination.x()), int(destination.y()), int(destination.width()), int(destination.height()));
    const LVTexture texture{cursorTexture_, cursorSize_.width(), cursorSize_.height(), nullptr};
    LVContext::drawTexture(texture, QRectF(0, 0, cursorSize_.width(), cursorSize_.height()), place, false, false);
    glDisable(GL_SCISSOR_TEST);
}

void LVDesktopDrawer::drawLatest(LVContext& ctx, const LVDesktopGrabber& grabber, bool withCursor)
{
    const auto picture = grabber.last();
    if (!update(picture)) return;
    const QRectF destination = draw(ctx);
    if (!withCursor) return;
    const LVDesktopMouse mouse = grabber.mouse();
    if (mouse.cursor) drawCursor(ctx, *mouse.cursor, mouse.location - picture->rootOrigin, destination);
}
