#include "transport/KDLock.h"
#include "transport/LVShmem.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <grp.h>
#include <pwd.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace {

// Where a segment name lives in the file system, so tests can plant what an attacker would.
std::string shmPath(const std::string& name)
{
    return "/dev/shm" + name;
}

void unlinkAll()
{
    for (const LVShmemNames& names : {LVShmemNames::documented(), LVShmemNames::forUser(geteuid())}) {
        for (const std::string& name : {names.control, names.image[0], names.image[1]}) {
            shm_unlink(name.c_str());
            rmdir(shmPath(name).c_str()); // what the refusal tests plant
        }
    }
}

off_t segmentSize(const std::string& name)
{
    const int fd = shm_open(name.c_str(), O_RDONLY, 0);
    if (fd < 0)
        return -1;
    struct stat st {};
    fstat(fd, &st);
    close(fd);
    return st.st_size;
}

// Every pixel of a frame carries the frame's number, so a reader can tell frames apart.
void fillFrame(void* pixels, int rowBytes, int height, uint32_t tag)
{
    for (int y = 0; y < height; ++y) {
        auto* row = reinterpret_cast<uint32_t*>(static_cast<uint8_t*>(pixels) + y * rowBytes);
        for (int x = 0; x < rowBytes / 4; ++x)
            row[x] = tag;
    }
}

void publish(LVShmem& shm, int w, int h, int rate, uint32_t tag)
{
    shm.publishFrame(w, h, rate, [&](void* p, int rowBytes) { fillFrame(p, rowBytes, h, tag); });
}

// A reader in this process and what it read last.
struct FrameReader {
    LVShmem shm{LVShmemRole::Reader};
    std::unique_ptr<uint8_t[]> data;
    uint64_t length = 0;
    LVShmemReadResult read(uint64_t since = 0) { return shm.getData(data, length, since); }
    uint32_t word(size_t index = 0) const
    {
        uint32_t w;
        std::memcpy(&w, data.get() + index * 4, 4);
        return w;
    }
};

// Runs body in a child process; answers its exit status (0 on success).
int inChild(const std::function<int()>& body)
{
    const pid_t pid = fork();
    if (pid == 0)
        _exit(body());
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 100;
}

class LVShmemTest : public ::testing::Test {
protected:
    void SetUp() override { unlinkAll(); }
    void TearDown() override { unlinkAll(); }
};

TEST_F(LVShmemTest, CleanStartCreatesSmallBlocksUnderTheDocumentedNamesAndFirstFramesGrowThemOnce)
{
    const char* prefix = std::getenv("LUMAVEIL_SHM_PREFIX");
    const std::string documented = "/" + std::string(prefix ? prefix : "") + "com.marrowkit.";
    LVShmem w(LVShmemRole::Producer);
    EXPECT_EQ(segmentSize(documented + "LVCtrl3"), 16);
    EXPECT_EQ(segmentSize(documented + "LVImg3.0"), 24);
    EXPECT_EQ(segmentSize(documented + "LVImg3.1"), 24);
    EXPECT_EQ(w.blockVersion(0), 0);
    EXPECT_EQ(w.blockVersion(1), 0);
    EXPECT_FALSE(w.appRunning());

    w.setAppRunning();
    EXPECT_EQ(w.currentBlock(), kLVNoBlock);
    const uint32_t pixels = 4 * 3 * 4;
    struct Step {
        int w, h;
        uint32_t block;
        uint16_t v0, v1;
        off_t size0, size1;
    };
    // Grow, alternate, shrink (nothing re-created), then grow past the largest size seen.
    const Step steps[] = {
        {4, 3, 0, 1, 0, pixels + 24, 24},
        {4, 3, 1, 1, 1, pixels + 24, pixels + 24},
        {4, 3, 0, 1, 1, pixels + 24, pixels + 24},
        {2, 2, 1, 1, 1, pixels + 24, pixels + 24},
        {8, 3, 0, 2, 1, 8 * 3 * 4 + 24, pixels + 24},
        {8, 3, 1, 2, 2, 8 * 3 * 4 + 24, 8 * 3 * 4 + 24},
    };
    uint32_t seq = w.frameSeq();
    for (const Step& s : steps) {
        publish(w, s.w, s.h, 30, 0x11223344);
        SCOPED_TRACE(testing::Message() << s.w << "x" << s.h << " into block " << s.block);
        EXPECT_EQ(w.currentBlock(), s.block);
        EXPECT_EQ(w.frameSeq(), ++seq);
        EXPECT_EQ(w.blockVersion(0), s.v0);
        EXPECT_EQ(w.blockVersion(1), s.v1);
        EXPECT_EQ(segmentSize(LVShmem::imageBlockName(0)), s.size0);
        EXPECT_EQ(segmentSize(LVShmem::imageBlockName(1)), s.size1);
    }
}

