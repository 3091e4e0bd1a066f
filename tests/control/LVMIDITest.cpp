// The MIDI hub: encoded keys, the message filter, dispatch order and cancellation, and
// delivery from a port's own thread onto the main thread.
#include "control/midi/LVMIDI.h"
#include "control/midi/LVRtMidiPort.h"
#include "tests/control/LVTestMIDIPort.h"
#include "tests/support/LVTestSupport.h"

#include <gtest/gtest.h>

namespace {

const auto message = lvMIDIMessage;

class LVMIDITest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { lvEnsureApplication(); }

    void SetUp() override
    {
        auto owned = std::make_unique<LVTestMIDIPort>();
        port = owned.get();
        hub = std::make_unique<LVMIDI>(std::move(owned));
    }

    LVTestMIDIPort* port = nullptr;
    std::unique_ptr<LVMIDI> hub;
};

TEST(LVMIDIMessageTest, EncodedKeysTellNotesControllersAndChannelsApart)
{
    const struct { const char* what; LVMIDIMessage a, b; bool same; } cases[] = {
        {"note 60 at any velocity", message(0x90, 60, 1), message(0x90, 60, 127), true},
        {"controller 60 at any value", message(0xB0, 60, 0), message(0xB0, 60, 99), true},
        {"note 60 against controller 60", message(0x90, 60, 100), message(0xB0, 60, 100), false},
        {"note 60 against note 61", message(0x90, 60, 100), message(0x90, 61, 100), false},
        {"note 60 on channels 1 and 2", message(0x90, 60, 100), message(0x91, 60, 100), false},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.a.encodedKeyValue() == c.b.encodedKeyValue(), c.same) << c.what;
    }
    EXPECT_EQ(message(0x90, 60, 100).encodedKeyValue(), 0x13C90u);
    EXPECT_EQ(message(0xB3, 7, 0).encodedKeyValue(), 0x107B3u);
}

TEST(LVMIDIMessageTest, DecodingForDisplayKeepsStatusAndNoteAndReadsVelocityOne)
{
    const LVMIDIMessage decoded = LVMIDIMessage::voiceMessageWithEncodedKeyValue(0x13C91u);
    EXPECT_EQ(decoded.status, 0x91);
    EXPECT_EQ(decoded.data1, 60);
    EXPECT_EQ(decoded.data2, 1);
    EXPECT_EQ(decoded.timeStamp, 0);
    EXPECT_EQ(decoded.encodedKeyValue(), 0x13C91u);
    EXPECT_EQ(decoded.displayText(), QStringLiteral("Note On C4 (60), channel 2"));
    EXPECT_EQ(LVMIDIMessage::voiceMessageWithEncodedKeyValue(0x107B0u).displayText(),
              QStringLiteral("Control 7, channel 1"));
}

TEST(LVMIDIMessageTest, RawBytesBecomeMessagesOnlyWhenComplete)
{
    const struct { std::vector<unsigned char> bytes; std::optional<LVMIDIMessage> expected; } cases[] = {
        {{0x90, 60, 100}, message(0x90, 60, 100)},
        {{0xC2, 5}, message(0xC2, 5, 0)},
        {{0xF8}, message(0xF8, 0, 0)},
        {{0x90, 60}, std::nullopt},
        {{60, 100}, std::nullopt},
        {{}, std::nullopt},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(LVMIDIMessage::fromBytes(c.bytes, 0), c.expected) << c.bytes.size() << " bytes";
    }
}

// Only note-ons with a velocity and control changes pass, to every listener in the order they came.
TEST_F(LVMIDITest, ListenersHearPassingMessagesInRegistrationOrder)
{
    QStringList heard;
    hub->registerForMIDIMessages([&](const LVMIDIMessage& m) { heard << QStringLiteral("a%1").arg(m.data1); });
    hub->registerForMIDIMessages([&](const LVMIDIMessage& m) { heard << QStringLiteral("b%1").arg(m.data1); });
    hub->takeMIDIMessages({message(0x90, 1, 100), message(0x9F, 2, 1), message(0x90, 3, 0), message(0x80, 4, 100),
                           message(0xB0, 5, 0), message(0xB5, 6, 127), message(0xC0, 7, 0), message(0xE0, 8, 64),
                           message(0xF8, 9, 0), message(0xA0, 10, 10)});
    EXPECT_EQ(heard, (QStringList{"a1", "b1", "a2", "b2", "a5", "b5", "a6", "b6"}));
}

