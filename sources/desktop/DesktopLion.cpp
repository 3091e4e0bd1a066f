#include "sources/desktop/DesktopLion.h"

#include "core/LVDefaults.h"
#include "core/Lumaveil.h"
#include "core/util/LVLog.h"
#include "render/LVContext.h"
#include "sources/desktop/DesktopPlus.h"

#include <QJsonObject>


namespace {

const QString kFullScreen = QStringLiteral("fullScreen");
const QString kResizable = QStringLiteral("resizable");
const QString kShowMouse = QStringLiteral("showMouse");
const QString kFollowMouse = QStringLiteral("followMouse");
const QString kDoNotExceed = QStringLiteral("doNotExceedResolution");

QJsonObject rectToJson(const QRectF& r)
{
    return QJsonObject{{QStringLiteral("x"), r.x()},
                       {QStringLiteral("y"), r.y()},
                       {QStringLiteral("width"), r.width()},
                       {QStringLiteral("height"), r.height()}};
}

QRectF rectFromJson(const QJsonValue& value)
{
    const QJsonObject o = value.toObject();
    return QRectF(o.value(QStringLiteral("x")).toDouble(), o.value(QStringLiteral("y")).toDouble(),
                  o.value(QStringLiteral("width")).toDouble(), o.value(QStringLiteral("height")).toDouble());
}

} // namespace

int32_t LVDesktopFrameRate()
{
    if (const Lumaveil* app = Lumaveil::instance()) return std::max(1, app->frameRate());
    return std::max(1, LVDefaults::standardUserDefaults().valueForKey(QStringLiteral("frameRate")).toInt(15));
}

void LVApplyDesktopGrabberMode(LVDesktopGrabber& grabber, int32_t mode)
{
    if (mode == LVModeOff) {
        grabber.stop();
        return;
    }
    // The frame rate may have changed since the grabber was made.
    grabber.setMinimumFrameTime(std::chrono::nanoseconds(1000000000 / LVDesktopFrameRate()));
    grabber.start();
}

void LVEncodeDesktopParameters(const LVEffect& effect, LVKeyedArchiver& coder, const QStringList& ownKeys)
{
    LVKeyedArchiver base;
    effect.LVEffect::encodeWithCoder(base);
    const QJsonObject& keys = base.object();
    for (auto it = keys.begin(); it != keys.end(); ++it) {
        if (!ownKeys.contains(it.key())) coder.encodeValue(it.key(), it.value());
    }
}

const LVEffectDescriptor& DesktopLion::classDescriptor()
{
    static const LVEffectDescriptor descriptor{
        QStringLiteral("DesktopLion"),
        QStringLiteral("Desktop"),
        LVEffectRole::Source,
        [] { return std::make_unique<DesktopLion>(); },
        {LVChoiceParameter(QLatin1String(kScreenKey), QStringLiteral("Display"), 0, {}, {}),
         LVBoolParameter(kFullScreen, QStringLiteral("Full Screen"), true),
         LVBoolParameter(kResizable, QStringLiteral("Resizable"), true),
         LVBoolParameter(kShowMouse, QStringLiteral("Show Mouse"), false),
         LVBoolParameter(kFollowMouse, QStringLiteral("Follow Mouse"), false),
         LVBoolParameter(kDoNotExceed, QStringLiteral("Do Not Exceed Resolution"), false),
         LVBoolParameter(QLatin1String(kSelectKey), QStringLiteral("Show Viewport"), false)},
    };
    return descriptor;
}

void LVRegisterDesktopKinds()
{
    LVEffectClasses::registerClass(&DesktopLion::classDescriptor());
    LVEffectClasses::registerClass(&DesktopPlus::classDescriptor());
}

DesktopLion::~DesktopLion()
{
    destruct();
}

void DesktopLion::destruct()
{
    releaseScreen();
}

void DesktopLion::initEffectCommon(LVContext* context)
{
    LVEffect::initEffectCommon(context);
    model_.setObserver([this](const QString& key, bool on, bool) { modelChanged(key, on); });
    model_.setScreens(LVDesktopScreenList(&listError_));
}

void DesktopLion::initWithContext(LVContext* context)
{
    LVEffect::initWithContext(context);
    if (!model_.screens().empty()) setScreen(model_.screens().front());
    syncParameters();
}

