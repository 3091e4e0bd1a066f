#include "setups/model/LVSavedSetup.h"

#include "core/LVEffect.h"
#include "core/util/KDFileUtil.h"
#include "core/util/LVAtomicFile.h"
#include "core/util/LVBoundedRead.h"
#include "core/util/LVLog.h"
#include "core/util/LVUtil.h"

#include <QBuffer>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonParseError>
#include <QPainter>

#include <array>
#include <cerrno>
#include <cstdio>

#include <unistd.h>

namespace {

const QString kEncoded = QStringLiteral("encoded");
const QString kMidiKey = QStringLiteral("midiKey");
const QString kIcon = QStringLiteral("icon");

QString folderOf(const QString& path)
{
    const qsizetype slash = path.lastIndexOf(QLatin1Char('/'));
    return slash < 0 ? QString() : path.left(slash);
}

QString lastComponent(const QString& path)
{
    return path.mid(path.lastIndexOf(QLatin1Char('/')) + 1);
}

// Padded standard base64, as this build writes it, straight from the string's UTF-16:
// the folder scan spends most of its time here, and this runs several times faster than
// the general decoder, which remains the fallback for any other spelling.
bool decodePaddedBase64(QStringView text, QByteArray* out)
{
    static const auto table = [] {
        std::array<int8_t, 128> t{};
        t.fill(-1);
        const char* alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
        for (int i = 0; i < 64; ++i) t[size_t(alphabet[i])] = int8_t(i);
        return t;
    }();
    const qsizetype length = text.size();
    if (length % 4 != 0) return false;
    const qsizetype padding =
        length > 0 && text[length - 1] == u'=' ? 1 + qsizetype(text[length - 2] == u'=') : 0;
    QByteArray bytes(length / 4 * 3 - padding, Qt::Uninitialized);
    char* o = bytes.data();
    const char16_t* in = text.utf16();
    for (qsizetype i = 0, written = 0; i < length; i += 4) {
        uint32_t group = 0;
        for (int k = 0; k < 4; ++k) {
            const char16_t c = in[i + k];
            int value;
            if (c == u'=' && i + 4 == length && k >= 4 - padding) {
                value = 0;
            } else if (c >= 128 || (value = table[c]) < 0) {
                return false;
            }
            group = group << 6 | uint32_t(value);
        }
        const char triple[3] = {char(group >> 16), char(group >> 8), char(group)};
        for (int k = 0; k < 3 && written < bytes.size(); ++k) o[written++] = triple[k];
    }
    *out = std::move(bytes);
    return true;
}

bool decodeBase64(const QJsonValue& value, QByteArray* out)
{
    if (!value.isString()) return false;
    const QString text = value.toString();
    if (decodePaddedBase64(text, out)) return true;
    auto result = QByteArray::fromBase64Encoding(text.toLatin1(), QByteArray::AbortOnBase64DecodingErrors);
    if (!result) return false;
    *out = std::move(*result);
    return true;
}

} // namespace

LVSavedSetup::LVSavedSetup(LVContext* context, const QString& path) : path_(path)
{
    readFile(context);
    name_ = lastComponent(path_);
}

LVSavedSetup::LVSavedSetup(const std::vector<LVEffectRef>& effects, const QString& path) : path_(path)
{
    setEffects(effects);
    name_ = lastComponent(path_);
}

void LVSavedSetup::readFile(LVContext* context)
{
    QJsonParseError parseError{};
    QJsonDocument document;
    QString error;
    QByteArray bytes;
    if (!LVReadRegularFile(path_, kLVSetupLimit, &bytes, &error)) {
        // error says why: a link, not a regular file, over the size limit, ...
    } else if (document = QJsonDocument::fromJson(bytes, &parseError);
               parseError.error != QJsonParseError::NoError) {
        error = QStringLiteral("is not JSON (%1 at offset %2)").arg(parseError.errorString()).arg(parseError.offset);
    } else if (document.isObject()) {
        QJsonObject object = document.object();
        const QJsonValue midiKey = object.take(kMidiKey);
        QByteArray icon;
        if (readBlobs(object.take(kEncoded), &error)) {
            if (!midiKey.isUndefined() && !midiKey.isDouble()) {
                error = QStringLiteral("has a \"midiKey\" that is not a number");
            } else if (object.contains(kIcon) && !decodeBase64(object.take(kIcon), &icon)) {
                error = QStringLiteral("has an \"icon\" that is not base64 data");
            }
        }
        if (error.isEmpty()) {
            form_ = FileForm::Dictionary;
            const double key = midiKey.toDouble(0);
            midiKey_ = key > 0 && key <= double(UINT32_MAX) ? uint32_t(key) : 0;
            iconPng_ = std::move(icon);
            otherKeys_ = std::move(object);
        }
    } else if (document.isArray()) {
        if (readBlobs(document.array(), &error)) form_ = FileForm::LegacyArray;
    } else {
        error = QStringLiteral("is neither a dictionary nor an array");
    }
    if (!error.isEmpty()) {
        encoded_.clear();
        form_ = FileForm::Unreadable;
        loadError_ = error;
        return;
    }
    if (!encoded_.isEmpty()) {
        const LVEffectDescriptor* cls = LVEffect::effectClassFromData(encoded_.first(), context);
        hasVideoSource_ = cls && cls->isSource();
    }
}