TEST_F(LVShmemTest, ImageBlockHeaderLayout)
{
    LVShmem w(LVShmemRole::Producer);
    w.setAppRunning();
    const uint64_t before = LVShmem::currentHostTime();
    publish(w, 3, 2, 70000, 0xA1B2C3D4); // a rate above 65535 keeps its low 16 bits
    const uint8_t* b = w.getImageBlock(0, 0);
    ASSERT_NE(b, nullptr);
    uint64_t ts;
    std::memcpy(&ts, b, 8);
    EXPECT_GE(ts, before);
    EXPECT_LE(ts, LVShmem::currentHostTime());
    const uint8_t expect[] = {3, 0, 2, 0, 24, 0, 0, 0, 0x70, 0x11, 0, 0, 0xD4, 0xC3, 0xB2, 0xA1};
    EXPECT_EQ(std::memcmp(b + 8, expect, sizeof expect), 0);
}

TEST_F(LVShmemTest, ReaderInAnotherProcessFollowsProducerStates)
{
    FrameReader r; // attaches first; the producer is not running
    EXPECT_EQ(r.read().status, 1);

    // A producer that ran, published frames and quit properly.
    ASSERT_EQ(inChild([] {
        LVShmem w(LVShmemRole::Producer);
        w.setAppRunning();
        publish(w, 4, 4, 25, 1);
        publish(w, 4, 4, 25, 2);
        w.setAppNotRunning();
        return 0;
    }), 0);
    EXPECT_FALSE(r.shm.appRunning());
    EXPECT_EQ(r.read().status, 1); // regardless of the blocks' contents

    // A producer that set itself running and died before publishing anything.
    ASSERT_EQ(inChild([] {
        LVShmem w(LVShmemRole::Producer);
        w.setAppRunning();
        return 0;
    }), 0);
    EXPECT_TRUE(r.shm.appRunning());
    EXPECT_EQ(r.read().status, 2);

    // A producer that published two frames and died without setAppNotRunning.
    ASSERT_EQ(inChild([] {
        LVShmem w(LVShmemRole::Producer); // keeps the dead producer's values: appPid is set
        if (!w.appRunning())
            return 1;
        w.setAppRunning();
        publish(w, 4, 4, 25, 7);
        publish(w, 4, 4, 25, 8);
        return 0;
    }), 0);
    EXPECT_TRUE(r.shm.isNewImageAvailable());
    const LVShmemReadResult res = r.read();
    ASSERT_EQ(res.status, 0);
    EXPECT_EQ(r.length, 64u);
    EXPECT_EQ(res.frameRate, 25);
    EXPECT_EQ(r.word(15), 8u); // the newest frame
    EXPECT_FALSE(r.shm.isNewImageAvailable());
    EXPECT_EQ(r.read().status, 2);

    // A fresh LVShmem in a new process does not clear a control block with a producer recorded.
    LVShmem again(LVShmemRole::Producer);
    EXPECT_TRUE(again.appRunning());
    EXPECT_EQ(again.currentBlock(), r.shm.currentBlock());
}

TEST_F(LVShmemTest, ReaderPassingTheNewestTimestampKeepsItsSequence)
{
    LVShmem w(LVShmemRole::Producer);
    w.setAppRunning();
    publish(w, 2, 2, 15, 5);
    FrameReader r;
    const LVShmemReadResult first = r.read();
    ASSERT_EQ(first.status, 0);
    publish(w, 2, 2, 15, 6);
    uint64_t newest;
    std::memcpy(&newest, w.getImageBlock(int(w.currentBlock()), 0), 8);
    EXPECT_EQ(r.read(newest).status, 2);
    EXPECT_TRUE(r.shm.isNewImageAvailable()); // the same frame is looked at again next time
    const LVShmemReadResult second = r.read(first.timestamp);
    ASSERT_EQ(second.status, 0);
    EXPECT_EQ(second.timestamp, newest);
}

