#pragma once
// The frame transport to the virtual camera: a control segment and two image segments used as
// a double buffer, with no lock between writer and reader (a publish counter, a per-frame
// timestamp and per-block versions instead). Both halves of the protocol live here so writer
// and reader share one definition of the layout.
#include <cstdint>
#include <functional>
#include <cstddef>
#include <memory>
#include <string>

#include "transport/KDSharedMem.h"

// Control block, 16 bytes, little-endian.
constexpr int kLVControlBlockSize = 16;
constexpr int kLVCtrlAppPid = 0;        // u32, 0: producer not running
constexpr int kLVCtrlBlockVersion = 4;  // u16[2]
constexpr int kLVCtrlCurrentBlock = 8;  // u32, 0xFFFFFFFF: nothing published yet
constexpr int kLVCtrlFrameSeq = 12;     // u32
constexpr uint32_t kLVNoBlock = 0xFFFFFFFFu;

// Image block: a 24-byte header reservation, pixels at 20, segment sized pixels + 24.
constexpr int kLVImageBlockHeaderSize = 24;
constexpr int kLVImgTimestamp = 0;  // u64, CLOCK_MONOTONIC nanoseconds
constexpr int kLVImgWidth = 8;      // u16
constexpr int kLVImgHeight = 10;    // u16
constexpr int kLVImgDataLength = 12; // u32, width * height * 4
constexpr int kLVImgFrameRate = 16; // u16
constexpr int kLVImgPixels = 20;    // A,R,G,B bytes, top row first, rows packed

struct LVShmemReadResult {
    int32_t status = 2; // 0 new frame copied, 1 producer not running, 2 no new frame
    uint64_t timestamp = 0;
    int32_t frameRate = 0;
    int32_t width = 0;  // the frame's size, read with the pixels (status 0 only)
    int32_t height = 0;
};

// The three segment names in use. The documented names are used unless one of them exists
// and belongs to another user (or is a link, a directory, ...); then every name gets the
// suffix ".uid<N>" with this user's id. Producer and reader derive them the same way.
struct LVShmemNames {
    std::string control;
    std::string image[2];
    bool perUser = false;

    static LVShmemNames documented();
    static LVShmemNames forUser(unsigned uid);
    static LVShmemNames resolve();
};

enum class LVShmemRole {
    Producer, // creates the segments, 0600
    Reader,   // opens only what a producer of this user made; re-attaches when they go
};

class LVShmem {
public:
    // The documented name with a leading slash, and LUMAVEIL_SHM_PREFIX (when set) after it.
    static std::string segmentName(const std::string& base);
    static std::string imageBlockName(int index);
    // The transport's clock: CLOCK_MONOTONIC in nanoseconds.
    static uint64_t currentHostTime();

    // The role is always said: a reader opened as a producer could resize the producer's blocks.
    explicit LVShmem(LVShmemRole role);
    ~LVShmem();
    LVShmem(const LVShmem&) = delete;
    LVShmem& operator=(const LVShmem&) = delete;

    const LVShmemNames& names() const { return names_; }
    // False when a segment was refused or could not be made: nothing is published or read.
    bool isAvailable() const { return available_; }
    // One line naming the segment and why it cannot be used; empty when available.
    const std::string& problem() const { return problem_; }
    // The pid of another process that is alive and recorded as publishing, else 0.
    uint32_t otherLiveProducer() const;
    // Whether the recorded producer is still a running process (false when none is recorded).
    bool producerAlive() const;
    // Removes the names, so no frame stays behind once this producer has finished. Does
    // nothing while another live producer is recorded.
    void removeSegments();

    void makeImageBlock(int index);
    void verifyBlockSize(int index, uint32_t pixelBytes);
    uint8_t* getImageBlock(int index, uint32_t pixelBytes);
    // The block the next frame is written into: never the one currently published.
    uint8_t* getNextImageBlock(uint32_t pixelBytes);
    void swap();
    void setAppRunning();
    void setAppNotRunning();
    bool appRunning() const;
    bool isNewImageAvailable() const;
    // The reader: copies the newest frame into a new buffer when it is newer than lastTimestamp.
    LVShmemReadResult getData(std::unique_ptr<uint8_t[]>& data, uint64_t& lengthReturn, uint64_t lastTimestamp);
    void acquireLock() {}
    void releaseLock() {}

    // The writer's per-frame step: the pixels are read (A,R,G,B, top row first, rows
    // width * 4 apart) straight into the next block, then the header is written and the
    // block published.
    void publishFrame(int width, int height, int frameRate, const std::function<void(void* pixels, int rowBytes)>& readPixels);

    // The size and rate in the header of the newest published frame, without reading it;
    // false when the producer is not running or has published nothing.
    bool peekNewestFrame(int& width, int& height, int& frameRate);

    uint8_t* controlBlock() const { return controlBlock_; }
    uint32_t currentBlock() const;
    uint32_t frameSeq() const;
    uint16_t blockVersion(int index) const;

private:
    void attach();
    bool reattachIfGone();

    LVShmemRole role_;
    LVShmemNames names_;
    bool available_ = false;
    std::string problem_;
    alignas(8) uint8_t detachedControl_[kLVControlBlockSize] = {};
    std::unique_ptr<KDSharedMem> controlBlockShmem_;
    std::unique_ptr<KDSharedMem> imageBlockShmem_[2];
    uint8_t* controlBlock_ = nullptr;
    uint16_t lastBlockVersion_[2] = {0, 0};
    uint8_t* lastImageBlock_ = nullptr;
    uint32_t lastSeq_ = 0;
};
