#include "transport/LVShmem.h"

#include <errno.h>
#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "core/util/LVLog.h"

namespace {

// The control block is shared with another process: every access is atomic, and swap's two
// stores are ordered (currentBlock before frameSeq).
template <typename T>
std::atomic_ref<T> field(uint8_t* base, int offset)
{
    return std::atomic_ref<T>(*reinterpret_cast<T*>(base + offset));
}

template <typename T>
void put(uint8_t* base, int offset, T value)
{
    std::memcpy(base + offset, &value, sizeof value);
}

template <typename T>
T get(const uint8_t* base, int offset)
{
    T value;
    std::memcpy(&value, base + offset, sizeof value);
    return value;
}

uint8_t* mapped(const KDSharedMem* m)
{
    if (!m || m->getMemory() == KDSharedMem::kNotMapped)
        return nullptr;
    return static_cast<uint8_t*>(m->getMemory());
}

} // namespace

std::string LVShmem::segmentName(const std::string& base)
{
    const char* prefix = std::getenv("LUMAVEIL_SHM_PREFIX");
    return "/" + std::string(prefix ? prefix : "") + base;
}

std::string LVShmem::imageBlockName(int index)
{
    char name[128];
    std::snprintf(name, sizeof name, "com.marrowkit.LVImg3.%d", index);
    return segmentName(name);
}

uint64_t LVShmem::currentHostTime()
{
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return uint64_t(ts.tv_sec) * 1000000000ull + uint64_t(ts.tv_nsec);
}

LVShmemNames LVShmemNames::documented()
{
    LVShmemNames names;
    names.control = LVShmem::segmentName("com.marrowkit.LVCtrl3");
    for (int i = 0; i < 2; ++i)
        names.image[i] = LVShmem::imageBlockName(i);
    return names;
}

LVShmemNames LVShmemNames::forUser(unsigned uid)
{
    LVShmemNames names = documented();
    const std::string suffix = ".uid" + std::to_string(uid);
    names.control += suffix;
    for (std::string& image : names.image)
        image += suffix;
    names.perUser = true;
    return names;
}

LVShmemNames LVShmemNames::resolve()
{
    const LVShmemNames names = documented();
    const bool free = KDSharedMem::isOwnedOrMissing(names.control) && KDSharedMem::isOwnedOrMissing(names.image[0]) &&
                      KDSharedMem::isOwnedOrMissing(names.image[1]);
    return free ? names : forUser(geteuid());
}

LVShmem::LVShmem(LVShmemRole role) : role_(role)
{
    attach();
}

LVShmem::~LVShmem() = default;

void LVShmem::attach()
{
    acquireLock();
    const auto access =
        role_ == LVShmemRole::Producer ? KDSharedMem::Access::CreateOrOpen : KDSharedMem::Access::OpenExisting;
    names_ = LVShmemNames::resolve();
    imageBlockShmem_[0].reset();
    imageBlockShmem_[1].reset();
    lastBlockVersion_[0] = lastBlockVersion_[1] = 0;
    lastSeq_ = 0;
    controlBlockShmem_ = KDSharedMem::initWithName(names_.control.c_str(), access);
    if (controlBlockShmem_)
        controlBlockShmem_->ensureSize(kLVControlBlockSize);
    controlBlock_ = mapped(controlBlockShmem_.get());
    const bool haveControl = controlBlock_ != nullptr;
    if (!haveControl) {
        // Without a control block there is no transport; a private one keeps calls safe.
        std::memset(detachedControl_, 0, sizeof detachedControl_);
        controlBlock_ = detachedControl_;
    }
    makeImageBlock(0);
    makeImageBlock(1);

    const KDSharedMem* segments[] = {controlBlockShmem_.get(), imageBlockShmem_[0].get(), imageBlockShmem_[1].get()};
    const std::string previousProblem = problem_;
    problem_.clear();
    bool refused = false;
    for (const KDSharedMem* segment : segments) {
        if (segment && segment->getMemory() != KDSharedMem::kNotMapped)
            continue;
        refused = segment && !segment->refusal().empty() && !segment->isMissing();
        problem_ = "shared memory " + (segment ? segment->name() : names_.control) +
                   (refused ? " refused: " + segment->refusal() : std::string(" could not be opened"));
        break;
    }
    available_ = problem_.empty();
    // A reader waiting for a producer (or one still sizing its segments) is normal; a refusal
    // is said once, not per poll.
    if (!available_ && (refused || role_ == LVShmemRole::Producer) && problem_ != previousProblem)
        LVLog("%s; frames are not %s", problem_.c_str(), role_ == LVShmemRole::Producer ? "published" : "read");
    if (available_ && role_ == LVShmemRole::Producer && field<uint32_t>(controlBlock_, kLVCtrlAppPid).load() == 0) {
        field<uint64_t>(controlBlock_, 0).store(0);
        field<uint64_t>(controlBlock_, 8).store(0);
    }
    releaseLock();
}