// Blobs are base64 strings; an effect written out as a JSON object by hand is taken too.
bool LVSavedSetup::readBlobs(const QJsonValue& value, QString* error)
{
    encoded_.clear();
    if (value.isUndefined()) return true;
    if (!value.isArray()) {
        *error = QStringLiteral("has an \"encoded\" that is not a list");
        return false;
    }
    const QJsonArray array = value.toArray();
    encoded_.reserve(array.size());
    for (qsizetype i = 0; i < array.size(); ++i) {
        const QJsonValue element = array.at(i);
        QByteArray blob;
        if (element.isObject()) {
            blob = QJsonDocument(element.toObject()).toJson(QJsonDocument::Compact);
        } else if (!decodeBase64(element, &blob)) {
            *error = QStringLiteral("has effect %1 that is not base64 data").arg(i + 1);
            return false;
        }
        encoded_.append(std::move(blob));
    }
    return true;
}

void LVSavedSetup::setEffects(const std::vector<LVEffectRef>& effects)
{
    encoded_.clear();
    encoded_.reserve(qsizetype(effects.size()));
    for (const LVEffectRef& effect : effects) {
        if (effect) encoded_.append(LVEffect::dataFromEffect(*effect));
    }
    setHasVideoSource(!effects.empty() && effects.front() && effects.front()->isSource());
}

void LVSavedSetup::setHasVideoSource(bool hasVideoSource)
{
    if (hasVideoSource_ == hasVideoSource) return;
    hasVideoSource_ = hasVideoSource;
    emit hasVideoSourceChanged();
}

std::vector<LVEffectRef> LVSavedSetup::instantiateWithContext(LVContext* context) const
{
    std::vector<LVEffectRef> effects;
    effects.reserve(size_t(encoded_.size()));
    const LVLogRepeatsCollapsed namedAndCollapsed("Saved setup \"" + name_.toStdString() + "\": ");
    for (const QByteArray& blob : encoded_) {
        if (LVEffectRef effect = LVEffect::effectFromData(blob, context)) {
            effect->setSavedSetupName(name_);
            effects.push_back(std::move(effect));
        }
    }
    return effects;
}

QByteArray LVSavedSetup::fileBytes() const
{
    QJsonObject object = otherKeys_;
    QJsonArray blobs;
    for (const QByteArray& blob : encoded_) blobs.append(QString::fromLatin1(blob.toBase64()));
    object.insert(kEncoded, blobs);
    object.insert(kMidiKey, qint64(midiKey_));
    if (!iconPng_.isEmpty()) object.insert(kIcon, QString::fromLatin1(iconPng_.toBase64()));
    return QJsonDocument(object).toJson(QJsonDocument::Indented);
}

QString LVSavedSetup::unreadableBackupPath(const QString& path)
{
    const QString base = QStringLiteral("%1/.%2.unreadable").arg(folderOf(path), lastComponent(path));
    QString candidate = base;
    for (int n = 1; QFileInfo::exists(candidate); ++n) candidate = QStringLiteral("%1.%2").arg(base).arg(n);
    return candidate;
}

bool LVSavedSetup::persist()
{
    if (form_ == FileForm::Unreadable && QFileInfo::exists(path_)) {
        const QString aside = unreadableBackupPath(path_);
        if (::rename(QFile::encodeName(path_).constData(), QFile::encodeName(aside).constData()) != 0) {
            LVLogSystemError(qPrintable(QStringLiteral("rename %1 to %2").arg(path_, aside)));
            return false;
        }
        LVLog("Saved setup %s was not readable; kept as %s", qPrintable(path_), qPrintable(aside));
    }
    KDFileUtil::mkdir_p(folderOf(path_));
    QString error;
    if (!LVWriteFileAtomically(path_, fileBytes(), &error)) {
        LVLog("LVWriteFileAtomically: %s", qPrintable(error));
        return false;
    }
    form_ = FileForm::Dictionary;
    loadError_.clear();
    return true;
}

