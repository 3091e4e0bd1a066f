#include "effects/ticker/LVFeedParser.h"

#include <QRegularExpression>
#include <QXmlStreamReader>

namespace {

QString cleanTitle(QString text, bool markup)
{
    if (markup) {
        static const QRegularExpression tags(QStringLiteral("<[^>]*>"));
        text.remove(tags);
    }
    text = text.simplified();
    if (text.size() > kLVFeedTitleLimit) text = text.left(kLVFeedTitleLimit - 1) + QChar(0x2026);
    return text;
}

// Text of the current element, markup of Atom's "html" and "xhtml" titles included as text.
QString elementText(QXmlStreamReader& reader, bool* markup)
{
    const QString type = reader.attributes().value(QStringLiteral("type")).toString();
    *markup = type == QLatin1String("html") || type == QLatin1String("xhtml");
    return reader.readElementText(QXmlStreamReader::IncludeChildElements);
}

} // namespace

bool LVParseFeed(const QByteArray& bytes, LVFeed* feed, QString* error)
{
    *feed = LVFeed();
    QXmlStreamReader reader(bytes);
    // A document without a root element is an error to the reader, so it always says why.
    if (!reader.readNextStartElement()) {
        *error = QStringLiteral("line %1: %2").arg(reader.lineNumber()).arg(reader.errorString());
        return false;
    }
    const QString root = reader.name().toString();
    if (root != QLatin1String("rss") && root != QLatin1String("feed") && root != QLatin1String("RDF")) {
        *error = QStringLiteral("not an RSS or Atom feed (root element %1)").arg(root);
        return false;
    }
    // Depth of the item or entry being read; 0 outside one.
    int depth = 1, itemDepth = 0;
    bool itemHasTitle = false;
    while (!reader.atEnd()) {
        const QXmlStreamReader::TokenType token = reader.readNext();
        if (token == QXmlStreamReader::EndElement) {
            if (depth == itemDepth) itemDepth = 0;
            --depth;
            continue;
        }
        if (token != QXmlStreamReader::StartElement) continue;
        ++depth;
        const QStringView name = reader.name();
        if (itemDepth == 0 && (name == QLatin1String("item") || name == QLatin1String("entry"))) {
            itemDepth = depth;
            itemHasTitle = false;
        } else if (name == QLatin1String("title")) {
            // Only an item's own title, and the channel's, not those of images or sources.
            const bool ownTitle = itemDepth ? depth == itemDepth + 1 && !itemHasTitle : feed->title.isEmpty();
            bool markup = false;
            const QString raw = elementText(reader, &markup);
            const QString text = cleanTitle(raw, markup);
            --depth;  // readElementText consumed the end element
            if (!ownTitle) continue;
            if (!itemDepth) {
                feed->title = text;
            } else {
                itemHasTitle = true;
                if (!text.isEmpty() && feed->items.size() < kLVFeedItemLimit) feed->items.append(text);
            }
        }
    }
    if (reader.hasError()) {
        *error = QStringLiteral("line %1: %2").arg(reader.lineNumber()).arg(reader.errorString());
        return false;
    }
    return true;
}
