// An extension record holding just the services the S3 document parsers and the error mapping
// use, so tests, benchmarks and fuzzers can run them without loading the whole extension.
#pragma once

#include <cstdlib>
#include <string>
#include <string_view>

#include "ox/handle.h"
#include "oxs3.h"
#include "oxs3log.h"

namespace oxtest {

class ParserHost {
public:
    ParserHost() {
        OX_HNDL_S* h = oxHostInit();
        ext_.oxstring = reinterpret_cast<OXStringExt_S*>(load(h, U"oxstring"));
        ext_.oxexml = load(h, U"oxexml");
        ext_.webclient = load(h, U"webclient");
        ext_.oxdictionary = reinterpret_cast<OXDictionaryExt_S*>(load(h, U"oxdictionary"));
        ext_.oxarray = reinterpret_cast<OXArrayExt_S*>(load(h, U"oxarray"));
        if (!ext_.oxstring || !ext_.oxexml || !ext_.webclient || !ext_.oxdictionary || !ext_.oxarray) std::abort();
        ext_.oxinstance = ext_.oxstring->oxinstance;
        constexpr std::u32string_view name = U"App.ox.s3";
        ext_.logger = h->log4qel->GetLogger(reinterpret_cast<const OXChar*>(name.data()), name.size());
        ext_.exth.hndl = h;
        s3::oxs3logger = ext_.logger;
    }
    ~ParserHost() {
        for (void* service : {(void*)ext_.oxarray, (void*)ext_.oxdictionary, (void*)ext_.webclient,
                              (void*)ext_.oxexml, (void*)ext_.oxstring})
            static_cast<OXExtension*>(service)->generic.destroy(service);
    }
    ParserHost(const ParserHost&) = delete;
    ParserHost& operator=(const ParserHost&) = delete;

    OXS3Extension* ext() { return &ext_; }

private:
    static OXExtension* load(OX_HNDL_S* h, std::u32string_view name) {
        return h->loadExtension(h, reinterpret_cast<const OXChar*>(name.data()), name.size(), nullptr);
    }

    OXS3Extension ext_{};
};

}  // namespace oxtest
