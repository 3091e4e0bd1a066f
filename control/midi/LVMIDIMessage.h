#pragma once
// One MIDI message as the hub hands it to listeners, and the 32-bit key value a studio
// button stores to answer it.
#include <QString>

#include <cstdint>
#include <optional>
#include <vector>

struct LVMIDIMessage {
    static constexpr uint8_t noteOn = 0x90;
    static constexpr uint8_t controlChange = 0xB0;

    double timeStamp = 0;
    // The whole status byte, channel included: a key learnt on one channel answers only there.
    uint8_t status = 0;
    uint8_t data1 = 0;
    uint8_t data2 = 0;

    // Channel voice messages (0x80-0xEF); system messages are never keys.
    bool isVoiceMessage() const { return status >= 0x80 && status < 0xF0; }
    uint8_t kind() const { return status & 0xF0; }
    int channel() const { return (status & 0x0F) + 1; }

    // data1 in bits 8-15, status in bits 0-7, bit 16 always set so no key is ever 0.
    uint32_t encodedKeyValue() const { return (uint32_t(data1) << 8) | uint32_t(status) | 0x10000u; }
    // For display only: the second data byte comes from bits 16-23, so it reads 1.
    static LVMIDIMessage voiceMessageWithEncodedKeyValue(uint32_t value);

    // "Note On C4 (60), channel 1", "Control 7, channel 2".
    QString displayText() const;

    // The first complete message of raw bytes; nothing for an empty or truncated one.
    static std::optional<LVMIDIMessage> fromBytes(const std::vector<unsigned char>& bytes, double timeStamp);

    bool operator==(const LVMIDIMessage&) const = default;
};
