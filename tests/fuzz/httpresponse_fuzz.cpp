// libFuzzer target for the HTTP response parser: the input is what a server could send. The
// first byte picks how the body is cut into reads, as a socket would deliver it; the rest is
// the response. Nothing may crash, read out of bounds or take body bytes beyond the framing.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "http_parser.h"

using namespace ox::http;

namespace {

void decodeChunks(std::string_view body, size_t piece) {
    ChunkDecoder dec;
    size_t pos = 0;
    while (pos < body.size() && !dec.done()) {
        std::string_view window = body.substr(pos, piece);
        if (dec.inData()) {
            const size_t n = static_cast<size_t>(std::min<uint64_t>(window.size(), dec.dataLeft()));
            dec.tookData(n);
            pos += n;
            continue;
        }
        size_t used = 0;
        if (dec.consume(window, used) != OX_OK) return;
        if (used > window.size()) std::abort();
        pos += used;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const size_t piece = data[0] % 64 + 1;
    std::string_view input(reinterpret_cast<const char*>(data + 1), size - 1);
    const size_t end = findHeadEnd(input.substr(0, kMaxHeadBytes));
    if (end == 0) return 0;
    static ResponseHead head;  // large: keep it off the stack
    for (bool requestWasHead : {false, true}) {
        if (parseResponseHead(input.substr(0, end), requestWasHead, head) != OX_OK) return 0;
        for (uint32_t i = 0; i < head.fieldCount; ++i) {
            const Field& f = head.fields[i];
            if (f.nameOff + f.nameLen >= end || f.valueOff + f.valueLen >= end) std::abort();  // terminated in place
        }
        if (head.reasonOff + head.reasonLen >= end) std::abort();
    }
    findField(input.substr(0, end), head, "content-length");
    if (head.framing == Framing::Chunked) decodeChunks(input.substr(end), piece);
    return 0;
}
