#include "effects/composition/LVComposition.h"
#include "effects/composition/LVISFProgram.h"

#include "core/LVCompositionHeader.h"
#include "core/util/LVBoundedRead.h"
#include "core/util/LVLog.h"

#include <QColor>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QJsonArray>
#include <QPointF>
#include <QRegularExpression>

namespace {

struct CacheEntry {
    QDateTime modified;
    QDateTime vertexModified;
    qint64 size = -1;
    std::shared_ptr<const LVComposition> composition;
};

QHash<QString, CacheEntry>& cache()
{
    static QHash<QString, CacheEntry> entries;
    return entries;
}

quint64 nextUid()
{
    static quint64 uid = 0;
    return ++uid;
}

QString companionVertexPath(const QString& path)
{
    const QFileInfo info(path);
    return info.dir().filePath(info.completeBaseName() + QStringLiteral(".vs"));
}

// Comments become blanks so that names inside them are not mistaken for uses; newlines stay.
QString stripComments(const QString& s)
{
    QString out = s;
    qsizetype i = 0;
    while (i < out.size()) {
        if (out[i] == '/' && i + 1 < out.size() && out[i + 1] == '/') {
            while (i < out.size() && out[i] != '\n') out[i++] = ' ';
        } else if (out[i] == '/' && i + 1 < out.size() && out[i + 1] == '*') {
            while (i < out.size() && !(out[i] == '*' && i + 1 < out.size() && out[i + 1] == '/')) {
                if (out[i] != '\n') out[i] = ' ';
                ++i;
            }
            if (i < out.size()) out[i++] = ' ';
            if (i < out.size()) out[i++] = ' ';
        } else {
            ++i;
        }
    }
    return out;
}

const QRegularExpression& identifierPattern()
{
    static const QRegularExpression re(QStringLiteral("[A-Za-z_][A-Za-z0-9_]*"));
    return re;
}

QStringList identifiers(const QString& text)
{
    QStringList names;
    auto it = identifierPattern().globalMatch(text);
    while (it.hasNext()) names << it.next().captured(0);
    return names;
}

// The names declared at file scope: functions, constants, variables, structs.
void scanGlobals(const QString& source, QStringList* globals, QStringList* macros)
{
    static const QStringList skipFirst = {QStringLiteral("precision"), QStringLiteral("in"),
                                          QStringLiteral("varying"),   QStringLiteral("out"),
                                          QStringLiteral("layout"),    QStringLiteral("uniform")};
    static const QRegularExpression defineLine(QStringLiteral("^\\s*#\\s*define\\s+([A-Za-z_][A-Za-z0-9_]*)"),
                                               QRegularExpression::MultilineOption);
    auto dm = defineLine.globalMatch(source);
    while (dm.hasNext()) *macros << dm.next().captured(1);

    // Preprocessor lines are not declarations.
    QString text;
    for (const QString& line : source.split(QLatin1Char('\n')))
        text += (line.trimmed().startsWith(QLatin1Char('#')) ? QString() : line) + QLatin1Char('\n');

    QString statement;
    int depth = 0;
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar c = text[i];
        if (depth > 0) {
            if (c == '{') ++depth;
            else if (c == '}') --depth;
            continue;
        }
        if (c == '{') {
            const QString head = statement.simplified();
            const QStringList ids = identifiers(head.left(head.indexOf(QLatin1Char('('))));
            if (head.startsWith(QStringLiteral("struct"))) {
                if (ids.size() >= 2) *globals << ids[1];
                statement = QStringLiteral("struct_body ");  // declarators may follow the body
            } else {
                if (!ids.isEmpty()) *globals << ids.last();
                statement.clear();
            }
            depth = 1;
            continue;
        }
        if (c != ';') {
            statement += c;
            continue;
        }
        const QString decl = statement.simplified();
        statement.clear();
        const QStringList words = identifiers(decl);
        if (words.isEmpty() || skipFirst.contains(words.first())) continue;
        const qsizetype paren = decl.indexOf(QLatin1Char('('));
        const qsizetype equals = decl.indexOf(QLatin1Char('='));
        if (paren >= 0 && (equals < 0 || paren < equals)) {  // a prototype
            const QStringList ids = identifiers(decl.left(paren));
            if (!ids.isEmpty()) *globals << ids.last();
            continue;
        }
        // Declarators separated by commas outside brackets: the name before "=" or "[".
        int nest = 0;
        QStringList parts{QString()};
        for (const QChar ch : decl) {
            if (ch == '(' || ch == '[') ++nest;
            if (ch == ')' || ch == ']') --nest;
            if (ch == ',' && nest == 0) parts << QString();
            else parts.last() += ch;
        }
        for (qsizetype p = 0; p < parts.size(); ++p) {
            QString part = parts[p];
            const qsizetype cut = part.indexOf(QRegularExpression(QStringLiteral("[=\\[]")));
            if (cut >= 0) part = part.left(cut);
            const QStringList ids = identifiers(part);
            if (!ids.isEmpty() && ids.last() != QLatin1String("struct_body")) *globals << ids.last();
        }
    }
    globals->removeDuplicates();
    globals->removeAll(QStringLiteral("main"));
}

