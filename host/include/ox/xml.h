/* The XML service "oxexml": an event (callback) parser, and the escaping used to write XML.
 *
 * A parser runs one document at a time through a record of callbacks. The document may be
 * given in any number of pieces; events are delivered as soon as their bytes have arrived, so
 * character data may come in several calls for one run of text. Callbacks always receive
 * UTF-8 with explicit lengths; character data is not 0-terminated.
 *
 * The parser is hardened for documents from the network: it never reads an external entity
 * or an external DTD (a reference to an external entity fails the parse), and entity expansion
 * is capped, so a "billion laughs" document fails as malformed instead of exhausting memory.
 * Every byte the parser allocates comes from its pool. */
#ifndef OX_XML_H
#define OX_XML_H

#include "ox/pool.h"
#include "ox/string.h"
#include "ox/types.h"

OX_BEGIN_DECLS

struct OXJournal;

typedef struct XMLAttribute {
    UTF8CStr name;
    UTF8ByteLength nameL;
    UTF8CStr value; /* entities and character references already replaced */
    UTF8ByteLength valueL;
} XMLAttribute;

/* What a document parser wants to hear. Any slot may be null. Each callback returns 0 to go on;
 * anything else stops the parse at once, and that status is what parse returns. The
 * parser passes `context` to every callback, or, when it is null, the XMLParseCB record itself
 * (so a record that begins with its XMLParseCB gets itself back). */
typedef struct XMLParseCB {
    OXStatus (*charData)(void* ctx, UTF8CStr text, UTF8ByteLength len);
    OXStatus (*comment)(void* ctx, UTF8CStr text, UTF8ByteLength len);
    OXStatus (*docEnd)(void* ctx);   /* after the final piece of a well-formed document */
    OXStatus (*docStart)(void* ctx); /* before the first event of a document */
    /* Not called for an element whose start had isEmpty set. */
    OXStatus (*elemEnd)(void* ctx, UTF8CStr name, UTF8ByteLength nameL);
    /* isEmpty: the element was written as an empty-element tag ("<a/>"); no elemEnd follows.
     * "<a></a>" is not empty in this sense and gets its elemEnd. Attribute records are valid
     * only during the call. */
    OXStatus (*elemStart)(void* ctx, UTF8CStr name, UTF8ByteLength nameL, const XMLAttribute* attrs,
                          size_t attrCount, OXBoolean isEmpty);
    /* Reserved: a non-validating parser has no ignorable white space; all of it is charData. */
    OXStatus (*ignoreSpace)(void* ctx, UTF8CStr text, UTF8ByteLength len);
    OXStatus (*newStream)(void* ctx); /* reserved, never called */
    OXStatus (*pi)(void* ctx, UTF8CStr target, UTF8ByteLength targetL, UTF8CStr data, UTF8ByteLength dataL);
    /* standalone: -1 when the declaration does not say, 0 for "no", 1 for "yes". encoding
     * null when not declared. */
    OXStatus (*xmlDecl)(void* ctx, UTF8CStr version, UTF8ByteLength versionL, UTF8CStr encoding,
                        UTF8ByteLength encodingL, int standalone);
    /* The DOCTYPE's name and its system and public identifiers (null when absent). */
    OXStatus (*docTypeDecl)(void* ctx, UTF8CStr name, UTF8ByteLength nameL, UTF8CStr systemId,
                            UTF8ByteLength systemIdL, UTF8CStr publicId, UTF8ByteLength publicIdL);
    void* context;
} XMLParseCB;