// A listener cancelled during a dispatch still hears the message under way, never the next.
TEST_F(LVMIDITest, CancelledListenersHearNothingAfterTheCancellation)
{
    enum class Cancel { Itself, ByAnEarlierOne, BeforeAnyDispatch };
    const struct { Cancel how; QStringList heard; } cases[] = {
        {Cancel::Itself, {"cancelled1", "other1", "other2"}},
        {Cancel::ByAnEarlierOne, {"other1", "cancelled1", "other2"}},
        {Cancel::BeforeAnyDispatch, {"other1", "other2"}},
    };
    for (const auto& c : cases) {
        hub = std::make_unique<LVMIDI>(nullptr);
        QStringList heard;
        LVMIDI::Handle cancelled;
        auto other = [&](const LVMIDIMessage& m) {
            heard << QStringLiteral("other%1").arg(m.data1);
            if (c.how == Cancel::ByAnEarlierOne) hub->cancelRegistrationForMIDIMessages(cancelled);
        };
        if (c.how == Cancel::ByAnEarlierOne) hub->registerForMIDIMessages(other);
        cancelled = hub->registerForMIDIMessages([&](const LVMIDIMessage& m) {
            heard << QStringLiteral("cancelled%1").arg(m.data1);
            if (c.how == Cancel::Itself) hub->cancelRegistrationForMIDIMessages(cancelled);
        });
        if (c.how != Cancel::ByAnEarlierOne) hub->registerForMIDIMessages(other);
        if (c.how == Cancel::BeforeAnyDispatch) {
            hub->cancelRegistrationForMIDIMessages(cancelled);
            hub->cancelRegistrationForMIDIMessages(cancelled);
            hub->cancelRegistrationForMIDIMessages(nullptr);
        }
        hub->takeMIDIMessages({message(0x90, 1, 100), message(0x90, 2, 100)});
        EXPECT_EQ(heard, c.heard) << int(c.how);
        EXPECT_EQ(hub->listenerCount(), 1u) << int(c.how);
    }
}

TEST_F(LVMIDITest, MessagesFromThePortsThreadArriveOnTheMainThread)
{
    QEventLoop loop;
    std::thread::id listenerThread;
    std::vector<uint8_t> notes;
    hub->registerForMIDIMessages([&](const LVMIDIMessage& m) {
        listenerThread = std::this_thread::get_id();
        notes.push_back(m.data1);
        if (notes.size() == 2) loop.quit();
    });
    std::thread sender([this] {
        port->send({message(0x90, 10, 100)});
        port->send({message(0x90, 11, 0), message(0xB0, 12, 5)});
    });
    sender.join();
    QTimer::singleShot(10000, &loop, [&] {
        ADD_FAILURE() << "no delivery";
        loop.quit();
    });
    loop.exec();
    EXPECT_EQ(listenerThread, std::this_thread::get_id());
    EXPECT_EQ(notes, (std::vector<uint8_t>{10, 12}));
}

TEST_F(LVMIDITest, TheFirstHubIsTheSharedOneUntilItGoes)
{
    EXPECT_EQ(LVMIDI::sharedLVMIDI(), hub.get());
    LVMIDI second(nullptr);
    EXPECT_EQ(LVMIDI::sharedLVMIDI(), hub.get());
    EXPECT_FALSE(second.isAvailable());
    hub.reset();
    EXPECT_EQ(LVMIDI::sharedLVMIDI(), nullptr);
}

TEST_F(LVMIDITest, WithoutASequencerTheRealPortIsUnavailableAndTheHubRunsOn)
{
    if (QFile::exists(QStringLiteral("/dev/snd/seq"))) GTEST_SKIP() << "this machine has an ALSA sequencer";
    LVMIDI real(std::make_unique<LVRtMidiPort>());
    EXPECT_FALSE(real.isAvailable());
    int calls = 0;
    real.registerForMIDIMessages([&](const LVMIDIMessage&) { ++calls; });
    real.takeMIDIMessages({message(0x90, 1, 100)});
    EXPECT_EQ(calls, 1);
}

} // namespace