QString blankVersionLines(const QString& source)
{
    static const QRegularExpression versionLine(QStringLiteral("^[ \\t]*#[ \\t]*version[^\\n]*"),
                                                QRegularExpression::MultilineOption);
    QString out = source;
    out.replace(versionLine, QString());
    return out;
}

QVariant colorFromJson(const QJsonValue& value, const QVariant& fallback)
{
    const QJsonArray a = value.toArray();
    if (a.size() < 3) return fallback;
    return QColor::fromRgbF(float(a[0].toDouble()), float(a[1].toDouble()), float(a[2].toDouble()),
                            float(a.size() > 3 ? a[3].toDouble(1) : 1.0));
}

QVariant pointFromJson(const QJsonValue& value)
{
    const QJsonArray a = value.toArray();
    if (a.size() != 2) return {};
    return QPointF(a[0].toDouble(), a[1].toDouble());
}

std::optional<LVISFInputType> inputType(const QString& type)
{
    static const QHash<QString, LVISFInputType> types = {
        {QStringLiteral("bool"), LVISFInputType::Bool},     {QStringLiteral("long"), LVISFInputType::Long},
        {QStringLiteral("float"), LVISFInputType::Float},   {QStringLiteral("point2D"), LVISFInputType::Point2D},
        {QStringLiteral("color"), LVISFInputType::Color},   {QStringLiteral("image"), LVISFInputType::Image},
        {QStringLiteral("event"), LVISFInputType::Event},   {QStringLiteral("text"), LVISFInputType::Text},
        {QStringLiteral("audio"), LVISFInputType::Audio},   {QStringLiteral("audioFFT"), LVISFInputType::Audio},
    };
    const auto it = types.constFind(type);
    if (it == types.constEnd()) return std::nullopt;
    return it.value();
}

// An area declaration under key into *into, with the one field beyond the rectangle it may have
// (MARGIN, COLOR; none when empty); what is wrong with its shape, empty when nothing is.
QString parseArea(const QJsonObject& header, const QString& key, const char* extra, std::optional<LVISFArea>* into)
{
    const QJsonValue declared = header.value(key);
    if (declared.isUndefined()) return {};
    const QString fieldNames = *extra ? QStringLiteral("X, Y, WIDTH, HEIGHT and %1").arg(QLatin1String(extra))
                                      : QStringLiteral("X, Y, WIDTH and HEIGHT");
    if (!declared.isObject()) return QStringLiteral("%1 is not an object of %2").arg(key, fieldNames);
    LVISFArea area;
    QString* extraField = qstrcmp(extra, "MARGIN") == 0  ? &area.margin
                          : qstrcmp(extra, "COLOR") == 0 ? &area.color
                                                         : nullptr;
    const std::pair<const char*, QString*> fields[] = {
        {"X", &area.x}, {"Y", &area.y}, {"WIDTH", &area.width}, {"HEIGHT", &area.height}, {extra, extraField}};
    const QJsonObject o = declared.toObject();
    for (auto it = o.begin(); it != o.end(); ++it) {
        QString* field = nullptr;
        for (const auto& [name, target] : fields)
            if (target && it.key() == QLatin1String(name)) field = target;
        if (!field || !(it.value().isString() || it.value().isDouble()))
            return QStringLiteral("%1 has \"%2\": only %3, as numbers or expressions").arg(key, it.key(), fieldNames);
        *field = it.value().isDouble() ? QString::number(it.value().toDouble()) : it.value().toString();
    }
    *into = area;
    return {};
}

} // namespace

