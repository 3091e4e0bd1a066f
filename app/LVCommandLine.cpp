#include "app/LVCommandLine.h"

#include "core/LVVideoSizes.h"

#include <QCommandLineParser>
#include <QRegularExpression>

#include <algorithm>
#include <vector>

namespace {

int editDistance(const QString& a, const QString& b)
{
    std::vector<int> row(size_t(b.size()) + 1);
    for (size_t j = 0; j < row.size(); ++j) row[j] = int(j);
    for (int i = 1; i <= a.size(); ++i) {
        int diagonal = row[0];
        row[0] = i;
        for (int j = 1; j <= b.size(); ++j) {
            const int above = row[size_t(j)];
            const int cost = a[i - 1] == b[j - 1] ? 0 : 1;
            row[size_t(j)] = std::min({above + 1, row[size_t(j) - 1] + 1, diagonal + cost});
            diagonal = above;
        }
    }
    return row.back();
}

} // namespace

QString LVCommandLineUsage()
{
    return QStringLiteral(
        "usage: lumaveil [--headless] [options] | --list-effects\n"
        "  --headless            render and publish frames with no window\n"
        "  --video-size WxH      output size for this run (%1 to %2 per side)\n"
        "  --fps N               frames per second for this run (%3 to %4)\n"
        "  --frames N            stop after N frames (headless)\n"
        "  --source NAME         the chain's source, by catalogue name\n"
        "  --effect NAME         an effect, by catalogue name (repeatable, in chain order)\n"
        "  --setup NAME|FILE     load a saved setup by name or from a file\n"
        "  --play FILE...        the source for these files: movies as a Movie playlist, images as a Slide Show\n"
        "  --no-publish          do not publish frames to the camera (for example beside another Lumaveil)\n"
        "  --studio              open the studio window; headless: run as a vision mixer from the current set\n"
        "  --remote-control[=PORT]  serve remote control (WebSocket), on PORT instead of the preference's (headless)\n"
        "  --record FILE         record the frames into FILE (.mp4 or .mkv) (headless)\n"
        "  --stream URL          stream the frames: rtmp[s]://host/app/key, srt://host:port, srt://:port or an HLS folder (headless)\n"
        "  --bench               render as fast as possible and print timing as JSON (headless)\n"
        "  --list-effects        print the catalogues and exit\n"
        "  --version             print the version and exit\n")
        .arg(LVMinVideoDimension)
        .arg(LVMaxVideoDimension)
        .arg(LVMinFrameRate)
        .arg(LVMaxFrameRate);
}

namespace {

// --remote-control takes an optional value, which the parser cannot express; it is taken out first.
bool takeRemoteControl(QStringList* arguments, LVCommandLine* result, QString* error)
{
    static const QRegularExpression option(QStringLiteral("^--?remote-control(=(.*))?$"));
    for (auto it = arguments->begin(); it != arguments->end();) {
        const QRegularExpressionMatch match = option.match(*it);
        if (!match.hasMatch()) {
            ++it;
            continue;
        }
        result->remoteControl = true;
        if (match.hasCaptured(1)) {
            bool ok = false;
            const int port = match.captured(2).toInt(&ok);
            if (!ok || port < 0 || port > 65535) {
                *error = QStringLiteral("remote-control port \"%1\" is not allowed; use a number from 1 to 65535 (0: any free port)")
                             .arg(match.captured(2));
                return false;
            }
            result->remoteControlPort = quint16(port);
        }
        it = arguments->erase(it);
    }
    return true;
}

} // namespace

