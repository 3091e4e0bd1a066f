#include "render/transport/KDSharedMem.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "core/util/LVLog.h"

void* const KDSharedMem::kNotMapped = MAP_FAILED;

std::unique_ptr<KDSharedMem> KDSharedMem::initWithName(const char* name)
{
    std::unique_ptr<KDSharedMem> m(new KDSharedMem(name));
    m->openSegment(false);
    if (m->size_ < 0)
        return nullptr;
    return m;
}

KDSharedMem::~KDSharedMem()
{
    close();
}

void KDSharedMem::openSegment(bool recreate)
{
    LVLog("Opening shmem segment %s", name_.c_str());
    close();
    if (recreate)
        shm_unlink(name_.c_str());
    const int fd = shm_open(name_.c_str(), O_RDWR | O_CREAT, 0666);
    if (fd < 0) {
        LVLogSystemError("shm_open");
        size_ = 0;
        return;
    }
    fd_ = fd;
    size_ = _getActualSize();
}

int32_t KDSharedMem::_getActualSize()
{
    struct stat st {};
    if (fstat(fd_, &st) != 0) {
        LVLogSystemError("fstat");
        return -1;
    }
    return int32_t(st.st_size);
}

bool KDSharedMem::ensureSize(int32_t length)
{
    const int32_t oldSize = size_;
    const bool recreated = oldSize >= 1 && oldSize < length;
    if (recreated)
        openSegment(true);
    // A fresh segment has size 0; "smaller than asked" also covers a reader that re-created
    // the name between our unlink and open.
    if (size_ >= 0 && size_ < length) {
        if (ftruncate(fd_, length) != 0) {
            LVLogSystemError("ftruncate");
            return false;
        }
        size_ = _getActualSize();
    }
    if (mem_ != kNotMapped)
        return recreated;
    void* m = mmap(nullptr, size_t(size_), PROT_READ | PROT_WRITE, MAP_SHARED, fd_, 0);
    if (m == MAP_FAILED) {
        LVLogSystemError("mmap");
        return false;
    }
    mem_ = m;
    return recreated;
}

bool KDSharedMem::isUnlinked() const
{
    struct stat st {};
    return fd_ >= 0 && fstat(fd_, &st) == 0 && st.st_nlink == 0;
}

void KDSharedMem::close()
{
    if (mem_ != kNotMapped) {
        if (munmap(mem_, size_t(size_)) != 0)
            LVLogSystemError("munmap");
        mem_ = kNotMapped;
    }
    if (fd_ >= 0) {
        ::close(fd_);
        fd_ = -1;
    }
}
