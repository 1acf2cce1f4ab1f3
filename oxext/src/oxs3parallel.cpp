// The parallel transfer engine's door; the engine itself comes later.
#include "oxs3parallel.h"

namespace s3 {

OXStatus runParallel(const ParallelTransfer& /*transfer*/, bool* taken) {
    *taken = false;  // not parallel: every transfer goes as one request
    return OX_OK;
}

}  // namespace s3
