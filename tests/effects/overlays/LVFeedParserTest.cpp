// Headlines out of RSS 2.0, RSS 1.0 and Atom documents, and refusals of what is not a feed.
#include "effects/ticker/LVFeedParser.h"

#include <gtest/gtest.h>

namespace {

TEST(LVFeedParser, HeadlinesComeOutOfEveryFeedFormat)
{
    struct Case {
        const char* what;
        QByteArray document;
        QString title;
        QStringList items;
    };
    const Case cases[] = {
        {"RSS 2.0, the channel's image title is not a headline",
         R"(<?xml version="1.0"?><rss version="2.0"><channel><title>Daily</title>
            <image><title>Logo</title><url>http://x/l.png</url></image>
            <item><title>First</title><link>http://x/1</link></item>
            <item><title><![CDATA[Second & <more>]]></title></item>
            <item><description>no title</description></item>
            <item><title>  Third
               line  </title><source url="http://y"><title>Not this</title></source></item>
            </channel></rss>)",
         "Daily",
         {"First", "Second & <more>", "Third line"}},
        {"Atom, html titles lose their markup",
         R"(<feed xmlns="http://www.w3.org/2005/Atom"><title type="text">Atom News</title>
            <entry><title type="html">&lt;b&gt;Bold&lt;/b&gt; move</title></entry>
            <entry><title>Plain &amp; simple</title></entry></feed>)",
         "Atom News",
         {"Bold move", "Plain & simple"}},
        {"RSS 1.0, items beside the channel",
         R"(<rdf:RDF xmlns:rdf="http://www.w3.org/1999/02/22-rdf-syntax-ns#" xmlns="http://purl.org/rss/1.0/">
            <channel><title>RDF</title></channel><item><title>One</title></item><item><title>Two</title></item></rdf:RDF>)",
         "RDF",
         {"One", "Two"}},
        {"a feed without items", R"(<rss><channel><title>Quiet</title></channel></rss>)", "Quiet", {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        LVFeed feed;
        QString error;
        ASSERT_TRUE(LVParseFeed(c.document, &feed, &error)) << error.toStdString();
        EXPECT_EQ(feed.title, c.title);
        EXPECT_EQ(feed.items, c.items);
    }
}

TEST(LVFeedParser, WhatIsNotAFeedIsRefusedWithTheReason)
{
    struct Case {
        const char* what;
        QByteArray document;
        QString error;
    };
    const Case cases[] = {
        {"a web page", "<html><body><p>hi</p></body></html>", "not an RSS or Atom feed (root element html)"},
        {"cut short", "<rss><channel><item><title>Half", "line 1: Premature end of document."},
        {"broken", "<rss>\n<channel>\n</rss>", "line 3: Opening and ending tag mismatch."},
        {"empty", "", "line 1: Premature end of document."},
        {"not XML", "{\"items\": []}", "line 1: Start tag expected."},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        LVFeed feed;
        QString error;
        EXPECT_FALSE(LVParseFeed(c.document, &feed, &error));
        EXPECT_EQ(error, c.error);
    }
}

TEST(LVFeedParser, AHugeFeedKeepsOnlyWhatCanBeShown)
{
    QByteArray document = "<rss><channel>";
    for (int i = 0; i < kLVFeedItemLimit + 50; ++i) document += "<item><title>" + QByteArray(1000, 'x') + "</title></item>";
    document += "</channel></rss>";
    LVFeed feed;
    QString error;
    ASSERT_TRUE(LVParseFeed(document, &feed, &error));
    ASSERT_EQ(feed.items.size(), kLVFeedItemLimit);
    EXPECT_EQ(feed.items.front().size(), kLVFeedTitleLimit);
    EXPECT_TRUE(feed.items.front().endsWith(QChar(0x2026)));
}

} // namespace
