// Access control: ACL objects with canned ACLs and grants.
#include "oxs3areas.h"

namespace s3 {

// The ACL object's operations join the record with the access-control area.
void setACLFunctions(OXS3Extension* ext) { ext->createACL = nullptr; }

}  // namespace s3
