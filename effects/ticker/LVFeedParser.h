#pragma once
// Reads the headlines of a news feed: RSS 2.0 (and RSS 1.0) items or Atom entries.
#include <QByteArray>
#include <QString>
#include <QStringList>

struct LVFeed {
    QString title;       // the channel's or feed's own title
    QStringList items;   // headlines in feed order, whitespace collapsed, markup removed
};

// Headlines beyond this many, and characters beyond this many per headline, are dropped:
// a feed is read whole, so its size alone must never decide how much is kept.
inline constexpr int kLVFeedItemLimit = 200;
inline constexpr int kLVFeedTitleLimit = 300;

// False, with error saying why ("line 3: Premature end of document.", "not an RSS or Atom
// feed (root element html)"), when the bytes are not a feed.
bool LVParseFeed(const QByteArray& bytes, LVFeed* feed, QString* error);
