// The JSON reader "oxinstjson": nlohmann-json's SAX parser drives a builder that makes
// dictionaries, arrays and UTF-8 strings in the caller's pool. Every value is handed to its
// container as soon as it is made and the builder holds only the root, so dropping the root
// releases everything built when the parse fails.
#include <algorithm>
#include <array>
#include <iterator>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

#include "array_internal.h"
#include "builtin.h"
#include "dictionary_internal.h"
#include "instance_internal.h"
#include "ox/owned.hpp"
#include "ox/status.h"
#include "services.h"
#include "string_internal.h"

namespace {

using Json = nlohmann::json;

constexpr size_t kMaxDepth = 256;

// Feeds the text to the parser one byte at a time and records how far it has read, which is
// how the builder finds the source text of a number (the parser hands over only its value).
class TrackingIterator {
public:
    using iterator_category = std::input_iterator_tag;
    using value_type = char;
    using difference_type = std::ptrdiff_t;
    using pointer = const char*;
    using reference = const char&;

    TrackingIterator(const char* at, const char** readTo) : at_(at), readTo_(readTo) {}
    reference operator*() const { return *at_; }
    TrackingIterator& operator++() {
        *readTo_ = ++at_;
        return *this;
    }
    TrackingIterator operator++(int) {
        TrackingIterator before = *this;
        ++*this;
        return before;
    }
    bool operator==(const TrackingIterator& other) const { return at_ == other.at_; }

private:
    const char* at_;
    const char** readTo_;
};

constexpr bool isDigit(char c) { return c >= '0' && c <= '9'; }
constexpr std::string_view kLiterals[] = {"true", "false", "null"};

constexpr bool isStructural(char c) { return std::string_view("[]{}:,").find(c) != std::string_view::npos; }
constexpr bool isNumberChar(char c) { return isDigit(c) || c == '-' || c == '+' || c == '.' || c == 'e' || c == 'E'; }

// An open object or array. The container is borrowed: its parent, or the root, holds it.
struct Frame {
    OXDictionary dict = nullptr;
    OXArray array = nullptr;
    std::string key;  // the name the object's next value goes under
};

// The SAX handler nlohmann-json calls; each callback returns false to stop the parse.
class Builder {
public:
    Builder(OX_POOL_S* pool, std::string_view text) : pool_(pool), text_(text), readTo_(text.data()) {}

    OXStatus run() {
        try {
            const char* begin = text_.data();
            const bool ok = Json::sax_parse(TrackingIterator(begin, &readTo_),
                                            TrackingIterator(begin + text_.size(), &readTo_), this,
                                            nlohmann::detail::input_format_t::json, true, false);
            if (!ok && status_ == OX_OK) status_ = OX_JSON_MALFORMED;
        } catch (...) {  // the parser's own buffers are the only thing that can throw
            status_ = OX_NO_MEMORY;
        }
        if (status_ != OX_OK) root_.reset();
        return status_;
    }

    OXInstance* takeRoot() { return root_.release(); }
    bool hasErrorOffset() const { return errorOffset_ >= 0; }
    int64_t errorOffset() const { return errorOffset_; }

    bool null() { return literal("null"); }
    bool boolean(bool value) { return literal(value ? "true" : "false"); }
    bool number_integer(Json::number_integer_t) { return number(); }
    bool number_unsigned(Json::number_unsigned_t) { return number(); }
    bool number_float(Json::number_float_t, const Json::string_t&) { return number(); }
    bool string(Json::string_t& value) { return scalar(value, OX_STR_COPY); }
    bool binary(Json::binary_t&) { return fail(OX_JSON_MALFORMED); }  // never produced from JSON text
    bool start_object(std::size_t) { return open(true); }
    bool key(Json::string_t& name) {
        frames_[depth_ - 1].key.assign(name);
        return true;
    }
    bool end_object() { return close(); }
    bool start_array(std::size_t) { return open(false); }
    bool end_array() { return close(); }
    bool parse_error(std::size_t position, const std::string& lastToken, const nlohmann::detail::exception& ex) {
        errorOffset_ = static_cast<int64_t>(faultOffset(position, lastToken, ex.what()));
        return fail(OX_JSON_MALFORMED);
    }

private:
    bool fail(OXStatus st) {
        status_ = st;
        return false;
    }

