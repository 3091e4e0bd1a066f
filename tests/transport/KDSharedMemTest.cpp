#include "transport/KDSharedMem.h"
#include "transport/LVShmem.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

namespace {

off_t sizeOf(int fd)
{
    struct stat st {};
    return fstat(fd, &st) == 0 ? st.st_size : -1;
}

// A frame writer that made a block and sized it must keep it whole while anyone else opens the
// name: a process that shrank it under the writer's mapping killed the writer with SIGBUS.
TEST(KDSharedMemTest, OpeningAnotherProcessesSegmentNeverResizesIt)
{
    const std::string name = LVShmem::segmentName("kd.grow");
    shm_unlink(name.c_str());
    // The other process has just made the name and not sized it yet...
    const int theirs = shm_open(name.c_str(), O_RDWR | O_CREAT | O_EXCL, 0600);
    ASSERT_GE(theirs, 0);
    auto producer = KDSharedMem::initWithName(name.c_str(), KDSharedMem::Access::CreateOrOpen);
    auto reader = KDSharedMem::initWithName(name.c_str(), KDSharedMem::Access::OpenExisting);
    ASSERT_TRUE(producer && reader);
    // ...and sizes and maps it while both are open.
    constexpr off_t kTheirSize = 1 << 16;
    ASSERT_EQ(ftruncate(theirs, kTheirSize), 0);
    void* mapping = mmap(nullptr, kTheirSize, PROT_READ | PROT_WRITE, MAP_SHARED, theirs, 0);
    ASSERT_NE(mapping, MAP_FAILED);

    EXPECT_FALSE(reader->ensureSize(24)); // maps what is there: nothing to report
    EXPECT_TRUE(producer->ensureSize(24)) << "a segment another process made is made anew";
    EXPECT_EQ(sizeOf(theirs), kTheirSize);
    std::memset(mapping, 1, kTheirSize); // the writer's whole mapping is still backed
    EXPECT_EQ(producer->getSize(), 24);
    EXPECT_FALSE(producer->isUnlinked());
    EXPECT_EQ(reader->getSize(), kTheirSize);

    munmap(mapping, kTheirSize);
    close(theirs);
    shm_unlink(name.c_str());
}

} // namespace