TEST_F(LVShmemTest, ReaderFollowsASizeChangeMadeByAnotherProcess)
{
    FrameReader r;
    uint64_t last = 0;
    struct Case {
        int w, h;
        uint32_t tag;
    };
    for (const Case c : {Case{2, 2, 0x01}, Case{640, 480, 0x02}, Case{16, 16, 0x03}, Case{1280, 720, 0x04}}) {
        ASSERT_EQ(inChild([&] {
            LVShmem w(LVShmemRole::Producer);
            w.setAppRunning();
            publish(w, c.w, c.h, 30, c.tag);
            publish(w, c.w, c.h, 30, c.tag + 0x100);
            return 0;
        }), 0);
        const LVShmemReadResult res = r.read(last);
        ASSERT_EQ(res.status, 0) << c.w << "x" << c.h;
        ASSERT_EQ(r.length, uint64_t(c.w * c.h * 4));
        EXPECT_EQ(r.word(0), c.tag + 0x100);
        EXPECT_EQ(r.word(size_t(c.w * c.h - 1)), c.tag + 0x100);
        last = res.timestamp;
    }
}

TEST_F(LVShmemTest, CountersWrapWithoutSpecialHandling)
{
    LVShmem w(LVShmemRole::Producer);
    w.setAppRunning();
    publish(w, 2, 2, 15, 1);
    FrameReader r;
    ASSERT_EQ(r.read().status, 0);

    uint8_t* ctrl = w.controlBlock();
    const uint32_t maxSeq = 0xFFFFFFFF;
    std::memcpy(ctrl + kLVCtrlFrameSeq, &maxSeq, 4);
    w.swap();
    EXPECT_EQ(w.frameSeq(), 0u);

    // Block 0's version at 0xFFFF wraps to 0 when the block is re-created larger.
    const uint16_t maxVersion = 0xFFFF;
    std::memcpy(ctrl + kLVCtrlBlockVersion, &maxVersion, 2);
    w.getImageBlock(0, 0); // takes up the new version
    w.verifyBlockSize(0, 1000);
    EXPECT_EQ(w.blockVersion(0), 0);
}