bool DesktopLion::initWithCoder(LVKeyedUnarchiver& coder)
{
    syncing_ = true;
    const bool ok = LVEffect::initWithCoder(coder);
    syncing_ = false;
    if (!ok) return false;
    archivedScreen_ = coder.decodeString(QLatin1String(kScreenKey));
    archivedRect_ = rectFromJson(coder.decodeValue(QLatin1String(kViewPortRectKey)));
    const auto& list = model_.screens();
    const auto match = std::find_if(list.begin(), list.end(),
                                    [&](const LVScreenRef& s) { return s && s->description() == archivedScreen_; });
    if (match != list.end())
        setScreen(*match);
    else if (!list.empty())
        setScreen(list.front());
    if (viewPort_) viewPort_->setPortRect(archivedRect_);
    if (coder.containsValueForKey(kDoNotExceed)) setDoNotExceedResolution(coder.decodeBool(kDoNotExceed));
    model_.setFullScreen(coder.decodeBool(kFullScreen));
    model_.setResizable(coder.decodeBool(kResizable));
    if (coder.containsValueForKey(kShowMouse)) model_.setShowMouse(coder.decodeBool(kShowMouse));
    if (coder.containsValueForKey(kFollowMouse)) model_.setFollowMouse(coder.decodeBool(kFollowMouse));
    syncParameters();
    return true;
}

void DesktopLion::encodeWithCoder(LVKeyedArchiver& coder) const
{
    LVEncodeDesktopParameters(*this, coder, {QLatin1String(kScreenKey), QLatin1String(kSelectKey)});
    // Without an X server the archived display and rectangle are kept as they came.
    coder.encodeString(QLatin1String(kScreenKey), selectedScreen_ ? selectedScreen_->description() : archivedScreen_);
    coder.encodeBool(kFullScreen, model_.isFullScreen());
    coder.encodeBool(kResizable, model_.isResizable());
    coder.encodeValue(QLatin1String(kViewPortRectKey), rectToJson(viewPort_ ? viewPort_->portRect() : archivedRect_));
    coder.encodeBool(kShowMouse, model_.isShowMouse());
    coder.encodeBool(kFollowMouse, model_.isFollowMouse());
    coder.encodeBool(kDoNotExceed, doNotExceedResolution_);
}

void DesktopLion::releaseScreen()
{
    if (viewPort_) viewPort_->hide();
    viewPort_.reset();
    grabber_.reset();
    drawer_.release(context());
}

void DesktopLion::setSelectedScreen(int index)
{
    const auto& list = model_.screens();
    if (index < 0 || size_t(index) >= list.size() || !list[size_t(index)]) return;
    setScreen(list[size_t(index)]);
    syncParameters();
}

void DesktopLion::setScreen(const LVScreenRef& screen)
{
    releaseScreen();
    selectedScreen_ = screen;
    viewPortShown_ = false;
    if (!screen) return;
    const QSizeF video = context() ? context()->size() : QSizeF(LVGetWidth(), LVGetHeight());
    viewPort_ = std::make_unique<ViewPort>(screen, video, [this](bool finished) { doSelectChange(finished); });
    viewPort_->setDoNotExceedResolution(doNotExceedResolution_);
    QString error;
    grabber_ = LVDesktopGrabber::create(screen, &error);
    if (grabber_) {
        grabber_->setTracksMouse(model_.isShowMouse() || model_.isFollowMouse());
        LVApplyDesktopGrabberMode(*grabber_, mode());
    } else {
        LVLog("Desktop \"%s\": %s", qPrintable(screen->description()), qPrintable(error));
    }
    viewPort_->setPortRect(QRectF(100, 150, video.width(), video.height()));
    model_.setFullScreen(true);
    model_.setResizable(true);
}

void DesktopLion::setGrabRect(const QRectF& rect)
{
    grabRect_ = rect;
    if (!selectedScreen_) return;
    globalGrab_ = LVScreenUtils::toQ4(rect, *selectedScreen_);
    if (grabber_) grabber_->setGrabRect(rect);
}

void DesktopLion::modelChanged(const QString& key, bool on)
{
    if (key == kFullScreen) fullScreenChanged(on);
    else if (key == kResizable) resizableChanged(on);
    else if (grabber_ && (key == kShowMouse || key == kFollowMouse))
        grabber_->setTracksMouse(model_.isShowMouse() || model_.isFollowMouse());
    syncParameters();
}

void DesktopLion::fullScreenChanged(bool on)
{
    if (!selectedScreen_) return;
    if (on) {
        if (viewPort_) viewPort_->hide();
        setGrabRect(QRectF(QPointF(0, 0), QSizeF(selectedScreen_->screen().frame.size())));
        model_.setFollowMouse(false);
    } else if (viewPort_) {
        setGrabRect(viewPort_->portRect());
        if (viewPortShown_) viewPort_->doit();
    }
}

