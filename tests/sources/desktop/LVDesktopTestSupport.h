#pragma once
// What the desktop tests share besides the X server: a desktop source on a context of the
// test's own, and reading the pictures it grabs and the frames it draws.
#include "render/LVContext.h"
#include "sources/desktop/DesktopLion.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <vector>

// 0xRRGGBB of a grabbed picture's pixel (B,G,R,A rows, top first).
inline uint32_t lvPictureAt(const LVDesktopPicture& p, int x, int y)
{
    const uint8_t* px = p.bits + y * p.bytesPerLine + x * 4;
    return uint32_t(px[2]) << 16 | uint32_t(px[1]) << 8 | px[0];
}

inline std::unique_ptr<LVContext> lvMakeContext(QSize size)
{
    QString error;
    auto ctx = LVContext::create(size, &error);
    EXPECT_TRUE(ctx) << error.toStdString();
    return ctx;
}

inline std::unique_ptr<DesktopLion> lvMakeDesktop(LVContext* ctx)
{
    auto effect = std::unique_ptr<DesktopLion>(static_cast<DesktopLion*>(DesktopLion::classDescriptor().make().release()));
    effect->initWithContext(ctx);
    return effect;
}
