// Placeholder until this service is written.
#include "core.h"
#include "services.h"

const Log4QEL_S* oxLogFramework() { return nullptr; }
