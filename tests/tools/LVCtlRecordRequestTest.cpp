// lumaveil-ctl's recording and streaming commands into requests.
#include "tools/ctl/LVCtlRequest.h"

#include <gtest/gtest.h>

#include <QJsonDocument>

namespace {

TEST(LVCtlRecordRequestTest, RecordAndStreamCommandLines)
{
    struct Case {
        QStringList arguments;
        const char* requestOrError;
        bool ok;
    };
    const Case cases[] = {
        {{"startRecord"}, R"({"command":"startRecord"})", true},
        {{"startRecord", "/tmp/show.mkv"}, R"({"command":"startRecord","path":"/tmp/show.mkv"})", true},
        {{"stopRecord"}, R"({"command":"stopRecord"})", true},
        {{"startStream", "rtmp://127.0.0.1/live/k"}, R"({"command":"startStream","url":"rtmp://127.0.0.1/live/k"})", true},
        {{"stopStream"}, R"({"command":"stopStream"})", true},
        {{"get", "recordStatus"}, R"({"command":"get","property":"recordStatus"})", true},
        {{"startRecord", "a.mp4", "b.mp4"}, "startRecord takes at most one file", false},
        {{"startStream", "rtmp://a/b/c", "x"}, "startStream takes at most one URL", false},
        {{"stopRecord", "now"}, "stopRecord takes no arguments", false},
    };
    for (const Case& c : cases) {
        QString error;
        const auto invocation = LVCtlParseArguments(c.arguments, &error);
        ASSERT_EQ(bool(invocation), c.ok) << qPrintable(c.arguments.join(' ')) << ": " << qPrintable(error);
        const QString got = c.ok ? QString::fromUtf8(QJsonDocument(invocation->request).toJson(QJsonDocument::Compact)) : error;
        EXPECT_EQ(got, QString::fromUtf8(c.requestOrError)) << qPrintable(c.arguments.join(' '));
    }
}

} // namespace