bool LVShmem::reattachIfGone()
{
    if (role_ != LVShmemRole::Reader)
        return available_;
    // A producer removes the names when it quits and makes new ones when it starts again.
    if (!available_ || controlBlockShmem_->isUnlinked())
        attach();
    return available_;
}

namespace {

bool processAlive(uint32_t pid)
{
    return pid != 0 && (kill(pid_t(pid), 0) == 0 || errno == EPERM);
}

} // namespace

uint32_t LVShmem::otherLiveProducer() const
{
    const uint32_t pid = field<uint32_t>(controlBlock_, kLVCtrlAppPid).load();
    return pid != uint32_t(getpid()) && processAlive(pid) ? pid : 0;
}

bool LVShmem::producerAlive() const
{
    return processAlive(field<uint32_t>(controlBlock_, kLVCtrlAppPid).load());
}

void LVShmem::removeSegments()
{
    if (role_ != LVShmemRole::Producer || !available_ || otherLiveProducer() != 0)
        return;
    const KDSharedMem* segments[] = {controlBlockShmem_.get(), imageBlockShmem_[0].get(), imageBlockShmem_[1].get()};
    for (const KDSharedMem* segment : segments) {
        // Only a name that still leads to our own segment.
        if (segment && !segment->isUnlinked() && shm_unlink(segment->name().c_str()) != 0 && errno != ENOENT)
            LVLogSystemError("shm_unlink");
    }
}

void LVShmem::makeImageBlock(int index)
{
    const auto access =
        role_ == LVShmemRole::Producer ? KDSharedMem::Access::CreateOrOpen : KDSharedMem::Access::OpenExisting;
    imageBlockShmem_[index] = KDSharedMem::initWithName(names_.image[index].c_str(), access);
    verifyBlockSize(index, 0);
}

void LVShmem::verifyBlockSize(int index, uint32_t pixelBytes)
{
    KDSharedMem* block = imageBlockShmem_[index].get();
    if (!block)
        return;
    const int32_t length = int32_t(pixelBytes + kLVImageBlockHeaderSize);
    if (block->ensureSize(length)) {
        std::memset(block->getMemory(), 0, size_t(length));
        auto version = field<uint16_t>(controlBlock_, kLVCtrlBlockVersion + 2 * index);
        const uint16_t next = uint16_t(version.load() + 1);
        version.store(next);
        lastBlockVersion_[index] = next;
    }
}

uint8_t* LVShmem::getImageBlock(int index, uint32_t pixelBytes)
{
    const uint16_t version = blockVersion(index);
    // A producer starting with no producer recorded zeroes the versions, so an equal version
    // can still hide a block re-created since this process mapped it.
    KDSharedMem* block = imageBlockShmem_[index].get();
    if (version != lastBlockVersion_[index] || (block && block->isUnlinked())) {
        if (block)
            block->openSegment(false);
        lastBlockVersion_[index] = version;
    }
    verifyBlockSize(index, pixelBytes);
    lastImageBlock_ = mapped(imageBlockShmem_[index].get());
    return lastImageBlock_;
}

uint8_t* LVShmem::getNextImageBlock(uint32_t pixelBytes)
{
    acquireLock();
    const uint32_t current = currentBlock();
    const int index = current == kLVNoBlock ? 0 : int(current ^ 1);
    uint8_t* block = getImageBlock(index, pixelBytes);
    releaseLock();
    return block;
}

void LVShmem::swap()
{
    acquireLock();
    const uint32_t current = currentBlock();
    field<uint32_t>(controlBlock_, kLVCtrlCurrentBlock).store(current == kLVNoBlock ? 0 : current ^ 1, std::memory_order_release);
    auto seq = field<uint32_t>(controlBlock_, kLVCtrlFrameSeq);
    seq.store(seq.load() + 1, std::memory_order_release);
    releaseLock();
}

