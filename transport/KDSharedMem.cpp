#include "transport/KDSharedMem.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "core/util/LVLog.h"

void* const KDSharedMem::kNotMapped = MAP_FAILED;

namespace {

// O_NONBLOCK: a FIFO planted under the name must not hang the open.
constexpr int kOpenFlags = O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
constexpr mode_t kPrivateMode = 0600;

// Empty when the open segment may hold this user's frames, else why not.
std::string ownershipProblem(const struct stat& st)
{
    if (S_ISDIR(st.st_mode))
        return "a directory";
    if (!S_ISREG(st.st_mode))
        return "not a regular file";
    if (st.st_uid != geteuid())
        return "owned by user " + std::to_string(st.st_uid);
    return {};
}

std::string openFailure(const std::string& name, int error)
{
    // shm_open reports a directory as EINVAL; its segments live in /dev/shm.
    struct stat st {};
    if (error == EINVAL && lstat(("/dev/shm" + name).c_str(), &st) == 0 && S_ISDIR(st.st_mode))
        return "a directory";
    switch (error) {
    case ELOOP:
        return "a symbolic link";
    case EISDIR:
        return "a directory";
    case EACCES:
    case EPERM:
        return "owned by another user";
    default:
        return strerror(error);
    }
}

} // namespace

std::unique_ptr<KDSharedMem> KDSharedMem::initWithName(const char* name, Access access)
{
    std::unique_ptr<KDSharedMem> m(new KDSharedMem(name, access));
    m->openSegment(false);
    if (m->size_ < 0)
        return nullptr;
    return m;
}

KDSharedMem::~KDSharedMem()
{
    close();
}

void KDSharedMem::refuse(std::string why)
{
    // Not logged here: the transport says it once, with what it means for the frames.
    refusal_ = std::move(why);
}

void KDSharedMem::openSegment(bool recreate)
{
    LVLogDebug("Opening shmem segment %s", name_.c_str());
    close();
    refusal_.clear();
    missing_ = false;
    created_ = false;
    size_ = 0;
    const bool mayCreate = access_ == Access::CreateOrOpen;
    if (recreate && mayCreate)
        shm_unlink(name_.c_str());
    bool created = false;
    int fd = -1;
    if (mayCreate) {
        // Exclusive creation: a name someone else made first is opened below and checked.
        fd = shm_open(name_.c_str(), kOpenFlags | O_CREAT | O_EXCL, kPrivateMode);
        created = fd >= 0;
    }
    if (fd < 0 && (!mayCreate || errno == EEXIST))
        fd = shm_open(name_.c_str(), kOpenFlags, 0);
    if (fd < 0) {
        if (errno == ENOENT && !mayCreate) {
            missing_ = true;
            refusal_ = "missing";
            return;
        }
        refuse(openFailure(name_, errno));
        return;
    }
    struct stat st {};
    if (fstat(fd, &st) != 0) {
        LVLogSystemError("fstat");
        ::close(fd);
        size_ = -1;
        return;
    }
    if (std::string problem = ownershipProblem(st); !problem.empty()) {
        ::close(fd);
        refuse(problem);
        return;
    }
    // The umask may have left less than 0600, and an older build made segments 0666.
    if ((created || (st.st_mode & 0777) != kPrivateMode) && fchmod(fd, kPrivateMode) != 0)
        LVLogSystemError("fchmod");
    fd_ = fd;
    created_ = created;
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
    // A refused or missing segment stays closed: nothing to grow, and nothing to log again.
    if (fd_ < 0)
        return false;
    bool recreated = false;
    if (access_ == Access::OpenExisting) {
        // The reader maps what the producer made, once the producer has sized it.
        if (mem_ != kNotMapped)
            return false;
        size_ = _getActualSize();
        if (size_ < length)
            return false;
    } else {
        // Only a segment this object made and has not sized yet grows in place. One another
        // process made may be sized and mapped by it meanwhile: truncating it under that
        // mapping kills its writer (SIGBUS). Anything else too small is made anew.
        recreated = size_ < length && !(created_ && size_ == 0);
        if (recreated) {
            openSegment(true);
            if (fd_ < 0 || !created_)
                return false;
        }
        if (size_ < length) {
            if (ftruncate(fd_, length) != 0) {
                LVLogSystemError("ftruncate");
                return false;
            }
            size_ = _getActualSize();
        }
        if (mem_ != kNotMapped)
            return recreated;
    }
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

bool KDSharedMem::isOwnedOrMissing(const std::string& name)
{
    const int fd = shm_open(name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0);
    if (fd < 0)
        return errno == ENOENT;
    struct stat st {};
    const bool ours = fstat(fd, &st) == 0 && ownershipProblem(st).empty();
    ::close(fd);
    return ours;
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