    // position counts the bytes the parser read, the end of the text included. Bytes that form
    // no token (the parser's message then quotes what it read), a misplaced bracket or
    // separator, and a missing end are reported where the reading stopped; a misplaced string,
    // number or literal where it begins.
    size_t faultOffset(size_t position, std::string_view lastToken, std::string_view message) const {
        const size_t last = position > 0 ? position - 1 : 0;
        if (last >= text_.size()) return text_.size();
        const bool noToken = message.find("; last read: '") != std::string_view::npos;
        if (noToken || isStructural(text_[last])) return last;
        return position - tokenLength(position, lastToken);
    }

    // The parser keeps a string's or a number's text alone, but a literal's together with
    // whatever it read before it.
    size_t tokenLength(size_t position, std::string_view lastToken) const {
        const std::string_view read = text_.substr(0, position);
        for (std::string_view word : kLiterals)
            if (read.ends_with(word)) return word.size();
        return std::min(lastToken.size(), position);
    }

    size_t bytesRead() const { return static_cast<size_t>(readTo_ - text_.data()); }

    // The parser has read the number and at most one character past it; numbers end in a digit.
    std::string_view numberText() const {
        size_t end = bytesRead();
        if (end > 0 && !isDigit(text_[end - 1])) --end;
        size_t start = end;
        while (start > 0 && isNumberChar(text_[start - 1])) --start;
        return text_.substr(start, end - start);
    }

    bool number() { return scalar(numberText(), OX_STR_COPY); }

    // The literals' text is static, so their strings refer to it instead of copying.
    bool literal(std::string_view word) { return scalar(word, 0); }

    bool scalar(std::string_view text, uint32_t flags) {
        OXStringExt_S* strings = oxStringService();
        OXU8String* s = nullptr;
        if (OXStatus st = strings->createU8(strings, pool_, text.data(), text.size(), flags, &s); st != OX_OK)
            return fail(st);
        return place(&s->instance);
    }

    // Gives a new value (and the reference its maker handed over) to the open container, or
    // keeps it as the root.
    bool place(OXInstance* value) {
        ox::Owned<OXInstance> held(value);
        if (depth_ == 0) {
            root_ = std::move(held);
            return true;
        }
        Frame& f = frames_[depth_ - 1];
        OXStatus st = f.dict ? f.dict->setValueU8(f.dict, f.key.data(), f.key.size(), value)
                             : f.array->addItem(f.array, value);
        return st == OX_OK || fail(st);
    }

    bool open(bool isObject) {
        if (depth_ == kMaxDepth) {
            errorOffset_ = static_cast<int64_t>(bytesRead()) - 1;  // the bracket just read
            return fail(OX_JSON_TOO_DEEP);
        }
        Frame& f = frames_[depth_];
        f = Frame{};
        OXStatus st = isObject ? oxDictionaryCreate(pool_, OX_DICT_CASE_SENSITIVE, &f.dict)
                               : oxArrayCreate(pool_, 0, &f.array);
        if (st != OX_OK) return fail(st);
        if (!place(f.dict ? &f.dict->instance : &f.array->instance)) return false;
        ++depth_;
        return true;
    }

    bool close() {
        --depth_;
        return true;
    }

    OX_POOL_S* pool_;
    std::string_view text_;
    const char* readTo_;
    OXStatus status_ = OX_OK;
    int64_t errorOffset_ = -1;
    ox::Owned<OXInstance> root_;
    std::array<Frame, kMaxDepth> frames_;
    size_t depth_ = 0;
};

OXStatus parse(OXInstJSON_S*, OX_POOL_S* pool, UTF8CStr text, UTF8ByteLength len, OXInstance** out,
               int64_t* errorOffset) {
    if (!pool || !out || (!text && len)) return OX_INVALID_ARGUMENT;
    Builder builder(pool, text ? std::string_view(text, len) : std::string_view(""));
    if (OXStatus st = builder.run(); st != OX_OK) {
        if (errorOffset && builder.hasErrorOffset()) *errorOffset = builder.errorOffset();
        return st;
    }
    *out = builder.takeRoot();
    return OX_OK;
}

void fillJsonOps(OXInstJSON_S& r) { r.parse = parse; }

}  // namespace

OXInstJSON_S* oxJsonReader() {
    static OXInstJSON_S rec = ox::builtinRecord<OXInstJSON_S>("oxinstjson", fillJsonOps);
    return &rec;
}

OXExtension* oxLoadInstJson(OX_HNDL_S* h, OXJournal*) {
    return ox::loadedRecord<OXInstJSON_S>(h, "oxinstjson", fillJsonOps);
}