QString LVISFPositionBase(const QString& key)
{
    if (key.size() >= 12 && (key.endsWith(QStringLiteral("_X_Position")) || key.endsWith(QStringLiteral("_Y_Position"))))
        return key.left(key.size() - 10);
    return {};
}

std::shared_ptr<const LVComposition> LVComposition::load(const QString& path)
{
    const QFileInfo info(path);
    const QFileInfo vertexInfo(companionVertexPath(path));
    CacheEntry& entry = cache()[path];
    const QDateTime vertexModified = vertexInfo.exists() ? vertexInfo.lastModified() : QDateTime();
    if (entry.composition && entry.modified == info.lastModified() && entry.size == info.size() &&
        entry.vertexModified == vertexModified) {
        return entry.composition;
    }
    entry.modified = info.lastModified();
    entry.size = info.size();
    entry.vertexModified = vertexModified;

    QByteArray text, vertexText;
    QString readError;
    if (!LVReadRegularFile(path, kLVCompositionLimit, &text, &readError)) {
        readError = QStringLiteral("%1 %2").arg(path, readError);
    } else if (vertexInfo.exists() && !LVReadRegularFile(vertexInfo.filePath(), kLVCompositionLimit, &vertexText, &readError)) {
        readError = QStringLiteral("%1 %2").arg(vertexInfo.filePath(), readError);
    }
    if (!readError.isEmpty()) {
        auto broken = std::make_shared<LVComposition>();
        broken->path_ = path;
        broken->uid_ = nextUid();
        broken->error_ = readError;
        LVLog("Composition %s", qPrintable(readError));
        entry.composition = broken;
        return broken;
    }
    entry.composition = parse(path, text, vertexText);
    if (!entry.composition->isValid()) LVLog("Composition %s", qPrintable(entry.composition->error()));
    return entry.composition;
}

LVComposition::~LVComposition()
{
    if (uid_ != 0) LVISFCompositionGone(uid_);
}

void LVComposition::clearCache()
{
    cache().clear();
}

std::shared_ptr<const LVComposition> LVComposition::parse(const QString& path, const QByteArray& text,
                                                          const QByteArray& vertexText)
{
    auto c = std::make_shared<LVComposition>();
    c->path_ = path;
    c->uid_ = nextUid();
    const LVCompositionHeader header = LVCompositionHeader::parse(text);
    if (!header.valid) {
        c->error_ = QStringLiteral("%1:%2: %3").arg(path).arg(header.errorLine).arg(header.error);
        return c;
    }
    c->header_ = header.json;
    c->fragmentSource_ = blankVersionLines(header.shaderSource);
    c->fragmentFirstLine_ = header.sourceFirstLine;
    c->vertexSource_ = blankVersionLines(QString::fromUtf8(vertexText));
    c->parseHeader(header.json, QFileInfo(path).absolutePath());
    if (c->isValid()) c->analyse();
    return c;
}

const LVISFInput* LVComposition::input(const QString& name) const
{
    for (const LVISFInput& in : inputs_) {
        if (in.name == name) return &in;
    }
    return nullptr;
}

