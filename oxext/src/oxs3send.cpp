// The one send cycle of every S3 operation.
#include "oxs3send.h"

#include "ox/status.h"
#include "oxs3connection.h"
#include "oxs3encode.h"
#include "oxs3error.h"
#include "oxs3log.h"
#include "oxs3owned.h"
#include "oxs3text.h"

namespace s3 {
namespace {

struct Outcome {
    OXStatus status;
    bool transient;
};

Outcome openForAttempt(HTConnection http) {
    OXStatus st = openS3Connection(http);
    if (st == OX_HTTP_ALREADY_OPEN) st = OX_OK;
    return {st, st == OX_HTTP_CONNECT_FAILED || isTransient(st)};
}

Outcome runAttempt(OXS3Connection connection, HTConnection http, int number, FunctionRef<OXStatus(Attempt&)> call) {
    const Outcome opened = openForAttempt(http);
    if (opened.status != OX_OK) return opened;
    Attempt attempt{connection, http, number};
    OXStatus st = call(attempt);
    if (st == OX_END_OF_DATA) st = OX_OK;
    return {st, isTransient(st)};
}

void logRetry(Logger_S* logger, const SendCycleOp& op, int item, OXStatus status) {
    if (op.numbered)
        OXS3_LOG(logger, LL_Trace, op.retryText, item, status);
    else
        OXS3_LOG(logger, LL_Trace, op.retryText, status);
}

}  // namespace

bool isTransient(OXStatus status) { return oxHttpIsTransient(status); }

OXStatus sendCycle(OXS3Connection connection, const SendCycleOp& op, FunctionRef<OXStatus(Attempt&)> attempt,
                   HTConnection http, int item) {
    if (!connection) return OX_INVALID_ARGUMENT;
    HTConnection on = http ? http : connection->htConnection;
    Logger_S* logger = connection->oxs3->logger;
    Outcome outcome{OX_OK, false};
    for (int number = 1; number <= kMaxAttempts; ++number) {
        if (number > 1) logRetry(logger, op, item, outcome.status);
        outcome = runAttempt(connection, on, number, attempt);
        if (outcome.status == OX_OK) return OX_OK;
        on->close(on);
        if (!outcome.transient) return outcome.status;
    }
    OXS3_LOG(logger, LL_Debug, U"%hs: Maximum retries exceeded.", op.name);
    return op.afterRetries == AfterRetries::lastStatus ? outcome.status : op.exhaustedStatus;
}

OXStatus sendBuiltRequest(Attempt& attempt, HTTPMethod method, OXDictionary query, OXDictionary headers,
                          int64_t contentLength, const void* body, OXMemSize bodyLength) {
    OXS3Connection connection = attempt.connection;
    TextBuffer queryText(connection->pool);
    OXStatus st = appendQueryString(queryText, query, QueryForm::sent);
    if (st != OX_OK) return st;
    const std::string_view path = view(connection->requestPath);
    return attempt.http->sendRequest(attempt.http, method, path.data(), path.size(), queryText.view().data(),
                                     queryText.size(), headers, contentLength, body, bodyLength, OX_FALSE);
}

OXStatus readAnswer(Attempt& attempt, HTTPStatus& status, std::initializer_list<OXStatus> accepted) {
    HTConnection http = attempt.http;
    OXStatus st = http->readResponse(http, &status);
    if (st != OX_OK) return st;
    if (isTransient(status.message)) return status.message;
    for (OXStatus ok : accepted)
        if (status.message == ok) return OX_OK;
    return errorFromBody(attempt, status);
}

OXStatus readBody(Attempt& attempt, PoolBlock<char>& body, OXMemSize& length) {
    void* data = nullptr;
    length = 0;
    const OXStatus st = attempt.http->readData(attempt.http, attempt.connection->pool, &data, &length);
    body = PoolBlock<char>(attempt.connection->pool, static_cast<char*>(data));
    return st == OX_END_OF_DATA ? OX_OK : st;
}

OXStatus drainBody(Attempt& attempt) {
    PoolBlock<char> body;
    OXMemSize length = 0;
    return readBody(attempt, body, length);
}

OXStatus errorFromBody(Attempt& attempt, const HTTPStatus& status) {
    PoolBlock<char> body;
    OXMemSize length = 0;
    const OXStatus st = readBody(attempt, body, length);
    if (st != OX_OK) return st;
    return s3ErrorResponse(attempt.connection, attempt.http, status, body.get(), length);
}

}  // namespace s3
