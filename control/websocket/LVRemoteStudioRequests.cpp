// The requests a remote panel needs beyond the scene model: the studio's buttons with their
// colours and icons, the button actions, Cut, Clear, swap mode, and Program pictures.
#include "control/websocket/LVRemoteRequests.h"
#include "control/websocket/LVRemoteFields.h"
#include "control/websocket/LVRemoteThumbnails.h"
#include "studio/LVStudio.h"

#include <QHash>
#include <QJsonArray>

using LVRemote::Response;
using LVRemote::isBool;
using LVRemote::isString;
using LVRemote::requireField;

namespace {

QString key(const char* name)
{
    return QString::fromLatin1(name);
}

constexpr int kMinScreenshotSide = 8;
constexpr int kMaxScreenshotSide = 4096;

QString dataUrl(const char* mime, const QByteArray& bytes)
{
    return QStringLiteral("data:%1;base64,%2").arg(key(mime), QString::fromLatin1(bytes.toBase64()));
}

// An optional whole number within [low, high]; false with a failure when it is not one.
bool optionalInteger(const QJsonObject& data, const char* field, int low, int high, std::optional<int>* value, Response* failure)
{
    const QJsonValue given = data.value(key(field));
    if (given.isUndefined() || given.isNull()) return true;
    if (!given.isDouble()) {
        *failure = Response::failure(LVRemote::InvalidRequestFieldType, QStringLiteral("The field `%1` must be a number.").arg(key(field)));
        return false;
    }
    const double number = given.toDouble();
    if (!(number >= low && number <= high)) {
        *failure = Response::failure(LVRemote::RequestFieldOutOfRange,
                                     QStringLiteral("The field `%1` must be from %2 to %3.").arg(key(field)).arg(low).arg(high));
        return false;
    }
    *value = int(number);
    return true;
}

} // namespace

QJsonObject LVRemoteRequests::studioState() const
{
    if (!studio_) return {};
    QJsonArray buttons;
    for (const LVStudioButton* button : studio_->buttonsInGridOrder()) {
        const QByteArray& icon = button->setup()->iconData();
        buttons.append(QJsonObject{
            {key("name"), button->name()},
            {key("uid"), button->uid()},
            {key("state"), qint64(button->state())},
            {key("color"), button->color().name()},
            {key("row"), button->row()},
            {key("col"), button->col()},
            // Changes with the icon, so a panel knows when to fetch it again.
            {key("icon"), icon.isEmpty() ? QString() : QString::number(qHash(icon, 0), 16)},
        });
    }
    return {
        {key("buttons"), buttons},
        {key("previewNames"), QJsonArray::fromStringList(studio_->previewButtonNames())},
        {key("programNames"), QJsonArray::fromStringList(studio_->programButtonNames())},
        {key("swapMode"), studio_->isSwapMode()},
    };
}

Response LVRemoteRequests::vendorButtonAction(const QJsonObject& data)
{
    Response failure;
    LVStudioButton* button = sceneNamed(data, &failure);
    if (!button) return failure;
    const QString action = data.value(key("action")).toString();
    using Action = void (LVStudioButton::*)();
    static const std::pair<const char*, Action> actions[] = {
        {"toggle", &LVStudioButton::doNormalToggle},       {"punch", &LVStudioButton::doOptionToggle},
        {"selectForAir", &LVStudioButton::selectForAir},   {"selectForOffAir", &LVStudioButton::selectForOffAir},
        {"punchToAir", &LVStudioButton::punchToAir},       {"punchToOffAir", &LVStudioButton::punchToOffAir},
    };
    for (const auto& [name, method] : actions) {
        if (action == QLatin1String(name)) {
            (button->*method)();
            return Response::success();
        }
    }
    return Response::failure(LVRemote::InvalidRequestField,
                             QStringLiteral("The field `action` must be one of toggle, punch, selectForAir, selectForOffAir, "
                                            "punchToAir, punchToOffAir."));
}

Response LVRemoteRequests::vendorButtonIcon(const QJsonObject& data)
{
    Response failure;
    LVStudioButton* button = sceneNamed(data, &failure);
    if (!button) return failure;
    const QByteArray& icon = button->setup()->iconData();
    if (icon.isEmpty()) {
        return Response::failure(LVRemote::ResourceNotFound, QStringLiteral("The scene `%1` has no icon.").arg(button->name()));
    }
    return Response::success({{key("imageData"), dataUrl("image/png", icon)}});
}

