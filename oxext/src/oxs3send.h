// The send cycle every S3 operation runs its request through: open or reuse the HTTP
// connection, build, sign, send and read in the operation's attempt callback, retry only the
// failures a new attempt can cure, at most kMaxAttempts times. Operations differ only in their
// callbacks, their retry texts and what they return once the attempts are used up.
//
//   constexpr SendCycleOp kDeleteBucket = {"oxs3DeleteBucket",
//       U"oxs3DeleteBucket: Request failed with result 0x%x. Retrying."};
//   OXStatus st = sendCycle(conn, kDeleteBucket, [&](Attempt& a) { return deleteOnce(a, bucket); });
#pragma once

#include <initializer_list>
#include <memory>
#include <type_traits>
#include <utility>

#include "ox/htconnection.h"
#include "oxs3.h"
#include "oxs3owned.h"

namespace s3 {

inline constexpr int kMaxAttempts = 3;

// A callable borrowed for the length of a call: no allocation, nothing copied.
template <class Signature>
class FunctionRef;

template <class R, class... Args>
class FunctionRef<R(Args...)> {
public:
    using Function = R (*)(Args...);

    FunctionRef(Function function)  // NOLINT: converts like a function pointer does
        : target_{.function = function}, call_([](Target t, Args... args) -> R {
              return t.function(std::forward<Args>(args)...);
          }) {}

    template <class F, class = std::enable_if_t<!std::is_same_v<std::decay_t<F>, FunctionRef> &&
                                                 !std::is_pointer_v<std::decay_t<F>>>>
    FunctionRef(F&& f)  // NOLINT
        : target_{.object = const_cast<void*>(static_cast<const void*>(std::addressof(f)))},
          call_([](Target t, Args... args) -> R {
              return (*static_cast<std::remove_reference_t<F>*>(t.object))(std::forward<Args>(args)...);
          }) {}

    R operator()(Args... args) const { return call_(target_, std::forward<Args>(args)...); }

private:
    union Target {
        void* object;
        Function function;
    };
    Target target_;
    R (*call_)(Target, Args...);
};

// One attempt: the HTTP connection is open; the callback builds and signs the request, sends
// it and reads the answer.
struct Attempt {
    OXS3Connection connection;
    HTConnection http;
    int number;  // 1 for the first
};

enum class AfterRetries : uint8_t {
    lastStatus,   // the status of the last transient failure
    fixedStatus,  // SendCycleOp::exhaustedStatus
};

struct SendCycleOp {
    const char* name;           // in "%s: Maximum retries exceeded."
    const char32_t* retryText;  // logged before each new attempt with the failure's status ...
    bool numbered = false;      // ... after the item number (a part, block or thread) when set
    AfterRetries afterRetries = AfterRetries::lastStatus;
    OXStatus exhaustedStatus = OX_OK;
};

// The failures a new attempt can cure; opening adds a connection that could not be made.
bool isTransient(OXStatus status);

// Runs the attempts on http (null: the connection's own). A failed attempt closes the HTTP
// connection; a body that ends with OX_END_OF_DATA has succeeded.
OXStatus sendCycle(OXS3Connection connection, const SendCycleOp& op, FunctionRef<OXStatus(Attempt&)> attempt,
                   HTConnection http = nullptr, int item = 0);

// Sends the request last built on the connection (its requestPath) with the query and headers.
OXStatus sendBuiltRequest(Attempt& attempt, HTTPMethod method, OXDictionary query, OXDictionary headers,
                          int64_t contentLength, const void* body, OXMemSize bodyLength);

// Reads the answer's head. A transient answer (500 or 503 without a body) is returned as its
// status so the cycle tries again; an answer in accepted is OX_OK with status filled; any other
// answer's body goes to s3ErrorResponse, whose status is returned.
OXStatus readAnswer(Attempt& attempt, HTTPStatus& status, std::initializer_list<OXStatus> accepted);

// The whole body of the answer just read, in the connection's pool (length 0 when none).
OXStatus readBody(Attempt& attempt, PoolBlock<char>& body, OXMemSize& length);

// Reads and drops the rest of the answer's body, so the connection can serve the next request.
OXStatus drainBody(Attempt& attempt);

// Reads the body of an error answer and maps it (s3ErrorResponse); its status is returned.
OXStatus errorFromBody(Attempt& attempt, const HTTPStatus& status);

}  // namespace s3