void LVComposition::parseHeader(const QJsonObject& header, const QString& folder)
{
    auto fail = [&](const QString& message) {
        if (error_.isEmpty()) error_ = QStringLiteral("%1:1: %2").arg(path_, message);
    };
    description_ = header.value(QStringLiteral("DESCRIPTION")).toString();
    credit_ = header.value(QStringLiteral("CREDIT")).toString();

    for (const QJsonValue& value : header.value(QStringLiteral("INPUTS")).toArray()) {
        const QJsonObject o = value.toObject();
        LVISFInput in;
        in.json = o;
        in.name = o.value(QStringLiteral("NAME")).toString();
        const QString typeName = o.value(QStringLiteral("TYPE")).toString();
        const auto type = inputType(typeName);
        if (in.name.isEmpty() || !identifierPattern().match(in.name).hasMatch() ||
            identifierPattern().match(in.name).captured(0) != in.name) {
            fail(QStringLiteral("input \"%1\" has no usable NAME").arg(in.name));
            return;
        }
        if (!type) {
            fail(QStringLiteral("input \"%1\" has unknown TYPE \"%2\"").arg(in.name, typeName));
            return;
        }
        if (input(in.name)) {
            fail(QStringLiteral("input \"%1\" is declared twice").arg(in.name));
            return;
        }
        in.type = *type;
        in.label = o.value(QStringLiteral("LABEL")).toString(in.name);
        const QJsonValue def = o.value(QStringLiteral("DEFAULT"));
        switch (in.type) {
        case LVISFInputType::Bool:
        case LVISFInputType::Event:
            in.defaultValue = def.isBool() ? def.toBool() : def.toDouble() != 0;
            break;
        case LVISFInputType::Long:
            for (const QJsonValue& v : o.value(QStringLiteral("VALUES")).toArray()) in.values << v.toInt();
            for (const QJsonValue& v : o.value(QStringLiteral("LABELS")).toArray()) in.labels << v.toString();
            while (in.labels.size() < in.values.size()) in.labels << QString::number(in.values[in.labels.size()]);
            in.defaultValue = def.isDouble() ? def.toInt() : (in.values.isEmpty() ? 0 : in.values.first());
            if (o.contains(QStringLiteral("MIN"))) in.minimum = o.value(QStringLiteral("MIN")).toInt();
            if (o.contains(QStringLiteral("MAX"))) in.maximum = o.value(QStringLiteral("MAX")).toInt();
            break;
        case LVISFInputType::Float:
            if (o.contains(QStringLiteral("MIN"))) in.minimum = o.value(QStringLiteral("MIN")).toDouble();
            if (o.contains(QStringLiteral("MAX"))) in.maximum = o.value(QStringLiteral("MAX")).toDouble();
            in.defaultValue = def.isDouble() ? def.toDouble() : (in.minimum.isValid() ? in.minimum.toDouble() : 0.0);
            break;
        case LVISFInputType::Point2D:
            in.defaultValue = pointFromJson(def);
            if (!in.defaultValue.isValid()) in.defaultValue = QPointF(0, 0);
            in.minimum = pointFromJson(o.value(QStringLiteral("MIN")));
            in.maximum = pointFromJson(o.value(QStringLiteral("MAX")));
            break;
        case LVISFInputType::Color:
            in.defaultValue = colorFromJson(def, QColor::fromRgbF(0, 0, 0, 1));
            break;
        case LVISFInputType::Text:
            in.defaultValue = def.toString();
            in.fontScale = o.value(QStringLiteral("FONT_SCALE")).toDouble(1.0);
            break;
        case LVISFInputType::Image:
        case LVISFInputType::Audio:
            in.defaultValue = QString();
            break;
        }
        inputs_.push_back(in);
    }
    for (LVISFInput& in : inputs_) {
        const QString problem = parsePresets(in);
        if (!problem.isEmpty()) {
            fail(problem);
            return;
        }
    }

    auto hasImage = [&](const QString& name) {
        const LVISFInput* in = input(name);
        return in && in->type == LVISFInputType::Image;
    };
    for (const LVISFInput& in : inputs_) {
        if (in.type == LVISFInputType::Image &&
            (in.name == QLatin1String("_protocolInput_Image") || in.name == QLatin1String("inputImage"))) {
            imageInputKey_ = in.name;
            break;
        }
    }
    isTransition_ = (hasImage(QStringLiteral("targetImage")) && input(QStringLiteral("transitionTime"))) ||
                    (hasImage(QStringLiteral("startImage")) && hasImage(QStringLiteral("endImage")) &&
                     input(QStringLiteral("progress")));
    if (imageInputKey_.isEmpty() && hasImage(QStringLiteral("startImage")) && isTransition_)
        imageInputKey_ = QStringLiteral("startImage");
    for (const LVISFInput& in : inputs_) {
        if (in.name == QLatin1String("_protocolInput_PreviewMode") || in.name == QLatin1String("protocolInput_PreviewMode")) {
            previewInputKey_ = in.name;
            break;
        }
    }

    QStringList persistentNames;
    const QJsonValue persistent = header.value(QStringLiteral("PERSISTENT_BUFFERS"));
    if (persistent.isArray()) {
        for (const QJsonValue& v : persistent.toArray()) persistentNames << v.toString();
    } else {
        persistentNames = persistent.toObject().keys();
    }
    for (const QJsonValue& value : header.value(QStringLiteral("PASSES")).toArray()) {
        const QJsonObject o = value.toObject();
        LVISFPass pass;
        pass.target = o.value(QStringLiteral("TARGET")).toString();
        pass.persistent = o.value(QStringLiteral("PERSISTENT")).toBool(persistentNames.contains(pass.target) &&
                                                                        !pass.target.isEmpty());
        pass.floatTarget = o.value(QStringLiteral("FLOAT")).toBool(false);
        auto expr = [&](const char* key) {
            const QJsonValue v = o.value(QLatin1String(key));
            return v.isDouble() ? QString::number(v.toDouble()) : v.toString();
        };
        pass.widthExpr = expr("WIDTH");
        pass.heightExpr = expr("HEIGHT");
        if (!pass.target.isEmpty() && input(pass.target)) {
            fail(QStringLiteral("pass target \"%1\" has the name of an input").arg(pass.target));
            return;
        }
        passes_.push_back(pass);
    }
    if (passes_.empty()) passes_.push_back(LVISFPass{});

    QStringList problems = {parseArea(header, QStringLiteral("CHANGES_ONLY"), "", &changedArea_),
                            parseArea(header, QStringLiteral("KEEPS_INSIDE"), "", &keptArea_),
                            parseArea(header, QStringLiteral("READS_ONLY"), "MARGIN", &readArea_),
                            parseArea(header, QStringLiteral("FILLS_OUTSIDE"), "COLOR", &filledArea_)};
    if (filledArea_) {
        const LVISFInput* colour = input(filledArea_->color);
        if (!colour || colour->type != LVISFInputType::Color) {
            problems << QStringLiteral("FILLS_OUTSIDE needs COLOR, the name of a colour input");
            filledArea_.reset();
        }
    }
    for (const QString& problem : problems) {
        if (!problem.isEmpty()) {
            fail(problem);
            return;
        }
    }

    const QJsonValue imported = header.value(QStringLiteral("IMPORTED"));
    auto addImport = [&](const QString& name, const QJsonObject& o) {
        const QString file = o.value(QStringLiteral("PATH")).toString();
        const QString full = QDir(folder).absoluteFilePath(file);
        if (file.isEmpty() || !QFileInfo::exists(full)) {
            fail(QStringLiteral("imported image \"%1\" not found at %2").arg(name, full));
            return;
        }
        imports_.push_back({name, full});
    };
    if (imported.isArray()) {
        for (const QJsonValue& v : imported.toArray()) addImport(v.toObject().value(QStringLiteral("NAME")).toString(), v.toObject());
    } else {
        const QJsonObject o = imported.toObject();
        for (auto it = o.begin(); it != o.end(); ++it) addImport(it.key(), it.value().toObject());
    }
}

