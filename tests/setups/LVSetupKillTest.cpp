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

[[noreturn]] void saveForever(const QString& path, uint32_t first)
{
    LVSavedSetup setup(std::vector<LVEffectRef>{}, path);
    for (uint32_t i = first;; ++i) {
        fill(setup, i % kVariants);
        setup.setMidiKey(i % kVariants);
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
    int roundsThatSaved = 0;
    uint32_t lastKey = 0;
    for (int round = 0; round < 40; ++round) {
        const uint32_t first = lastKey + 1;
        const pid_t child = fork();
        ASSERT_GE(child, 0) << strerror(errno);
        if (child == 0) saveForever(path, first);
        usleep(useconds_t(random.bounded(5000, 40000)));
        ASSERT_EQ(kill(child, SIGKILL), 0) << strerror(errno);
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);

        const QByteArray bytes = readAll(path);
        ASSERT_TRUE(complete.contains(bytes)) << "round " << round << ": " << bytes.size() << " bytes, torn";
        const uint32_t key = LVSavedSetup(nullptr, path).midiKey();
        roundsThatSaved += key != lastKey;
        lastKey = key;
    }
    EXPECT_GT(roundsThatSaved, 20) << "most children should have got through saves before the kill";
    // Whatever a kill left beside the file is never a torn setup the scan would list.
    for (const QString& name : QDir(dir.path()).entryList(QDir::Files)) {
        EXPECT_TRUE(complete.contains(readAll(dir.filePath(name)))) << name.toStdString();
    }
}

} // namespace
