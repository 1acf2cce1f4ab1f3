// What the entry needs from the other areas of the extension: the fillers of their record
// slots, and the set-up and tear-down steps each area owns.
#pragma once

#include "oxs3.h"

namespace s3 {

void setConnectionOps(OXS3Extension* ext);  // oxs3conn.cpp
void setACLFunctions(OXS3Extension* ext);  // oxs3acl.cpp
void setPathOps(OXS3Extension* ext);       // oxs3path.cpp
void setFileOps(OXS3Extension* ext);       // oxs3file.cpp
void setConfigOps(OXS3Extension* ext);     // oxs3conf.cpp

// Decides isEC2Host and ec2Region once per process (oxs3ec2.cpp).
OXStatus initEC2Info(OXS3Extension* ext, OX_POOL_S* pool);

// Loads the saved custom regions into the record's tables, and writes them back (oxs3custom.cpp).
OXStatus getCustomRegions(OXS3Extension* ext);
OXStatus saveCustomRegions(OXS3Extension* ext);

// The credential sources beyond local files and the environment, kept apart so their
// services can join without touching the merge of the others.
// The instance role of an EC2 host (oxs3ec2.cpp): a new record; success with none off EC2 or
// without a role.
OXStatus getS3CredentialsFromEC2Role(OXS3Extension* ext, OX_POOL_S* pool, S3Settings** settings);
// An EKS service account's web identity (oxs3role.cpp): the token file is read and exchanged
// for temporary credentials, a dictionary with "keyId", "accessKey" and "sessionToken". A
// failure only means there are none.
OXStatus getS3CredentialsForEKSServiceAccount(OXS3Extension* ext, OX_POOL_S* pool, const OXU8String* roleArn,
                                              const OXU8String* tokenFilePath, OXDictionary* credentials);
// The web-identity exchange itself (oxs3role.cpp).
OXStatus getEKSServiceAccountCredentials(OXS3Extension* ext, OX_POOL_S* pool, const OXU8String* roleArn,
                                         const OXU8String* token, OXDictionary* credentials);

// The extension's message texts in the host catalogue (oxs3messages.cpp).
OXStatus registerMessages();
void unregisterMessages();

// The entry's own operations (oxs3comm.cpp).
OXStatus oxs3GetReqVersion(OXS3Extension* ext, uint64_t* major, uint64_t* minor, uint64_t* revision);
OXStatus oxs3GetVersion(OXS3Extension* ext, uint64_t* major, uint64_t* minor, uint64_t* revision);
OXStatus oxs3RealDestroy(OXS3Extension* ext);

}  // namespace s3
