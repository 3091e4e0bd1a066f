// A save killed at any moment leaves the old or the new file, never a torn one: a child
// process saves in a loop and is killed with SIGKILL at random moments.
#include "SetupTestKinds.h"
#include "setups/model/LVSavedSetup.h"

#include <QDir>
#include <QRandomGenerator>
#include <QSet>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <csignal>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr uint32_t kVariants = 64;

// Odd keys carry a long chain and a noisy icon, so a write takes long enough to be hit.
void fill(LVSavedSetup& setup, uint32_t key)
{
    std::vector<LVEffectRef> effects{newTestEffect(setupTestSource())};
    const int count = key % 2 ? 200 : 1;
    for (int i = 0; i < count; ++i) effects.push_back(newTestEffect(setupTestEffect(), QString("Tint %1").arg(i)));
    setup.setEffects(effects);
    QImage icon;
    if (key % 2) {
        icon = QImage(LVSavedSetup::iconSize, LVSavedSetup::iconSize, QImage::Format_ARGB32);
        QRandomGenerator noise(key);
        for (int y = 0; y < icon.height(); ++y) {
            for (int x = 0; x < icon.width(); ++x) icon.setPixel(x, y, noise.generate());
        }
    }
    setup.setIcon(icon);
}

// Tells the parent through ready once the first save is done, so every kill lands in
// the loop, however loaded the machine.
[[noreturn]] void saveForever(const QString& path, uint32_t first, int ready)
{
    LVSavedSetup setup(std::vector<LVEffectRef>{}, path);
    for (uint32_t i = first;; ++i) {
        fill(setup, i % kVariants);
        setup.setMidiKey(i % kVariants);
        if (i == first) {
            const char done = 1;
            if (write(ready, &done, 1) != 1) _exit(1);
        }
    }
}

TEST(SetupKill, EveryKilledSaveLeavesACompleteFile)
{
    registerSetupTestKinds();
    QTemporaryDir dir;
    const QString path = dir.filePath("Show");

    QSet<QByteArray> complete;
    for (uint32_t key = 0; key < kVariants; ++key) {
        LVSavedSetup setup(std::vector<LVEffectRef>{}, dir.filePath("reference"));
        fill(setup, key);
        setup.setMidiKey(key);
        complete.insert(readAll(setup.path()));
    }
    QFile::rename(dir.filePath("reference"), path);

    QRandomGenerator random(7);
    uint32_t lastKey = 0;
    for (int round = 0; round < 40; ++round) {
        const uint32_t first = lastKey + 1;
        int ready[2];
        ASSERT_EQ(pipe(ready), 0) << strerror(errno);
        const pid_t child = fork();
        ASSERT_GE(child, 0) << strerror(errno);
        if (child == 0) saveForever(path, first, ready[1]);
        close(ready[1]);
        char done = 0;
        ASSERT_EQ(read(ready[0], &done, 1), 1) << "the child's first save failed";
        close(ready[0]);
        usleep(useconds_t(random.bounded(0, 20000)));
        ASSERT_EQ(kill(child, SIGKILL), 0) << strerror(errno);
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);

        const QByteArray bytes = readAll(path);
        ASSERT_TRUE(complete.contains(bytes)) << "round " << round << ": " << bytes.size() << " bytes, torn";
        lastKey = LVSavedSetup(nullptr, path).midiKey();
    }
    // Whatever a kill left beside the file is never a torn setup the scan would list.
    for (const QString& name : QDir(dir.path()).entryList(QDir::Files)) {
        EXPECT_TRUE(complete.contains(readAll(dir.filePath(name)))) << name.toStdString();
    }
}

} // namespace
