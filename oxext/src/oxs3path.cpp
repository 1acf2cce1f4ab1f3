// Regions, endpoints, custom regions and S3 locations.
#include "oxs3areas.h"

namespace s3 {

// The region and location operations join the record with the region tables.
void setPathOps(OXS3Extension* ext) {
    ext->regionForName = nullptr;
    ext->regionForNameU8 = nullptr;
    ext->nameForRegion = nullptr;
    ext->titleForRegion = nullptr;
    ext->parseS3PathU8 = nullptr;
    ext->createLocationU8 = nullptr;
    ext->fullNameForRegion = nullptr;
    ext->defaultConfigPath = nullptr;
    ext->addCustomRegion = nullptr;
    ext->removeCustomRegion = nullptr;
    ext->getRegions = nullptr;
    ext->freeRegions = nullptr;
}

// No custom regions are kept between loads until the region tables exist.
OXStatus getCustomRegions(OXS3Extension*) { return OX_OK; }
OXStatus saveCustomRegions(OXS3Extension*) { return OX_OK; }

}  // namespace s3