void DesktopLion::resizableChanged(bool on)
{
    if (!on) {
        const QSizeF video = context() ? context()->size() : QSizeF(LVGetWidth(), LVGetHeight());
        setGrabRect(QRectF(grabRect_.topLeft(), video));
    }
    if (viewPort_) viewPort_->setResizable(on);
}

bool DesktopLion::doNotExceedResolution() const
{
    return doNotExceedResolution_;
}

void DesktopLion::setDoNotExceedResolution(bool on)
{
    doNotExceedResolution_ = on;
    if (!viewPort_) return;
    viewPort_->setDoNotExceedResolution(on);
    if (!model_.isFullScreen()) setGrabRect(viewPort_->portRect());
}

void DesktopLion::doSelectStart(int value)
{
    viewPortShown_ = value != 0;
    if (!viewPort_) return;
    if (viewPortShown_)
        viewPort_->doit();
    else
        viewPort_->hide();
}

void DesktopLion::doSelectChange(bool)
{
    if (viewPort_) setGrabRect(viewPort_->portRect());
}

bool DesktopLion::setMode(int32_t mode)
{
    if (!LVEffect::setMode(mode)) return false;
    if (grabber_) LVApplyDesktopGrabberMode(*grabber_, mode);
    return true;
}

QString DesktopLion::message() const
{
    if (model_.screens().empty()) return listError_;
    return grabber_ ? grabber_->slowPathMessage() : QString();
}

void DesktopLion::fallBackToMainScreen()
{
    LVLog("Display \"%s\" is gone: capturing \"Main screen\" instead", qPrintable(screen()));
    model_.setScreens(LVDesktopScreenList(&listError_));
    const auto& list = model_.screens();
    if (list.size() > 1)
        setScreen(list[1]);
    else
        releaseScreen();
    syncParameters();
}

void DesktopLion::followMouse()
{
    const QPoint location = grabber_->mouse().location;
    const QRect frame = selectedScreen_->screen().frame;
    QRectF r = grabRect_;
    // Root pixels (y down) to the display's own coordinates (y up), then centred and kept inside.
    r.moveTo(location.x() - frame.x() - r.width() / 2, frame.height() - (location.y() - frame.y()) - r.height() / 2);
    if (r.left() < 0) r.moveLeft(0);
    if (r.right() > frame.width()) r.moveRight(frame.width());
    if (r.top() < 0) r.moveTop(0);
    if (r.bottom() > frame.height()) r.moveBottom(frame.height());
    if (r != grabRect_) setGrabRect(r);
}

void DesktopLion::doit()
{
    if (!grabber_ || !context()) return;
    if (grabber_->displayLost()) {
        fallBackToMainScreen();
        if (!grabber_) return;
    }
    if (model_.isFollowMouse() && !model_.isFullScreen()) followMouse();
    drawer_.drawLatest(*context(), *grabber_, model_.isShowMouse() && !willShowMouse());
}

LVParameterList DesktopLion::effectProperties() const
{
    LVParameterList parameters = descriptor().parameters;
    const QStringList labels = LVScreenDescriptions(model_.screens());
    QList<int> values;
    for (int i = 0; i < labels.size(); ++i) values << i;
    parameters.front().choiceLabels = labels;
    parameters.front().choiceValues = values;
    return parameters;
}

void DesktopLion::parameterChanged(const QString& key)
{
    if (syncing_) return;
    const QVariant value = parameterValue(key);
    if (key == QLatin1String(kScreenKey)) setSelectedScreen(value.toInt());
    else if (key == kFullScreen) model_.setFullScreen(value.toBool());
    else if (key == kResizable) model_.setResizable(value.toBool());
    else if (key == kShowMouse) model_.setShowMouse(value.toBool());
    else if (key == kFollowMouse) model_.setFollowMouse(value.toBool());
    else if (key == kDoNotExceed) setDoNotExceedResolution(value.toBool());
    else if (key == QLatin1String(kSelectKey)) doSelectStart(value.toBool() ? 1 : 0);
    syncParameters();
}

void DesktopLion::syncParameters()
{
    if (syncing_) return;
    syncing_ = true;
    const auto& list = model_.screens();
    const auto found = std::find(list.begin(), list.end(), selectedScreen_);
    if (found != list.end()) setParameterValue(QLatin1String(kScreenKey), int(found - list.begin()));
    setParameterValue(kFullScreen, model_.isFullScreen());
    setParameterValue(kResizable, model_.isResizable());
    setParameterValue(kShowMouse, model_.isShowMouse());
    setParameterValue(kFollowMouse, model_.isFollowMouse());
    setParameterValue(kDoNotExceed, doNotExceedResolution_);
    setParameterValue(QLatin1String(kSelectKey), viewPortShown_);
    syncing_ = false;
}
