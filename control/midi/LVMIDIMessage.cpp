#include "control/midi/LVMIDIMessage.h"

namespace {

QString noteName(int note)
{
    static const char* const names[] = {"C", "C#", "D", "D#", "E", "F", "F#", "G", "G#", "A", "A#", "B"};
    // Middle C (60) is C4.
    return QStringLiteral("%1%2").arg(QLatin1String(names[note % 12])).arg(note / 12 - 1);
}

// Bytes that follow a status byte, by message kind.
int dataBytesFor(uint8_t status)
{
    switch (status & 0xF0) {
    case 0xC0:
    case 0xD0: return 1;
    case 0xF0:
        if (status == 0xF1 || status == 0xF3) return 1;
        if (status == 0xF2) return 2;
        return 0;
    default: return 2;
    }
}

} // namespace

LVMIDIMessage LVMIDIMessage::voiceMessageWithEncodedKeyValue(uint32_t value)
{
    LVMIDIMessage message;
    message.status = uint8_t(value & 0xFF);
    message.data1 = uint8_t((value >> 8) & 0xFF);
    message.data2 = uint8_t((value >> 16) & 0xFF);
    return message;
}

QString LVMIDIMessage::displayText() const
{
    const QString channelText = QStringLiteral(", channel %1").arg(channel());
    switch (kind()) {
    case 0x80: return QStringLiteral("Note Off %1 (%2)").arg(noteName(data1)).arg(data1) + channelText;
    case 0x90: return QStringLiteral("Note On %1 (%2)").arg(noteName(data1)).arg(data1) + channelText;
    case 0xA0: return QStringLiteral("Aftertouch %1 (%2)").arg(noteName(data1)).arg(data1) + channelText;
    case 0xB0: return QStringLiteral("Control %1").arg(data1) + channelText;
    case 0xC0: return QStringLiteral("Program %1").arg(data1) + channelText;
    case 0xD0: return QStringLiteral("Channel Pressure %1").arg(data1) + channelText;
    case 0xE0: return QStringLiteral("Pitch Bend %1").arg(int(data1) | (int(data2) << 7)) + channelText;
    default: return QStringLiteral("System 0x%1").arg(status, 2, 16, QLatin1Char('0'));
    }
}

std::optional<LVMIDIMessage> LVMIDIMessage::fromBytes(const std::vector<unsigned char>& bytes, double timeStamp)
{
    if (bytes.empty() || bytes[0] < 0x80) return std::nullopt;
    const int dataBytes = dataBytesFor(bytes[0]);
    if (int(bytes.size()) < 1 + dataBytes && bytes[0] != 0xF0) return std::nullopt;
    LVMIDIMessage message;
    message.timeStamp = timeStamp;
    message.status = bytes[0];
    if (dataBytes >= 1) message.data1 = bytes[1] & 0x7F;
    if (dataBytes >= 2) message.data2 = bytes[2] & 0x7F;
    return message;
}