QString LVComposition::parsePresets(LVISFInput& choice) const
{
    const QJsonValue declared = choice.json.value(QStringLiteral("PRESETS"));
    if (declared.isUndefined()) return {};
    const QString where = QStringLiteral("input \"%1\" PRESETS").arg(choice.name);
    if (choice.type != LVISFInputType::Long || choice.values.isEmpty() || !declared.isObject())
        return QStringLiteral("%1 needs a long input with VALUES and an object of values").arg(where);
    const QJsonObject byValue = declared.toObject();
    for (auto it = byValue.begin(); it != byValue.end(); ++it) {
        bool isNumber = false;
        const int value = it.key().toInt(&isNumber);
        if (!isNumber || !choice.values.contains(value))
            return QStringLiteral("%1 names \"%2\", which is not one of its VALUES").arg(where, it.key());
        QVariantMap preset;
        const QJsonObject targets = it.value().toObject();
        for (auto target = targets.begin(); target != targets.end(); ++target) {
            const LVISFInput* other = input(target.key());
            QVariant v;
            if (other && other != &choice) {
                switch (other->type) {
                case LVISFInputType::Bool: v = target.value().toBool(); break;
                case LVISFInputType::Long: v = target.value().toInt(); break;
                case LVISFInputType::Float: v = target.value().toDouble(); break;
                case LVISFInputType::Point2D: v = pointFromJson(target.value()); break;
                case LVISFInputType::Color: v = colorFromJson(target.value(), QVariant()); break;
                case LVISFInputType::Text: v = target.value().toString(); break;
                default: break;
                }
            }
            if (!v.isValid())
                return QStringLiteral("%1 cannot set \"%2\": no other input of a type a preset sets, or an unusable value")
                    .arg(where, target.key());
            preset.insert(target.key(), v);
        }
        choice.presets.insert(value, preset);
    }
    return {};
}