Response LVRemoteRequests::callVendorRequest(const QJsonObject& data)
{
    Response failure;
    if (!requireField(data, "vendorName", isString, "a string", &failure)) return failure;
    if (!requireField(data, "requestType", isString, "a string", &failure)) return failure;
    const QString vendor = data.value(key("vendorName")).toString();
    const QString type = data.value(key("requestType")).toString();
    if (vendor != QLatin1String(vendorName)) {
        return Response::failure(LVRemote::ResourceNotFound, QStringLiteral("No vendor was found by the name `%1`.").arg(vendor));
    }
    const QJsonValue given = data.value(key("requestData"));
    if (!given.isUndefined() && !given.isNull() && !given.isObject()) {
        return Response::failure(LVRemote::InvalidRequestFieldType, QStringLiteral("The field `requestData` must be an object."));
    }
    const QJsonObject request = given.toObject();
    Response answer;
    if (type == QLatin1String("GetStudioState")) {
        answer = Response::success(studioState());
    } else if (type == QLatin1String("ButtonAction")) {
        answer = vendorButtonAction(request);
    } else if (type == QLatin1String("GetButtonIcon")) {
        answer = vendorButtonIcon(request);
    } else if (type == QLatin1String("Cut")) {
        studio_->doCut();
        answer = Response::success();
    } else if (type == QLatin1String("Clear")) {
        studio_->doClear();
        answer = Response::success();
    } else if (type == QLatin1String("SetSwapMode")) {
        if (!requireField(request, "swapMode", isBool, "a boolean", &answer)) return answer;
        studio_->setSwapMode(request.value(key("swapMode")).toBool());
        scheduleCheck();
        answer = Response::success();
    } else {
        return Response::failure(LVRemote::UnknownRequestType,
                                 QStringLiteral("The vendor `%1` has no request `%2`.").arg(vendor, type));
    }
    if (!answer.ok()) return answer;
    return Response::success({{key("vendorName"), vendor}, {key("requestType"), type}, {key("responseData"), answer.data}});
}

Response LVRemoteRequests::getSourceScreenshot(const QJsonObject& data)
{
    Response failure;
    LVStudioButton* scene = sceneNamed(data.contains(key("sourceUuid"))
                                           ? QJsonObject{{key("sceneUuid"), data.value(key("sourceUuid"))}}
                                           : QJsonObject{{key("sceneName"), data.value(key("sourceName"))}},
                                       &failure);
    if (!scene) return failure;
    if (!requireField(data, "imageFormat", isString, "a string", &failure)) return failure;
    const QString format = data.value(key("imageFormat")).toString().toLower();
    if (format != QLatin1String("jpeg") && format != QLatin1String("jpg") && format != QLatin1String("png")) {
        return Response::failure(LVRemote::InvalidRequestField, QStringLiteral("The image format `%1` is not one of jpeg, jpg, png.").arg(format));
    }
    std::optional<int> width, height, quality;
    if (!optionalInteger(data, "imageWidth", kMinScreenshotSide, kMaxScreenshotSide, &width, &failure) ||
        !optionalInteger(data, "imageHeight", kMinScreenshotSide, kMaxScreenshotSide, &height, &failure) ||
        !optionalInteger(data, "imageCompressionQuality", -1, 100, &quality, &failure)) {
        return failure;
    }
    const auto& program = studio_->mainBus().programButtons();
    const bool onProgram = std::any_of(program.begin(), program.end(), [scene](const auto& b) { return b.get() == scene; });
    if (!onProgram) {
        return Response::failure(LVRemote::InvalidResourceState,
                                 QStringLiteral("Only the scenes on Program can be captured; `%1` is not.").arg(scene->name()));
    }
    const std::shared_ptr<const LVRemoteThumbnails::Picture> picture = thumbnails_ ? thumbnails_->latest() : nullptr;
    if (!picture) return Response::failure(LVRemote::NotReady, QStringLiteral("No Program picture yet; ask again shortly."));
    const bool jpeg = format != QLatin1String("png");
    if (jpeg && !width && !height && (!quality || *quality == -1)) {
        return Response::success({{key("imageData"), dataUrl("image/jpeg", picture->jpeg)}});
    }
    QImage image = picture->image;
    if (width || height) {
        const QSize bound(width.value_or(kMaxScreenshotSide), height.value_or(kMaxScreenshotSide));
        image = image.scaled(image.size().scaled(bound, Qt::KeepAspectRatio), Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    }
    const QByteArray bytes = LVRemoteThumbnails::encode(image, jpeg ? "jpeg" : "png", quality.value_or(-1));
    if (bytes.isEmpty()) return Response::failure(LVRemote::RequestProcessingFailed, QStringLiteral("The picture could not be encoded."));
    return Response::success({{key("imageData"), dataUrl(jpeg ? "image/jpeg" : "image/png", bytes)}});
}