TEST_F(LVShmemTest, AFailedOpenLeavesTheSegmentClosedAndQuiet)
{
    testing::internal::CaptureStderr();
    std::unique_ptr<KDSharedMem> bad = KDSharedMem::initWithName("/no/such/dir", KDSharedMem::Access::CreateOrOpen);
    ASSERT_NE(bad, nullptr); // a failed open still answers an object
    EXPECT_EQ(bad->getSize(), 0);
    EXPECT_EQ(bad->refusal(), strerror(EINVAL));
    for (int frame = 0; frame < 100; ++frame)
        EXPECT_FALSE(bad->ensureSize(64));
    EXPECT_EQ(bad->getMemory(), KDSharedMem::kNotMapped);
    // No per-call noise: the transport states a failure once, with what it means.
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

std::vector<std::string> segmentNames(const LVShmemNames& names)
{
    return {names.control, names.image[0], names.image[1]};
}

mode_t segmentMode(const std::string& name)
{
    struct stat st {};
    return lstat(shmPath(name).c_str(), &st) == 0 ? st.st_mode & 07777 : 0;
}

TEST_F(LVShmemTest, SegmentsArePrivateWhateverTheUmask)
{
    for (const mode_t mask : {0000, 0022, 0077, 0277}) {
        SCOPED_TRACE(testing::Message() << "umask " << std::oct << mask);
        unlinkAll();
        const mode_t old = umask(mask);
        {
            LVShmem w(LVShmemRole::Producer);
            w.setAppRunning();
            publish(w, 4, 4, 30, 1); // re-creates block 0 larger
            EXPECT_TRUE(w.isAvailable());
        }
        umask(old);
        for (const std::string& name : segmentNames(LVShmemNames::documented()))
            EXPECT_EQ(segmentMode(name), 0600u) << name;
    }
}

TEST_F(LVShmemTest, OwnSegmentsLeftOpenByAnOlderBuildAreMadePrivate)
{
    const std::string control = LVShmemNames::documented().control;
    const int fd = shm_open(control.c_str(), O_RDWR | O_CREAT, 0666);
    ASSERT_GE(fd, 0);
    fchmod(fd, 0666);
    close(fd);
    LVShmem w(LVShmemRole::Producer);
    EXPECT_TRUE(w.isAvailable());
    EXPECT_FALSE(w.names().perUser);
    EXPECT_EQ(segmentMode(control), 0600u);
}

// What someone else may leave under a name before Lumaveil starts.
enum class Planted { Directory, LinkToOwnFile, Fifo };

void plant(const std::string& name, Planted what)
{
    const std::string path = shmPath(name);
    switch (what) {
    case Planted::Directory:
        ASSERT_EQ(mkdir(path.c_str(), 0777), 0);
        break;
    case Planted::LinkToOwnFile:
        ASSERT_EQ(symlink("/etc/hostname", path.c_str()), 0);
        break;
    case Planted::Fifo:
        ASSERT_EQ(mkfifo(path.c_str(), 0666), 0);
        break;
    }
}

TEST_F(LVShmemTest, AnythingButOwnSegmentsIsRefusedWithOneLineAndNothingPerFrame)
{
    struct Case {
        Planted what;
        const char* reason;
    };
    const Case cases[] = {
        {Planted::Directory, "a directory"},
        {Planted::LinkToOwnFile, "a symbolic link"},
        {Planted::Fifo, "not a regular file"},
    };
    const LVShmemNames own = LVShmemNames::forUser(geteuid());
    for (const Case& c : cases) {
        SCOPED_TRACE(c.reason);
        unlinkAll();
        // The documented name alone is taken: the per-user names serve instead.
        plant(LVShmemNames::documented().control, c.what);
        {
            LVShmem w(LVShmemRole::Producer);
            EXPECT_TRUE(w.isAvailable());
            EXPECT_TRUE(w.names().perUser);
            EXPECT_EQ(w.names().control, own.control);
            LVShmem r(LVShmemRole::Reader);
            EXPECT_EQ(r.names().control, own.control);
            w.removeSegments();
        }
        // Both taken: nothing is published, said once, and a frame loop stays quiet.
        plant(own.control, c.what);
        testing::internal::CaptureStderr();
        LVShmem w(LVShmemRole::Producer);
        w.setAppRunning();
        for (uint32_t frame = 0; frame < 50; ++frame)
            publish(w, 8, 8, 30, frame);
        const std::string log = testing::internal::GetCapturedStderr();
        EXPECT_FALSE(w.isAvailable());
        EXPECT_EQ(w.problem(), "shared memory " + own.control + " refused: " + c.reason);
        EXPECT_EQ(log, w.problem() + "; frames are not published\n");
        struct stat st {};
        ASSERT_EQ(lstat(shmPath(own.control).c_str(), &st), 0);
        EXPECT_FALSE(S_ISREG(st.st_mode)) << "the planted entry was replaced";
    }
}

TEST_F(LVShmemTest, FinishedProducerRemovesItsSegmentsUnlessAnotherOneLives)
{
    const std::string control = LVShmemNames::documented().control;
    {
        LVShmem w(LVShmemRole::Producer);
        w.setAppRunning();
        publish(w, 4, 4, 30, 0xCAFE);
        w.setAppNotRunning();
        w.removeSegments();
    }
    for (const std::string& name : segmentNames(LVShmemNames::documented()))
        EXPECT_EQ(segmentSize(name), -1) << name << " stayed behind";

    // A second instance that did not publish leaves the running producer's segments alone.
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    const pid_t producer = fork();
    if (producer == 0) {
        LVShmem w(LVShmemRole::Producer);
        w.setAppRunning();
        char byte = 1;
        (void)!write(ready[1], &byte, 1);
        pause();
        _exit(0);
    }
    char byte = 0;
    ASSERT_EQ(read(ready[0], &byte, 1), 1);
    {
        LVShmem second(LVShmemRole::Producer);
        EXPECT_EQ(second.otherLiveProducer(), uint32_t(producer));
        second.removeSegments();
    }
    EXPECT_EQ(segmentSize(control), 16);
    kill(producer, SIGKILL);
    waitpid(producer, nullptr, 0);
    close(ready[0]);
    close(ready[1]);
    LVShmem after(LVShmemRole::Producer);
    EXPECT_EQ(after.otherLiveProducer(), 0u) << "a killed producer is not alive";
    EXPECT_TRUE(after.appRunning());
    EXPECT_FALSE(after.producerAlive());
}

TEST_F(LVShmemTest, ReaderFollowsAProducerThatQuitAndStartedAgain)
{
    FrameReader r;
    uint64_t last = 0;
    for (uint32_t run = 1; run <= 3; ++run) {
        SCOPED_TRACE(run);
        {
            LVShmem w(LVShmemRole::Producer);
            w.setAppRunning();
            publish(w, 4, 2, 30, run);
            const LVShmemReadResult res = r.read(last);
            ASSERT_EQ(res.status, 0);
            EXPECT_EQ(r.word(), run);
            last = res.timestamp;
            w.setAppNotRunning();
            w.removeSegments();
        }
        EXPECT_EQ(r.read(last).status, 1);
    }
}

// A throw-away account to play the other user on the machine; none without root.
std::optional<std::pair<uid_t, gid_t>> otherUser()
{
    if (geteuid() != 0)
        return std::nullopt;
    const char* name = "lvprobe";
    if (!getpwnam(name) && std::system("useradd --system --no-create-home --shell /usr/sbin/nologin lvprobe "
                                       ">/dev/null 2>&1") != 0)
        return std::nullopt;
    const passwd* pw = getpwnam(name);
    if (!pw)
        return std::nullopt;
    return std::make_pair(pw->pw_uid, pw->pw_gid);
}

// Runs body in a child process as the other user.
int asOtherUser(std::pair<uid_t, gid_t> user, const std::function<int()>& body)
{
    return inChild([&] {
        if (setgroups(0, nullptr) != 0 || setgid(user.second) != 0 || setuid(user.first) != 0)
            return 90;
        return body();
    });
}

TEST_F(LVShmemTest, AnotherUserCanNeitherReadNorSquatTheCamera)
{
    const auto user = otherUser();
    if (!user)
        GTEST_SKIP() << "needs root and useradd to make a second user";
    const LVShmemNames documented = LVShmemNames::documented();
    const std::vector<std::string> names = segmentNames(documented);

    // Reading: the victim's segments do not open for anyone else.
    {
        LVShmem w(LVShmemRole::Producer);
        w.setAppRunning();
        publish(w, 8, 8, 30, 0x5EC12E7);
        EXPECT_EQ(asOtherUser(*user, [&] {
                      for (const std::string& name : names) {
                          const int fd = shm_open(name.c_str(), O_RDONLY, 0);
                          if (fd >= 0 || errno != EACCES)
                              return 1;
                      }
                      return 0;
                  }),
                  0);
        w.setAppNotRunning();
        w.removeSegments();
    }

    // Squatting: the other user makes the documented names first, open to everyone.
    ASSERT_EQ(asOtherUser(*user, [&] {
                  for (const std::string& name : names) {
                      const int fd = shm_open(name.c_str(), O_RDWR | O_CREAT | O_EXCL, 0666);
                      if (fd < 0 || fchmod(fd, 0666) != 0 || ftruncate(fd, 4096) != 0)
                          return 1;
                      close(fd);
                  }
                  return 0;
              }),
              0);
    LVShmem w(LVShmemRole::Producer);
    ASSERT_TRUE(w.isAvailable());
    EXPECT_TRUE(w.names().perUser);
    w.setAppRunning();
    publish(w, 8, 8, 30, 0xF00D);
    EXPECT_EQ(segmentMode(w.names().control), 0600u);
    // The squatter's control block saw nothing.
    const int fd = shm_open(documented.control.c_str(), O_RDONLY, 0);
    ASSERT_GE(fd, 0);
    uint8_t squatted[16] = {};
    ASSERT_EQ(pread(fd, squatted, sizeof squatted, 0), ssize_t(sizeof squatted));
    close(fd);
    EXPECT_EQ(std::count(std::begin(squatted), std::end(squatted), 0), 16);
    // This user's bridge finds the frames under the same per-user names.
    FrameReader r;
    EXPECT_EQ(r.shm.names().control, w.names().control);
    ASSERT_EQ(r.read().status, 0);
    EXPECT_EQ(r.word(), 0xF00Du);
    // And the other user cannot open those.
    EXPECT_EQ(asOtherUser(*user, [&] { return shm_open(w.names().control.c_str(), O_RDONLY, 0) < 0 ? 0 : 1; }), 0);
}

TEST(KDLockTest, TimedWaitTimesOutAndNotifyWakes)
{
    KDLock lock;
    auto deadline = [](int ms) {
        timespec now{};
        clock_gettime(CLOCK_REALTIME, &now);
        long usec = now.tv_nsec / 1000 + ms * 1000L;
        return std::pair<long, long>(now.tv_sec + usec / 1000000, usec % 1000000);
    };
    lock.lock();
    auto [s, us] = deadline(20);
    EXPECT_FALSE(lock.timedWaitSecs(s, us));

    bool ready = false;
    std::thread t([&] {
        lock.lock();
        ready = true;
        lock.notify();
        lock.unlock();
    });
    bool woken = true;
    auto [s2, us2] = deadline(5000);
    while (!ready && woken)
        woken = lock.timedWaitSecs(s2, us2);
    lock.unlock();
    t.join();
    EXPECT_TRUE(ready);
    EXPECT_TRUE(woken);
}

} // namespace