typedef struct XMLCreateParms {
    /* Encodings. Documents are read in the encoding they declare (UTF-8 when they declare
     * none) and callbacks always receive UTF-8, so docCEI and defCEI are not interpreted;
     * a cbCEI of NLS_CEI_UTF32 is refused with OX_NOT_SUPPORTED. */
    NLScei docCEI;
    NLScei defCEI;
    NLScei cbCEI;
    UTF8CStr base;          /* base URI, kept for the base operation; may be null */
    UTF8ByteLength baseL;
    uint32_t flags;         /* reserved; any value is accepted */
    OX_POOL_S* usePool;     /* required: the parser and everything it allocates */
    struct OXJournal* jnl;  /* creation failures are journalled here when given */
    const XMLParseCB* callBacks; /* required; must outlive the parser */
    void* stream;           /* reserved: must be null (documents are given to parse) */
    void* xslStream;        /* stylesheets are not supported: must be null */
    UTF8CStr xslBase;
    UTF8ByteLength xslBaseL;
} XMLCreateParms;

typedef struct XMLParser_S XMLParser_S;
struct XMLParser_S {
    OXGeneric generic; /* destroy frees the parser */

    /* Forgets the document so far; the next parse starts a new one with the same callbacks. */
    OXStatus (*reset)(XMLParser_S* p);
    /* Parses the next piece; isFinal marks the last one. Returns 0 when the piece was taken
     * (for the final piece: the whole document was well formed; never OX_END_OF_DATA),
     * OX_XML_MALFORMED with the fault's position in line and column, OX_NO_MEMORY, or the
     * status a callback stopped the parse with. Until reset, every further parse returns the
     * same failure again, OX_XML_STOPPED after a stop, and OX_INVALID_ARGUMENT after the final
     * piece of a good document (or when called from a callback). */
    OXStatus (*parse)(XMLParser_S* p, UTF8CStr bytes, UTF8ByteLength len, OXBoolean isFinal);
    /* The base given at creation (borrowed, "" when none). */
    OXStatus (*base)(XMLParser_S* p, UTF8CStr* base, UTF8ByteLength* baseL);
    /* 1-based position of the current event or, after a failure, of the fault. Columns count
     * characters. */
    uint64_t (*column)(XMLParser_S* p);
    uint64_t (*line)(XMLParser_S* p);
    /* The open elements as "/a/b/c" ("/" outside the root), borrowed until the next parse or
     * reset. Inside elemStart and elemEnd it ends with that element. */
    OXStatus (*path)(XMLParser_S* p, UTF8CStr* path, UTF8ByteLength* pathL);

    /* Escaping for writing XML. Element text: & < > and carriage return (as "&#13;", which
     * a reader would otherwise turn into a line feed). Attribute values, for either quote:
     * also " ' tab and line feed. Other bytes are copied as they are. The results are new
     * UTF-8 strings in pool (the parser's pool when null). */
    OXStatus (*escAttrVal)(XMLParser_S* p, OX_POOL_S* pool, UTF8CStr text, UTF8ByteLength len, OXU8String** out);
    OXStatus (*escElemVal)(XMLParser_S* p, OX_POOL_S* pool, UTF8CStr text, UTF8ByteLength len, OXU8String** out);
    /* The same into a caller buffer (no terminator written). *outL receives the escaped
     * length; when it exceeds bufL the status is OX_BUFFER_TOO_SMALL and buf is untouched. */
    OXStatus (*escAttrValInBuf)(XMLParser_S* p, UTF8CStr text, UTF8ByteLength len, char* buf, UTF8ByteLength bufL,
                                UTF8ByteLength* outL);
    OXStatus (*escElemValInBuf)(XMLParser_S* p, UTF8CStr text, UTF8ByteLength len, char* buf, UTF8ByteLength bufL,
                                UTF8ByteLength* outL);
};

typedef struct OXXMLExt_S {
    OXExtension exth;
    /* OX_INVALID_ARGUMENT without a pool or callbacks, OX_NOT_SUPPORTED for a stream, a
     * stylesheet or UTF-32 callbacks, OX_NO_MEMORY. */
    OXStatus (*create)(struct OXXMLExt_S* ext, const XMLCreateParms* parms, XMLParser_S** out);
} OXXMLExt_S;

OX_END_DECLS

#endif