void LVSavedSetup::unlink()
{
    if (::unlink(QFile::encodeName(path_).constData()) != 0 && errno != ENOENT) {
        LVLogSystemError(qPrintable(QStringLiteral("unlink %1").arg(path_)));
    }
}

bool LVSavedSetup::setName(const QString& name)
{
    if (name == name_) return true;
    const QString oldName = name_;
    const QString oldPath = path_;
    name_ = name;
    path_ = QStringLiteral("%1/%2").arg(folderOf(oldPath), name);
    bool moved;
    if (form_ == FileForm::Unreadable && QFileInfo::exists(oldPath)) {
        moved = ::rename(QFile::encodeName(oldPath).constData(), QFile::encodeName(path_).constData()) == 0;
        if (!moved) LVLogSystemError(qPrintable(QStringLiteral("rename %1 to %2").arg(oldPath, path_)));
    } else {
        // The old file goes only once the new one is in place, so a failed write loses nothing.
        moved = persist();
        if (moved) QFile::remove(oldPath);
    }
    if (!moved) {
        name_ = oldName;
        path_ = oldPath;
        return false;
    }
    emit nameChanged();
    return true;
}

void LVSavedSetup::setMidiKey(uint32_t midiKey)
{
    const bool changed = midiKey != midiKey_;
    midiKey_ = midiKey;
    persist();
    if (changed) emit midiKeyChanged();
}

void LVSavedSetup::setIcon(const QImage& icon)
{
    iconPng_.clear();
    if (!icon.isNull()) {
        QBuffer buffer(&iconPng_);
        buffer.open(QIODevice::WriteOnly);
        icon.save(&buffer, "PNG");
    }
    iconCache_ = icon;
    iconDecoded_ = true;
    emit iconChanged();
}

QImage LVSavedSetup::icon() const
{
    if (!iconDecoded_) {
        iconDecoded_ = true;
        if (!iconPng_.isEmpty() && !iconCache_.loadFromData(iconPng_, "PNG")) {
            LVLog("Saved setup %s has an icon that is not a PNG image", qPrintable(path_));
        }
    }
    return iconCache_;
}

void LVSavedSetup::snapshotIcon(const QImage& frame)
{
    setIcon(iconFromFrame(frame));
    persist();
}

void LVSavedSetup::duplicateFrom(const LVSavedSetup& other)
{
    encoded_ = other.encoded_;
    otherKeys_ = other.otherKeys_;
    setHasVideoSource(other.hasVideoSource_);
    // The other's PNG bytes as they are: no decode and re-encode.
    iconPng_ = other.iconPng_;
    iconCache_ = other.iconCache_;
    iconDecoded_ = other.iconDecoded_;
    emit iconChanged();
    setMidiKey(other.midiKey_);
}

QString LVSavedSetup::nameProblem(const QString& name)
{
    if (name.isEmpty()) return QStringLiteral("A setup needs a name.");
    if (name.contains(QLatin1Char('/'))) return QStringLiteral("A setup name cannot contain \"/\".");
    if (name.startsWith(QLatin1Char('.'))) return QStringLiteral("A setup name cannot start with \".\".");
    if (name.contains(QChar(0))) return QStringLiteral("A setup name cannot contain a null character.");
    if (QFile::encodeName(name).size() > 255) return QStringLiteral("A setup name can be at most 255 bytes long.");
    return {};
}

QImage LVSavedSetup::iconFromFrame(const QImage& frame)
{
    QImage icon(iconSize, iconSize, QImage::Format_ARGB32_Premultiplied);
    icon.fill(Qt::black);
    if (!frame.isNull()) {
        QPainter painter(&icon);
        painter.setRenderHint(QPainter::SmoothPixmapTransform);
        painter.drawImage(LVUtil::fitRect(QSizeF(frame.size()), QSizeF(iconSize, iconSize)), frame);
    }
    return icon;
}

bool LVSavedSetup::lessThan(const LVSavedSetup& a, const LVSavedSetup& b)
{
    const int order = a.name_.compare(b.name_, Qt::CaseInsensitive);
    return order != 0 ? order < 0 : a.name_ < b.name_;
}
