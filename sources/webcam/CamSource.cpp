#include "sources/webcam/CamSource.h"

#include "core/util/LVLog.h"
#include "render/LVContext.h"
#include "sources/webcam/LVCamConverter.h"

namespace {

const QString kSelectedCamera = QStringLiteral("selectedCamera");
const QString kCamID = QStringLiteral("camID");

// Earlier versions stored "Name [detail]"; the bare name is what matches.
QString strippedCameraName(const QString& stored)
{
    if (!stored.endsWith(QLatin1Char(']'))) return stored;
    const qsizetype bracket = stored.lastIndexOf(QStringLiteral(" ["));
    return bracket >= 0 ? stored.left(bracket) : stored;
}

} // namespace

const LVEffectDescriptor& CamSource::classDescriptor()
{
    static const LVEffectDescriptor descriptor{
        QStringLiteral("CamSource"),
        QStringLiteral("Webcam"),
        LVEffectRole::Source,
        [] { return std::make_unique<CamSource>(); },
        {},
    };
    return descriptor;
}

void LVRegisterWebcamKinds()
{
    LVEffectClasses::registerClass(&CamSource::classDescriptor());
}

CamSource::~CamSource()
{
    destruct();
}

void CamSource::destruct()
{
    setMode(LVModeOff);
}

void CamSource::initWithContext(LVContext* context)
{
    LVEffect::initWithContext(context);
    const auto& list = deviceList();
    if (!list.empty()) {
        setSelectedCamera(list.front());
        return;
    }
    // Said once per run, however many webcam sources are made.
    static bool logged = false;
    if (!logged) LVLog("No camera found: the Webcam source stays black until one is plugged in");
    logged = true;
}

QString CamSource::statusNote() const
{
    return grabber_ || !deviceList().empty() ? QString() : QStringLiteral("No camera found");
}

bool CamSource::initWithCoder(LVKeyedUnarchiver& coder)
{
    if (!LVEffect::initWithCoder(coder)) return false;
    wantedID_ = coder.decodeString(kCamID);
    wantedName_ = strippedCameraName(coder.decodeString(kSelectedCamera));
    lookUpCamera();
    return true;
}

bool CamSource::lookUpCamera()
{
    const auto& list = deviceList();
    seenListGeneration_ = LVCamGrabber::listGeneration();
    auto it = std::find_if(list.begin(), list.end(), [&](const auto& g) { return !wantedID_.isEmpty() && g->uniqueID() == wantedID_; });
    if (it == list.end())
        it = std::find_if(list.begin(), list.end(), [&](const auto& g) { return !wantedName_.isEmpty() && g->displayName() == wantedName_; });
    if (it == list.end()) return false;
    wantedID_.clear();
    wantedName_.clear();
    setSelectedCamera(*it);
    return true;
}

void CamSource::encodeWithCoder(LVKeyedArchiver& coder) const
{
    // The settings panel's choices are not part of the archive: the camera is stored by name
    // and identifier, its forced size in the preferences.
    LVKeyedArchiver base;
    LVEffect::encodeWithCoder(base);
    const QJsonObject& keys = base.object();
    for (auto it = keys.begin(); it != keys.end(); ++it) {
        if (it.key() != QLatin1String(kCameraKey) && it.key() != QLatin1String(kResolutionKey))
            coder.encodeValue(it.key(), it.value());
    }
    // A camera not plugged in stays in the setup.
    coder.encodeString(kSelectedCamera, grabber_ ? grabber_->displayName() : wantedName_);
    coder.encodeString(kCamID, grabber_ ? grabber_->uniqueID() : wantedID_);
}

void CamSource::setSelectedCamera(LVCamGrabber::Ref grabber)
{
    if (grabber) {
        wantedID_.clear();
        wantedName_.clear();
    }
    if (grabber_ && started_) grabber_->stop();
    started_ = false;
    grabber_ = std::move(grabber);
    // Mode 3 deliberately does not start a newly chosen camera.
    if (grabber_ && (mode() == LVModeLive || mode() == LVModePreview)) {
        grabber_->start();
        started_ = true;
    }
    syncParameters();
}

bool CamSource::setMode(int32_t mode)
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

void CamSource::doit()
{
    if (!grabber_ && (!wantedID_.isEmpty() || !wantedName_.isEmpty()) &&
        seenListGeneration_ != LVCamGrabber::listGeneration())
        lookUpCamera();
    if (!grabber_) return;
    std::shared_ptr<const LVCamPicture> picture = grabber_->last();
    if (!picture) return;
    context()->drawPicture(picture->texture(), areaRead());
}

LVParameterList CamSource::effectProperties() const
{
    QStringList cameras;
    QList<int> cameraValues;
    const auto& list = deviceList();
    for (size_t i = 0; i < list.size(); ++i) {
        cameras << list[i]->displayName();
        cameraValues << int(i);
    }
    QStringList sizes{QStringLiteral("Automatic")};
    QList<int> sizeValues{-1};
    if (grabber_) {
        const auto resolutions = grabber_->resolutions();
        for (size_t i = 0; i < resolutions.size(); ++i) {
            sizes << resolutions[i].description;
            sizeValues << int(i);
        }
    }
    return {LVChoiceParameter(QLatin1String(kCameraKey), QStringLiteral("Camera"), 0, cameras, cameraValues),
            LVChoiceParameter(QLatin1String(kResolutionKey), QStringLiteral("Resolution"), -1, sizes, sizeValues)};
}

void CamSource::parameterChanged(const QString& key)
{
    if (syncing_) return;
    const int value = parameterValue(key).toInt();
    if (key == QLatin1String(kCameraKey)) {
        const auto& list = deviceList();
        if (value >= 0 && size_t(value) < list.size() && list[size_t(value)] != grabber_) setSelectedCamera(list[size_t(value)]);
    } else if (key == QLatin1String(kResolutionKey) && grabber_) {
        const auto resolutions = grabber_->resolutions();
        if (value >= 0 && size_t(value) < resolutions.size())
            grabber_->setForceResolution(QSize(resolutions[size_t(value)].width, resolutions[size_t(value)].height));
        else
            grabber_->setForceResolution(std::nullopt);
    }
}

// Keeps the panel's values in step with the chosen camera and its forced size.
void CamSource::syncParameters()
{
    syncing_ = true;
    const auto& list = deviceList();
    const auto found = std::find(list.begin(), list.end(), grabber_);
    if (found != list.end()) setParameterValue(QLatin1String(kCameraKey), int(found - list.begin()));
    int size = -1;
    if (grabber_ && grabber_->forceResolution()) {
        const auto resolutions = grabber_->resolutions();
        for (size_t i = 0; i < resolutions.size() && size < 0; ++i) {
            if (QSize(resolutions[i].width, resolutions[i].height) == *grabber_->forceResolution()) size = int(i);
        }
    }
    setParameterValue(QLatin1String(kResolutionKey), size);
    syncing_ = false;
}
