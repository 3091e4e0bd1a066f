// Another program publishing a PipeWire video node, for the tests of our PipeWire source:
//   lv_test_pipewire_node NAME DESCRIPTION WIDTH HEIGHT TOP BOTTOM
// The top half of every frame is TOP, the bottom half BOTTOM (B,G,R,A bytes as eight hex digits).
// Publishes about 30 frames a second until it is terminated.
#include "render/pipewire/LVPipeWireOutput.h"

#include <QString>

#include <chrono>
#include <cstdio>
#include <thread>
#include <vector>

namespace {

bool parseColour(const char* text, uint8_t bgra[4])
{
    bool ok = false;
    const uint32_t value = QString::fromLatin1(text).toUInt(&ok, 16);
    for (int i = 0; i < 4; ++i) bgra[i] = uint8_t(value >> (24 - 8 * i));
    return ok;
}

} // namespace

int main(int argc, char** argv)
{
    uint8_t top[4], bottom[4];
    const int width = argc == 7 ? std::atoi(argv[3]) : 0;
    const int height = argc == 7 ? std::atoi(argv[4]) : 0;
    if (argc != 7 || width <= 0 || height <= 0 || !parseColour(argv[5], top) || !parseColour(argv[6], bottom)) {
        std::fprintf(stderr, "usage: %s NAME DESCRIPTION WIDTH HEIGHT TOPBGRA BOTTOMBGRA\n", argv[0]);
        return 2;
    }
    std::vector<uint8_t> frame(size_t(width) * size_t(height) * 4);
    for (int y = 0; y < height; ++y) {
        const uint8_t* colour = y < height / 2 ? top : bottom;
        for (int x = 0; x < width; ++x) std::copy(colour, colour + 4, frame.begin() + (ptrdiff_t(y) * width + x) * 4);
    }
    LVPipeWireOutput output(QString::fromUtf8(argv[1]), QString::fromUtf8(argv[2]));
    if (!output.isAlive()) return 1;
    auto next = std::chrono::steady_clock::now();
    while (output.isAlive()) {
        output.pushFrame(frame.data(), width, height, width * 4);
        next += std::chrono::milliseconds(33);
        std::this_thread::sleep_until(next);
    }
    return 1;
}
