#include "sources/desktop/DesktopPlus.h"

#include "core/util/LVLog.h"
#include "render/LVContext.h"
#include "sources/desktop/DesktopLion.h"

namespace {

const QString kFilter = QStringLiteral("filter");
const QString kWindow = QStringLiteral("window");
const QString kWindowClass = QStringLiteral("windowClass");
const QString kWindowTitle = QStringLiteral("windowTitle");
const QString kCropLeft = QStringLiteral("cropLeft");
const QString kCropTop = QStringLiteral("cropTop");
const QString kCropRight = QStringLiteral("cropRight");
const QString kCropBottom = QStringLiteral("cropBottom");
const QString kShowMouse = QStringLiteral("showMouse");

} // namespace

const LVEffectDescriptor& DesktopPlus::classDescriptor()
{
    static const LVEffectDescriptor descriptor{
        QStringLiteral("DesktopPlus"),
        QStringLiteral("Desktop+"),
        LVEffectRole::Source,
        [] { return std::make_unique<DesktopPlus>(); },
        {LVTextParameter(kFilter, QStringLiteral("Filter"), QString()),
         LVChoiceParameter(kWindow, QStringLiteral("Window"), -1, {}, {}),
         LVIntegerParameter(kCropLeft, QStringLiteral("Crop Left"), 0, 0, 8192),
         LVIntegerParameter(kCropTop, QStringLiteral("Crop Top"), 0, 0, 8192),
         LVIntegerParameter(kCropRight, QStringLiteral("Crop Right"), 0, 0, 8192),
         LVIntegerParameter(kCropBottom, QStringLiteral("Crop Bottom"), 0, 0, 8192),
         LVBoolParameter(kShowMouse, QStringLiteral("Show Mouse"), false)},
    };
    return descriptor;
}

DesktopPlus::~DesktopPlus()
{
    destruct();
}

void DesktopPlus::destruct()
{
    grabber_.reset();
    drawer_.release(context());
}

void DesktopPlus::initEffectCommon(LVContext* context)
{
    LVEffect::initEffectCommon(context);
    ensureGrabber();
}

void DesktopPlus::initWithContext(LVContext* context)
{
    LVEffect::initWithContext(context);
    refreshWindows();
}

bool DesktopPlus::initWithCoder(LVKeyedUnarchiver& coder)
{
    syncing_ = true;
    const bool ok = LVEffect::initWithCoder(coder);
    syncing_ = false;
    if (!ok) return false;
    chosen_.wmClass = coder.decodeString(kWindowClass);
    chosen_.title = coder.decodeString(kWindowTitle);
    if (grabber_) grabber_->setTracksMouse(parameterValue(kShowMouse).toBool());
    refreshWindows();
    findChosenAgain();
    return true;
}

void DesktopPlus::encodeWithCoder(LVKeyedArchiver& coder) const
{
    // The window's number means nothing in another session: it is found again by class and title.
    LVEncodeDesktopParameters(*this, coder, {kWindow});
    coder.encodeString(kWindowClass, chosen_.wmClass);
    coder.encodeString(kWindowTitle, chosen_.title);
}

void DesktopPlus::ensureGrabber()
{
    if (grabber_) return;
    std::unique_ptr<LVX11Display> x = LVX11Display::open(nullptr);
    if (!x) {
        // Says why once, like the "Desktop" source.
        LVDesktopScreenList(nullptr);
        return;
    }
    // A window may sit anywhere on the root: the grabber's display is the whole root.
    const LVDisplayInfo root{QStringLiteral("root"), QString(), QRect(0, 0, x->rootWidth(), x->rootHeight()), true};
    QString error;
    grabber_ = LVDesktopGrabber::create(LVScreen::screenWithScreen(root, x->rootHeight()), &error);
    if (!grabber_) {
        LVLog("Desktop+: %s", qPrintable(error));
        return;
    }
    LVApplyDesktopGrabberMode(*grabber_, mode());
}

QString DesktopPlus::windowLabel(const LVWindowInfo& window)
{
    return window.title.isEmpty() ? window.wmClass : QStringLiteral("%1 — %2").arg(window.wmClass, window.title);
}

bool DesktopPlus::passesFilter(const LVWindowInfo& window, const QString& filter)
{
    const QString f = filter.trimmed();
    return f.isEmpty() || window.wmClass.contains(f, Qt::CaseInsensitive) || window.title.contains(f, Qt::CaseInsensitive);
}

void DesktopPlus::refreshWindows()
{
    windows_.clear();
    std::unique_ptr<LVX11Display> x = LVX11Display::open(nullptr);
    if (!x) return;
    const QString filter = parameterValue(kFilter).toString();
    for (const LVWindowInfo& window : x->windows()) {
        if (passesFilter(window, filter)) windows_.push_back(window);
    }
    syncWindowChoice();
}

void DesktopPlus::chooseWindow(int index)
{
    if (index < 0 || size_t(index) >= windows_.size()) return;
    chosen_ = windows_[size_t(index)];
    if (grabber_) grabber_->setWindow(chosen_, crop());
    syncWindowChoice();
}

void DesktopPlus::findChosenAgain()
{
    const int found = LVFindWindow(windows_, chosen_.wmClass, chosen_.title);
    if (found >= 0) chooseWindow(found);
}

QMargins DesktopPlus::crop() const
{
    return QMargins(parameterValue(kCropLeft).toInt(), parameterValue(kCropTop).toInt(), parameterValue(kCropRight).toInt(),
                    parameterValue(kCropBottom).toInt());
}

bool DesktopPlus::setMode(int32_t mode)
{
    if (!LVEffect::setMode(mode)) return false;
    if (grabber_) LVApplyDesktopGrabberMode(*grabber_, mode);
    return true;
}

void DesktopPlus::doit()
{
    if (!grabber_ || !context() || chosen_.id == 0) return;
    drawer_.drawLatest(*context(), *grabber_, parameterValue(kShowMouse).toBool());
}

LVParameterList DesktopPlus::effectProperties() const
{
    LVParameterList parameters = descriptor().parameters;
    for (LVParameter& parameter : parameters) {
        if (parameter.key != kWindow) continue;
        for (size_t i = 0; i < windows_.size(); ++i) {
            parameter.choiceLabels << windowLabel(windows_[i]);
            parameter.choiceValues << int(i);
        }
    }
    return parameters;
}

void DesktopPlus::parameterChanged(const QString& key)
{
    if (syncing_) return;
    if (key == kFilter) {
        refreshWindows();
    } else if (key == kWindow) {
        chooseWindow(parameterValue(kWindow).toInt());
    } else if (key == kShowMouse) {
        if (grabber_) grabber_->setTracksMouse(parameterValue(kShowMouse).toBool());
    } else if (key.startsWith(QLatin1String("crop"))) {
        if (grabber_ && chosen_.id) grabber_->setWindow(chosen_, crop());
    }
}

void DesktopPlus::syncWindowChoice()
{
    syncing_ = true;
    const auto it = std::find_if(windows_.begin(), windows_.end(), [&](const LVWindowInfo& w) { return w.id == chosen_.id; });
    setParameterValue(kWindow, it != windows_.end() ? int(it - windows_.begin()) : -1);
    syncing_ = false;
}
