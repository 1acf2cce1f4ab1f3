// The instance service: type tests on any instance, and the readers that turn configuration
// files and JSON text into dictionaries, arrays and strings. One record serves the whole
// process; the string service hands it out as its oxinstance.
#include "builtin.h"
#include "configfile.h"
#include "instance_internal.h"
#include "object.h"
#include "ox/array.h"
#include "ox/dictionary.h"
#include "ox/string.h"

namespace {

constexpr uint32_t kInstanceSvcOven = OX_OVEN('i', 'n', 's', 't');

OXBoolean isType(const OXInstance* inst, const char* typeName) {
    return inst && inst->isType && typeName && inst->isType(inst, typeName);
}

OXBoolean isU8String(const OXInstance* inst) { return isType(inst, OX_TYPE_U8STRING); }
OXBoolean isString(const OXInstance* inst) { return isType(inst, OX_TYPE_STRING); }
OXBoolean isData(const OXInstance* inst) { return isType(inst, OX_TYPE_DATA); }
OXBoolean isDictionary(const OXInstance* inst) { return isType(inst, OX_TYPE_DICTIONARY); }
OXBoolean isArray(const OXInstance* inst) { return isType(inst, OX_TYPE_ARRAY); }

OXInstanceSvc_S makeInstanceService() {
    OXInstanceSvc_S r{};
    ox::initGeneric(r.generic, kInstanceSvcOven, "oxinstance", ox::keepForever);
    r.isType = isType;
    r.isU8String = isU8String;
    r.isString = isString;
    r.isData = isData;
    r.isDictionary = isDictionary;
    r.isArray = isArray;
    r.readConfigFile = oxConfigReadFile;
    r.parseConfigText = oxConfigParseText;
    r.oxinstjson = oxJsonReader();
    return r;
}

}  // namespace

OXInstanceSvc_S* oxInstanceService() {
    static OXInstanceSvc_S rec = makeInstanceService();
    return &rec;
}