void LVComposition::analyse()
{
    const QString code = stripComments(fragmentSource_);
    auto uses = [&](const QString& name) {
        return code.contains(QRegularExpression(QStringLiteral("\\b%1\\b").arg(QRegularExpression::escape(name))));
    };
    readsImageInput_ = !imageInputKey_.isEmpty() && uses(imageInputKey_);
    for (size_t i = 0; i + 1 < passes_.size(); ++i) passes_[i].read = passes_[i].target.isEmpty() || uses(passes_[i].target);

    coversFrame_ = !hasVertexShader() && !uses(QStringLiteral("discard"));
    pointwise_ = isFilter() && !isTransition_ && isOnePlainPass();
    const QJsonValue declared = header_.value(QStringLiteral("POINTWISE"));
    if (pointwise_ && declared.isBool()) {
        pointwise_ = declared.toBool();
    } else if (pointwise_) {
        const QString key = QRegularExpression::escape(imageInputKey_);
        const QRegularExpression any(QStringLiteral("\\b%1\\b").arg(key));
        const QRegularExpression here(QStringLiteral("\\bIMG_THIS_(NORM_)?PIXEL\\s*\\(\\s*%1\\s*\\)").arg(key));
        pointwise_ = code.count(any) == code.count(here);
    }
    scanGlobals(code, &globalNames_, &macroNames_);
    for (const LVISFInput& in : inputs_) {
        if (in.type != LVISFInputType::Bool && in.type != LVISFInputType::Long && in.type != LVISFInputType::Float)
            continue;
        // Beside a comparison (not a shift), or a condition of its own: if (x), x ? a : b, !x, x && y.
        const QString n = QRegularExpression::escape(in.name);
        const QRegularExpression branch(
            QStringLiteral("\\b%1\\s*(==|!=|<=|>=|<(?!<)|>(?!>)|\\?|&&|\\|\\|)|(==|!=|<=|>=|(?<!<)<|(?<!>)>|!|&&|\\|\\|)\\s*%1\\b|"
                           "\\bif\\s*\\(\\s*%1\\s*\\)")
                .arg(n));
        if (code.contains(branch)) switchInputs_ << in.name;
    }
}

