#pragma once
// The remote-control protocol's numbers and message shapes (rpcVersion 1): operation codes,
// event subscription bits, request status codes, close codes, and the authentication answer.
#include <QByteArray>
#include <QJsonObject>
#include <QString>

#include <cstdint>

namespace LVRemote {

inline constexpr int rpcVersion = 1;
inline constexpr const char* protocolVersion = "5.0.0";
inline constexpr const char* jsonSubprotocol = "obswebsocket.json";

enum OpCode : int {
    Hello = 0,
    Identify = 1,
    Identified = 2,
    Reidentify = 3,
    Event = 5,
    Request = 6,
    RequestResponse = 7,
    RequestBatch = 8,
    RequestBatchResponse = 9,
};

enum EventSubscription : uint32_t {
    SubscribeNone = 0,
    SubscribeGeneral = 1u << 0,
    SubscribeConfig = 1u << 1,
    SubscribeScenes = 1u << 2,
    SubscribeInputs = 1u << 3,
    SubscribeTransitions = 1u << 4,
    SubscribeFilters = 1u << 5,
    SubscribeOutputs = 1u << 6,
    SubscribeSceneItems = 1u << 7,
    SubscribeMediaInputs = 1u << 8,
    SubscribeVendors = 1u << 9,
    SubscribeUi = 1u << 10,
    // What a client gets when its Identify names nothing.
    SubscribeAll = (1u << 11) - 1,
};

enum RequestStatus : int {
    StatusUnknown = 0,
    NoError = 10,
    Success = 100,
    MissingRequestType = 203,
    UnknownRequestType = 204,
    GenericError = 205,
    UnsupportedRequestBatchExecutionType = 206,
    NotReady = 207,
    MissingRequestField = 300,
    MissingRequestData = 301,
    InvalidRequestField = 400,
    InvalidRequestFieldType = 401,
    RequestFieldOutOfRange = 402,
    RequestFieldEmpty = 403,
    OutputRunning = 500,
    OutputNotRunning = 501,
    StudioModeNotActive = 506,
    ResourceNotFound = 600,
    InvalidResourceState = 604,
    ResourceCreationFailed = 700,
    ResourceActionFailed = 701,
    RequestProcessingFailed = 702,
    CannotAct = 703,
};

enum CloseCode : int {
    UnknownReason = 4000,
    MessageDecodeError = 4002,
    MissingDataField = 4003,
    InvalidDataFieldType = 4004,
    InvalidDataFieldValue = 4005,
    UnknownOpCode = 4006,
    NotIdentified = 4007,
    AlreadyIdentified = 4008,
    AuthenticationFailed = 4009,
    UnsupportedRpcVersion = 4010,
    SessionInvalidated = 4011,
    UnsupportedFeature = 4012,
};

enum BatchExecutionType : int {
    ExecutionNone = -1,
    SerialRealtime = 0,
    SerialFrame = 1,
    Parallel = 2,
};

// base64(sha256(base64(sha256(password + salt)) + challenge)), as the client sends it.
QByteArray authenticationAnswer(const QString& password, const QByteArray& salt, const QByteArray& challenge);
// 32 random bytes in base64, for salts and challenges.
QByteArray randomToken();

// {"op": op, "d": data} as compact JSON text.
QByteArray message(OpCode op, const QJsonObject& data);

// What one request answers: a status, an optional comment, and data on success.
struct Response {
    int code = Success;
    QString comment;
    QJsonObject data;

    bool ok() const { return code == Success; }
    static Response success(QJsonObject data = {}) { return {Success, {}, std::move(data)}; }
    static Response failure(int code, QString comment) { return {code, std::move(comment), {}}; }
};

// The "requestStatus" object and the whole response body for a request.
QJsonObject statusObject(const Response& response);
QJsonObject responseBody(const QString& requestType, const QJsonValue& requestId, const Response& response);

} // namespace LVRemote
