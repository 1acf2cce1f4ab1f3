// The S3 stream file: a file-like reader over one object for the host's I/O layer.
#include "oxs3areas.h"

namespace s3 {

void setFileOps(OXS3Extension* ext) { ext->fileCreate = nullptr; }

}  // namespace s3