LVParameterList LVComposition::parameters() const
{
    static const QStringList transitionPorts = {QStringLiteral("targetImage"), QStringLiteral("transitionTime"),
                                                QStringLiteral("startImage"), QStringLiteral("endImage"),
                                                QStringLiteral("progress")};
    LVParameterList list;
    for (const LVISFInput& in : inputs_) {
        if (in.name.startsWith(QLatin1Char('_')) || in.name == imageInputKey_ || in.label.startsWith(QLatin1Char('_')))
            continue;
        if (isTransition_ && transitionPorts.contains(in.name)) continue;
        switch (in.type) {
        case LVISFInputType::Float: {
            const QString base = LVISFPositionBase(in.name);
            const QString xKey = base + QStringLiteral("X_Position");
            const QString yKey = base + QStringLiteral("Y_Position");
            const QString pairLabel = base.isEmpty() ? QStringLiteral("Position") : base.chopped(1) + QStringLiteral(" Position");
            if (in.name == xKey && input(yKey)) {
                LVParameter p = LVFloatParameter(in.name, pairLabel, in.defaultValue.toDouble(), -1, 1);
                p.editor = LVParameterEditor::XYPad;
                p.pairedKey = yKey;
                list.push_back(p);
            } else if (in.name == yKey && input(xKey)) {
                // Its own name keeps it reachable by scripting; the pad shows it.
                LVParameter p = LVFloatParameter(in.name, pairLabel + QStringLiteral(" Y"), in.defaultValue.toDouble(), -1, 1);
                p.editor = LVParameterEditor::PairedAxis;
                list.push_back(p);
            } else if (in.minimum.isValid() && in.maximum.isValid()) {
                list.push_back(LVFloatParameter(in.name, in.label, in.defaultValue.toDouble(), in.minimum.toDouble(),
                                                in.maximum.toDouble()));
            } else if (in.name == xKey || in.name == yKey) {
                list.push_back(LVFloatParameter(in.name, in.label, in.defaultValue.toDouble(), -1, 1));
            } else if (in.name == QLatin1String("Font_Size")) {
                list.push_back(LVFloatParameter(in.name, in.label, in.defaultValue.toDouble(), 0.01, 2.0));
            } else {
                LVParameter p = LVFloatParameter(in.name, in.label, in.defaultValue.toDouble(), 0, 0);
                p.minimum = in.minimum;
                p.maximum = in.maximum;
                list.push_back(p);
            }
            break;
        }
        case LVISFInputType::Long:
            if (!in.values.isEmpty()) {
                LVParameter p = LVChoiceParameter(in.name, in.label, in.defaultValue.toInt(), in.labels, in.values);
                p.presets = in.presets;
                list.push_back(p);
            } else {
                LVParameter p = LVIntegerParameter(in.name, in.label, in.defaultValue.toInt(), 0, 0);
                p.minimum = in.minimum;
                p.maximum = in.maximum;
                list.push_back(p);
            }
            break;
        case LVISFInputType::Text:
        {
            LVParameter p = LVTextParameter(in.name, in.label, in.defaultValue.toString());
            if (in.name == QLatin1String("Font_Name"))
                p.editor = LVParameterEditor::Font;
            else if (in.label == QLatin1String("static_text"))
                p.editor = LVParameterEditor::FixedText;
            list.push_back(p);
            break;
        }
        case LVISFInputType::Color:
            list.push_back(LVColorParameter(in.name, in.label, in.defaultValue));
            break;
        case LVISFInputType::Image:
            list.push_back(LVImageParameter(in.name, in.label));
            break;
        case LVISFInputType::Bool:
            list.push_back(LVBoolParameter(in.name, in.label, in.defaultValue.toBool()));
            break;
        case LVISFInputType::Event: {
            LVParameter p = LVBoolParameter(in.name, in.label, false);
            p.type = LVParameterType::Event;
            list.push_back(p);
            break;
        }
        case LVISFInputType::Point2D: {
            const QPointF low = in.minimum.isValid() ? in.minimum.toPointF() : QPointF(-1e9, -1e9);
            const QPointF high = in.maximum.isValid() ? in.maximum.toPointF() : QPointF(1e9, 1e9);
            list.push_back(LVPointParameter(in.name, in.label, in.defaultValue.toPointF(), low, high));
            break;
        }
        case LVISFInputType::Audio:
            break;
        }
    }
    return list;
}
