#pragma once
// A small GL context for a test, its frame read back as A,R,G,B bytes (top row first), and
// pictures made into textures that go with the test.
#include "render/LVContext.h"

#include <gtest/gtest.h>

#include <QImage>
#include <QRect>

#include <array>
#include <functional>
#include <memory>
#include <vector>

using ARGB = std::array<int, 4>;
constexpr ARGB kBlack{255, 0, 0, 0};
constexpr ARGB kRed{255, 255, 0, 0};
constexpr ARGB kGreen{255, 0, 255, 0};
constexpr ARGB kBlue{255, 0, 0, 255};
constexpr ARGB kClear{0, 0, 0, 0};

inline ARGB lvArgb(QRgb c) { return {qAlpha(c), qRed(c), qGreen(c), qBlue(c)}; }

struct Frame {
    std::vector<uint8_t> bytes;
    int width = 0;
    int height = 0;
    int rowBytes = 0;
    // Row 0 is the top row.
    ARGB at(int x, int row) const
    {
        const uint8_t* p = bytes.data() + size_t(row) * size_t(rowBytes) + size_t(x) * 4;
        return {p[0], p[1], p[2], p[3]};
    }
    // Pixels inside area (GL coordinates, origin bottom-left) for which match answers true.
    int count(const QRect& area, const std::function<bool(int r, int g, int b)>& match) const
    {
        int n = 0;
        const QRect inside = area.intersected(QRect(0, 0, width, height));
        for (int y = inside.top(); y <= inside.bottom(); ++y)
            for (int x = inside.left(); x <= inside.right(); ++x) {
                const ARGB p = at(x, height - 1 - y);
                n += match(p[1], p[2], p[3]);
            }
        return n;
    }
    int count(const std::function<bool(int r, int g, int b)>& match) const { return count(QRect(0, 0, width, height), match); }
};

// Fills a rectangle of the bound framebuffer (GL coordinates, origin bottom-left).
inline void lvFill(int x, int y, int w, int h, float r, float g, float b)
{
    glEnable(GL_SCISSOR_TEST);
    glScissor(x, y, w, h);
    glClearColor(r, g, b, 1);
    glClear(GL_COLOR_BUFFER_BIT);
    glDisable(GL_SCISSOR_TEST);
}

class LVGLTest : public ::testing::Test {
protected:
    void makeContext(int width, int height)
    {
        releaseTextures();
        ctx.reset();
        QString error;
        ctx = LVContext::create(QSize(width, height), &error);
        ASSERT_TRUE(ctx) << error.toStdString();
    }
    void TearDown() override
    {
        releaseTextures();
        ctx.reset();
    }

    // Rows padded by padding bytes, which are filled with 0xEE first.
    Frame read(int padding = 0)
    {
        Frame f{{}, ctx->width(), ctx->height(), ctx->width() * 4 + padding};
        f.bytes.assign(size_t(f.rowBytes) * size_t(f.height), 0xEE);
        ctx->fetchOpenGLPixels(f.bytes.data(), f.rowBytes);
        return f;
    }
    // Fills a rectangle of the frame's own target.
    void fill(int x, int y, int w, int h, float r, float g, float b)
    {
        ctx->framebuffer();
        lvFill(x, y, w, h, r, g, b);
    }
    // The picture as a texture, deleted with the context.
    LVTexture texture(const QImage& picture)
    {
        int width = 0, height = 0;
        const GLuint name = ctx->textureFromImage(picture, &width, &height);
        EXPECT_NE(name, 0u);
        return textures_.emplace_back(LVTexture{name, width, height});
    }

    std::unique_ptr<LVContext> ctx;

private:
    void releaseTextures()
    {
        if (ctx && !textures_.empty()) {
            ctx->makeCurrent();
            for (const LVTexture& t : textures_) glDeleteTextures(1, &t.name);
        }
        textures_.clear();
    }

    std::vector<LVTexture> textures_;
};
