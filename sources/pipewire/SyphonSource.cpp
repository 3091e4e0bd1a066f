#include "sources/pipewire/SyphonSource.h"

#include "core/util/LVUtil.h"
#include "render/LVContext.h"
#include "sources/pipewire/LVPipeWireSources.h"
#include "sources/webcam/LVCamConverter.h"

namespace {

const QString kServerName = QStringLiteral("serverName");
const QString kServerDescription = QStringLiteral("serverDescription");

} // namespace

const LVEffectDescriptor& SyphonSource::classDescriptor()
{
    static const LVEffectDescriptor descriptor{
        QStringLiteral("SyphonSource"),
        QStringLiteral("PipeWire"),
        LVEffectRole::Source,
        [] { return std::make_unique<SyphonSource>(); },
        {},
    };
    return descriptor;
}

void LVRegisterPipeWireKinds()
{
    LVEffectClasses::registerClass(&SyphonSource::classDescriptor());
}

SyphonSource::~SyphonSource()
{
    destruct();
}

void SyphonSource::destruct()
{
    setMode(LVModeOff);
    grabber_.reset();
}

void SyphonSource::initWithContext(LVContext* context)
{
    LVEffect::initWithContext(context);
    syncParameters();
}

bool SyphonSource::initWithCoder(LVKeyedUnarchiver& coder)
{
    if (!LVEffect::initWithCoder(coder)) return false;
    const QString name = coder.decodeString(kServerName);
    if (!name.isEmpty()) connectTo(name, coder.decodeString(kServerDescription));
    return true;
}

void SyphonSource::encodeWithCoder(LVKeyedArchiver& coder) const
{
    // The panel's index means nothing in another session: the node is stored by name.
    LVKeyedArchiver base;
    LVEffect::encodeWithCoder(base);
    const QJsonObject& keys = base.object();
    for (auto it = keys.begin(); it != keys.end(); ++it) {
        if (it.key() != QLatin1String(kServerKey)) coder.encodeValue(it.key(), it.value());
    }
    if (serverName_.isEmpty()) return;
    coder.encodeString(kServerName, serverName_);
    coder.encodeString(kServerDescription, serverDescription_);
}

void SyphonSource::selectServer(const LVPipeWireNode& node)
{
    connectTo(node.name, node.description);
}

void SyphonSource::connectTo(const QString& name, const QString& description)
{
    if (grabber_ && started_) grabber_->stop();
    started_ = false;
    grabber_.reset();
    serverName_ = name;
    serverDescription_ = description.isEmpty() ? name : description;
    if (!name.isEmpty()) grabber_ = LVPipeWireSources::grabberFor(name, serverDescription_);
    if (grabber_ && (mode() == LVModeLive || mode() == LVModePreview)) {
        grabber_->start();
        started_ = true;
    }
    syncParameters();
}

bool SyphonSource::setMode(int32_t mode)
{
    const int32_t old = this->mode();
    if (!LVEffect::setMode(mode)) return false;
    if (!grabber_) return true;
    if (mode >= LVModeLive && mode <= LVModeTransition && old == LVModeOff && !started_) {
        grabber_->start();
        started_ = true;
    } else if (mode == LVModeOff && started_) {
        grabber_->stop();
        started_ = false;
    }
    return true;
}

void SyphonSource::doit()
{
    if (seenListGeneration_ != LVPipeWireSources::listGeneration()) syncParameters();
    if (!grabber_) return;
    std::shared_ptr<const LVCamPicture> picture = grabber_->last();
    if (!picture) return;
    const QSizeF size(picture->width(), picture->height());
    context()->drawTexture(picture->texture(), LVUtil::fitRect(size, context()->size()), QRectF(QPointF(0, 0), size));
}

LVParameterList SyphonSource::effectProperties() const
{
    QStringList names;
    QList<int> values;
    const auto& nodes = LVPipeWireSources::nodes();
    for (size_t i = 0; i < nodes.size(); ++i) {
        names << nodes[i].description;
        values << int(i);
    }
    return {LVChoiceParameter(QLatin1String(kServerKey), QStringLiteral("Node"), -1, names, values)};
}

QString SyphonSource::statusNote() const
{
    const auto& nodes = LVPipeWireSources::nodes();
    if (!serverName_.isEmpty()) {
        const bool here = std::any_of(nodes.begin(), nodes.end(), [&](const LVPipeWireNode& n) { return n.name == serverName_; });
        return here ? QString() : QStringLiteral("Waiting for \"%1\"").arg(serverDescription_);
    }
    return nodes.empty() ? QStringLiteral("No PipeWire video node found") : QString();
}

void SyphonSource::parameterChanged(const QString& key)
{
    if (syncing_ || key != QLatin1String(kServerKey)) return;
    const int value = parameterValue(key).toInt();
    const auto& nodes = LVPipeWireSources::nodes();
    if (value < 0 || size_t(value) >= nodes.size() || nodes[size_t(value)].name == serverName_) return;
    selectServer(nodes[size_t(value)]);
}

// Keeps the panel's choice on the chosen node wherever it moved in the list.
void SyphonSource::syncParameters()
{
    syncing_ = true;
    const auto& nodes = LVPipeWireSources::nodes();
    seenListGeneration_ = LVPipeWireSources::listGeneration();
    const auto found = std::find_if(nodes.begin(), nodes.end(), [&](const LVPipeWireNode& n) { return n.name == serverName_; });
    setParameterValue(QLatin1String(kServerKey), found != nodes.end() ? int(found - nodes.begin()) : -1);
    syncing_ = false;
}
