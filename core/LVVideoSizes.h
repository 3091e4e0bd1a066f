#pragma once
// The video sizes offered to the user, the stored size notation and the limits every
// entry point (menu, custom fields, command line) checks against.
#include <QSize>
#include <QString>

#include <optional>
#include <vector>

struct LVVideoSizeItem {
    QString title;  // "320x240", ... or "Custom"
    QSize size;     // empty for "Custom"
    bool isCustom() const { return size.isEmpty(); }
};

// The video-size menu, in its order, ending with "Custom".
const std::vector<LVVideoSizeItem>& LVVideoSizeMenu();
// The item to select for the current size: "Custom" when the size came from the custom
// fields or matches no entry.
int LVVideoSizeMenuIndex(QSize current, bool usingCustomVideoSize);

// A menu title read with "%dx%d"; nothing when it does not start with two numbers.
std::optional<QSize> LVParseSizeTitle(const QString& title);
QString LVSizeTitle(QSize size);

// The stored notation: width and height in braces, separated by a comma: "{320, 240}".
QString LVSizeString(QSize size);
std::optional<QSize> LVParseSizeString(const QString& text);

// The custom fields: a value below 1 becomes 320 for the width and 240 for the height.
QSize LVCustomVideoSize(int width, int height);

// Sizes and rates the renderer and the transport header (16-bit fields) can carry.
inline constexpr int LVMinVideoDimension = 16;
inline constexpr int LVMaxVideoDimension = 4096;
inline constexpr int LVMinFrameRate = 1;
inline constexpr int LVMaxFrameRate = 240;

// Checks a size or rate typed by a user; on refusal, error says what is allowed.
bool LVValidateVideoSize(const QString& text, QSize* size, QString* error);
bool LVValidateFrameRate(const QString& text, int* rate, QString* error);
