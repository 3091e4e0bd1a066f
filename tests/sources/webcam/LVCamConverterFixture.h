// A converter on its own offscreen GL context, and a pixel reader for the pictures it makes.
#pragma once

#include "render/LVGLContext.h"
#include "sources/webcam/LVCamConverter.h"
#include "sources/webcam/LVCamDevice.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <memory>

using RGBA = std::array<int, 4>;
struct YUV {
    int y, u, v;
};

inline ::testing::AssertionResult near(const RGBA& got, const RGBA& want, int tolerance)
{
    for (int i = 0; i < 4; ++i) {
        if (std::abs(got[i] - want[i]) > tolerance) {
            return ::testing::AssertionFailure() << "got (" << got[0] << "," << got[1] << "," << got[2] << ","
                                                 << got[3] << ") want (" << want[0] << "," << want[1] << ","
                                                 << want[2] << "," << want[3] << ")";
        }
    }
    return ::testing::AssertionSuccess();
}

class LVCamConverterFixture : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(LVCamInitGStreamer());
        QString error;
        gl = LVGLContext::makeOffscreenGLContext(&error);
        ASSERT_TRUE(gl) << error.toStdString();
        gl->makeCurrent();
        converter = LVCamConverter::create();
        ASSERT_TRUE(converter);
        glGenFramebuffers(1, &fbo);
    }
    void TearDown() override
    {
        if (!gl) return;
        gl->makeCurrent();
        converter.reset();
        glDeleteFramebuffers(1, &fbo);
    }

    RGBA at(const LVCamPicture& picture, int x, int row)
    {
        glBindFramebuffer(GL_FRAMEBUFFER, fbo);
        glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, picture.name(), 0);
        unsigned char p[4] = {};
        // Stored the GL way up: the frame's row 0 is the texture's top row.
        glReadPixels(x, picture.height() - 1 - row, 1, 1, GL_RGBA, GL_UNSIGNED_BYTE, p);
        glBindFramebuffer(GL_FRAMEBUFFER, 0);
        return {p[0], p[1], p[2], p[3]};
    }

    std::unique_ptr<LVGLContext> gl;
    std::unique_ptr<LVCamConverter> converter;
    GLuint fbo = 0;
};