void LVShmem::setAppRunning()
{
    acquireLock();
    field<uint32_t>(controlBlock_, kLVCtrlCurrentBlock).store(kLVNoBlock);
    field<uint32_t>(controlBlock_, kLVCtrlAppPid).store(uint32_t(getpid()));
    releaseLock();
}

void LVShmem::setAppNotRunning()
{
    acquireLock();
    field<uint32_t>(controlBlock_, kLVCtrlCurrentBlock).store(kLVNoBlock);
    field<uint32_t>(controlBlock_, kLVCtrlAppPid).store(0);
    releaseLock();
}

bool LVShmem::appRunning() const
{
    return field<uint32_t>(controlBlock_, kLVCtrlAppPid).load() != 0;
}

bool LVShmem::isNewImageAvailable() const
{
    return frameSeq() != lastSeq_;
}

uint32_t LVShmem::currentBlock() const
{
    return field<uint32_t>(controlBlock_, kLVCtrlCurrentBlock).load(std::memory_order_acquire);
}

uint32_t LVShmem::frameSeq() const
{
    return field<uint32_t>(controlBlock_, kLVCtrlFrameSeq).load(std::memory_order_acquire);
}

uint16_t LVShmem::blockVersion(int index) const
{
    return field<uint16_t>(controlBlock_, kLVCtrlBlockVersion + 2 * index).load(std::memory_order_acquire);
}

LVShmemReadResult LVShmem::getData(std::unique_ptr<uint8_t[]>& data, uint64_t& lengthReturn, uint64_t lastTimestamp)
{
    LVShmemReadResult result;
    acquireLock();
    if (!reattachIfGone() || !appRunning()) {
        result.status = 1;
        releaseLock();
        return result;
    }
    const uint32_t current = currentBlock();
    if (frameSeq() == lastSeq_ || current == kLVNoBlock) {
        releaseLock();
        return result;
    }
    const uint8_t* block = getImageBlock(int(current & 1), 0);
    if (!block) {
        releaseLock();
        return result;
    }
    const uint64_t timestamp = get<uint64_t>(block, kLVImgTimestamp);
    if (timestamp <= lastTimestamp) {
        releaseLock();
        return result;
    }
    const uint32_t length = get<uint32_t>(block, kLVImgDataLength);
    // A header that claims more than the mapping holds is a torn or foreign block.
    if (uint64_t(length) + kLVImgPixels > uint64_t(imageBlockShmem_[current & 1]->getSize())) {
        releaseLock();
        return result;
    }
    result.width = get<uint16_t>(block, kLVImgWidth);
    result.height = get<uint16_t>(block, kLVImgHeight);
    lengthReturn = length;
    data.reset(new uint8_t[length]);
    std::memcpy(data.get(), block + kLVImgPixels, length);
    lastSeq_ = frameSeq();
    result.status = 0;
    result.timestamp = timestamp;
    result.frameRate = get<uint16_t>(block, kLVImgFrameRate);
    releaseLock();
    return result;
}

bool LVShmem::peekNewestFrame(int& width, int& height, int& frameRate)
{
    if (!reattachIfGone())
        return false;
    const uint32_t current = currentBlock();
    if (!appRunning() || current == kLVNoBlock)
        return false;
    const uint8_t* block = getImageBlock(int(current & 1), 0);
    if (!block)
        return false;
    width = get<uint16_t>(block, kLVImgWidth);
    height = get<uint16_t>(block, kLVImgHeight);
    frameRate = get<uint16_t>(block, kLVImgFrameRate);
    return width > 0 && height > 0;
}

void LVShmem::publishFrame(int width, int height, int frameRate, const std::function<void(void*, int)>& readPixels)
{
    if (!available_)
        return;
    const uint32_t pixelBytes = uint32_t(width * height * 4);
    uint8_t* block = getNextImageBlock(pixelBytes);
    if (!block) {
        // Said once: the same failure would repeat on every frame.
        available_ = false;
        problem_ = "shared memory image block could not hold a " + std::to_string(width) + "x" +
                   std::to_string(height) + " frame";
        LVLog("%s; frames are not published", problem_.c_str());
        return;
    }
    readPixels(block + kLVImgPixels, width * 4);
    put<uint16_t>(block, kLVImgHeight, uint16_t(height));
    put<uint16_t>(block, kLVImgWidth, uint16_t(width));
    put<uint32_t>(block, kLVImgDataLength, pixelBytes);
    put<uint64_t>(block, kLVImgTimestamp, currentHostTime());
    put<uint16_t>(block, kLVImgFrameRate, uint16_t(frameRate));
    swap();
}
