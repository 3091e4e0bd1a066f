#include "render/LVShmemOutput.h"

#include <libyuv/convert_from_argb.h>

void LVShmemOutput::drawFrame(LVOutputFrame& frame)
{
    publish(shmem_, *frame.pixels(), frameRate_());
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
