#include "render/LVShmemOutput.h"

#include <libyuv/convert_from_argb.h>

void LVShmemOutput::drawFrame(LVOutputFrame& frame)
{
    if (frame.hasPixels()) {
        publish(shmem_, *frame.pixels(), frameRate_());
        return;
    }
    // The only CPU output this frame: read straight into the block in the transport's order.
    const int width = frame.context().width(), height = frame.context().height();
    shmem_.publishFrame(width, height, frameRate_() & 0xFFFF,
                        [&](void* destination, int rowBytes) { frame.readInto(destination, rowBytes); });
}

void LVShmemOutput::publish(LVShmem& shmem, const LVFramePixels& pixels, int frameRate)
{
    shmem.publishFrame(pixels.width, pixels.height, frameRate & 0xFFFF, [&pixels](void* destination, int rowBytes) {
        // libyuv names formats by their 32-bit word: its "ARGB" is our B,G,R,A bytes and its
        // "BGRA" the transport's A,R,G,B bytes.
        libyuv::ARGBToBGRA(pixels.bytes.data(), pixels.stride, static_cast<uint8_t*>(destination), rowBytes,
                           pixels.width, pixels.height);
    });
}