bool LVParseCommandLine(const QStringList& givenArguments, LVCommandLine* commandLine, QString* error)
{
    LVCommandLine result;
    QStringList arguments = givenArguments;
    if (!takeRemoteControl(&arguments, &result, error)) return false;
    QCommandLineParser parser;
    parser.setSingleDashWordOptionMode(QCommandLineParser::ParseAsLongOptions);
    const QCommandLineOption headless(QStringLiteral("headless"));
    const QCommandLineOption listEffects(QStringLiteral("list-effects"));
    const QCommandLineOption bench(QStringLiteral("bench"));
    const QCommandLineOption noPublish(QStringLiteral("no-publish"));
    const QCommandLineOption studio(QStringLiteral("studio"));
    const QCommandLineOption help(QStringList{QStringLiteral("h"), QStringLiteral("help")});
    const QCommandLineOption version(QStringLiteral("version"));
    const QCommandLineOption videoSize(QStringLiteral("video-size"), QString(), QStringLiteral("WxH"));
    const QCommandLineOption fps(QStringLiteral("fps"), QString(), QStringLiteral("N"));
    const QCommandLineOption frames(QStringLiteral("frames"), QString(), QStringLiteral("N"));
    const QCommandLineOption source(QStringLiteral("source"), QString(), QStringLiteral("NAME"));
    const QCommandLineOption effect(QStringLiteral("effect"), QString(), QStringLiteral("NAME"));
    const QCommandLineOption setup(QStringLiteral("setup"), QString(), QStringLiteral("NAME|FILE"));
    // Given by Lumaveil itself when it restarts for a new video size; not in the usage text.
    const QCommandLineOption restoreChain(QStringLiteral("restore-chain"), QString(), QStringLiteral("FILE"));
    const QCommandLineOption play(QStringLiteral("play"));
    const QCommandLineOption record(QStringLiteral("record"), QString(), QStringLiteral("FILE"));
    const QCommandLineOption stream(QStringLiteral("stream"), QString(), QStringLiteral("URL"));
    parser.addOptions({headless, listEffects, bench, noPublish, studio, help, version, videoSize, fps, frames, source, effect, setup, restoreChain, play});
    parser.addOptions({record, stream});
    if (!parser.parse(arguments)) {
        *error = parser.errorText();
        return false;
    }
    if (parser.isSet(play) && parser.positionalArguments().isEmpty()) {
        *error = QStringLiteral("--play needs at least one file");
        return false;
    }
    if (!parser.isSet(play) && !parser.positionalArguments().isEmpty()) {
        *error = QStringLiteral("unexpected argument \"%1\"").arg(parser.positionalArguments().front());
        return false;
    }
    result.headless = parser.isSet(headless);
    result.listEffects = parser.isSet(listEffects);
    result.bench = parser.isSet(bench);
    result.help = parser.isSet(help);
    result.version = parser.isSet(version);
    result.noPublish = parser.isSet(noPublish);
    result.studio = parser.isSet(studio);
    if (parser.isSet(videoSize)) {
        QSize size;
        if (!LVValidateVideoSize(parser.value(videoSize), &size, error)) return false;
        result.videoSize = size;
    }
    if (parser.isSet(fps)) {
        int rate = 0;
        if (!LVValidateFrameRate(parser.value(fps), &rate, error)) return false;
        result.frameRate = rate;
    }
    if (parser.isSet(frames)) {
        bool ok = false;
        const qint64 count = parser.value(frames).toLongLong(&ok);
        if (!ok || count < 1) {
            *error = QStringLiteral("frame count \"%1\" is not allowed; use a whole number of 1 or more")
                         .arg(parser.value(frames));
            return false;
        }
        result.frames = count;
    }
    result.source = parser.value(source);
    result.effects = parser.values(effect);
    result.setup = parser.value(setup);
    result.restoreChain = parser.value(restoreChain);
    if (parser.isSet(play)) result.play = parser.positionalArguments();
    result.record = parser.value(record);
    result.stream = parser.value(stream);
    if ((!result.record.isEmpty() || !result.stream.isEmpty()) && (!result.headless || result.bench)) {
        *error = QStringLiteral("--record and --stream need --headless (and no --bench); the window has its own buttons");
        return false;
    }
    // The window runs until closed and at the timer's pace.
    if ((result.bench || result.frames) && !result.headless) {
        *error = QStringLiteral("--frames and --bench need --headless");
        return false;
    }
    if (result.remoteControl && !result.headless) {
        *error = QStringLiteral("--remote-control needs --headless; the window application serves it from its Remote Control window");
        return false;
    }
    // In the studio Program is made of the buttons on air, never of a chain given here.
    if (result.studio && (!result.setup.isEmpty() || !result.source.isEmpty() || !result.effects.isEmpty())) {
        *error = QStringLiteral("--studio cannot be combined with --setup, --source or --effect");
        return false;
    }
    if (!result.play.isEmpty() && (result.studio || !result.setup.isEmpty() || !result.source.isEmpty())) {
        *error = QStringLiteral("--play cannot be combined with --studio, --setup or --source");
        return false;
    }
    if (!result.setup.isEmpty() && (!result.source.isEmpty() || !result.effects.isEmpty())) {
        *error = QStringLiteral("--setup cannot be combined with --source or --effect");
        return false;
    }
    *commandLine = result;
    return true;
}

QStringList LVCloseMatches(const QString& name, const QStringList& candidates)
{
    const QString wanted = name.toCaseFolded();
    std::vector<std::pair<int, QString>> scored;
    for (const QString& candidate : candidates) {
        const QString folded = candidate.toCaseFolded();
        int score = editDistance(wanted, folded);
        const bool contains = !wanted.isEmpty() && (folded.contains(wanted) || wanted.contains(folded));
        if (contains) score = std::min(score, 1);
        const int allowed = std::max(2, int(wanted.size()) / 3);
        if (score <= allowed) scored.emplace_back(score, candidate);
    }
    std::stable_sort(scored.begin(), scored.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    QStringList matches;
    for (const auto& [score, candidate] : scored) {
        if (matches.size() == 5) break;
        if (!matches.contains(candidate)) matches.append(candidate);
    }
    return matches;
}

QString LVUnknownNameMessage(const QString& what, const QString& name, const QStringList& candidates)
{
    const QStringList close = LVCloseMatches(name, candidates);
    if (!close.isEmpty()) {
        return QStringLiteral("unknown %1 \"%2\"; did you mean: %3?").arg(what, name, close.join(QStringLiteral(", ")));
    }
    if (candidates.isEmpty()) return QStringLiteral("unknown %1 \"%2\"; none are installed").arg(what, name);
    return QStringLiteral("unknown %1 \"%2\"; known: %3").arg(what, name, candidates.join(QStringLiteral(", ")));
}
