/* The logging framework: named loggers in a dot-separated hierarchy ("App.ox.s3" is a child of
 * "App.ox"), levels Trace..Fatal, messages rendered from wide format strings.
 *
 * Configuration comes from the process environment when the host starts:
 *   OXLOG_LEVEL  a default level, and/or per-logger levels, comma separated:
 *                "debug", "App.ox.s3=trace", "warn,App.ox.s3=debug". Level names are
 *                trace, debug, info, warn, error, fatal, off (any case). Default: warn.
 *                A logger without its own level takes the nearest ancestor's.
 *   OXLOG_FILE   where messages go: a file path (appended to), or "stderr" (the default). */
#ifndef OX_LOG_H
#define OX_LOG_H

#include "ox/types.h"

OX_BEGIN_DECLS

typedef enum LoggerLevel {
    LL_Null = 0,
    LL_AllOn = 1,
    LL_Trace = 2,
    LL_Debug = 3,
    LL_Info = 4,
    LL_Warn = 5,
    LL_Error = 6,
    LL_Fatal = 7,
    LL_Off = 8,
    LL_Uninitialized = 9
} LoggerLevel;

struct Logger_S;
typedef struct LoggerServices_S {
    OXBoolean (*IsEnabled)(struct Logger_S* logger, int level);
    /* lineText: the source line as text ("123"); message: rendered wide text, 0-terminated. */
    OXStatus (*LogEvent)(struct Logger_S* logger, int level, int reserved1, int reserved2, int reserved3,
                         const char* lineText, const char* srcPath, size_t srcPathL, const OXChar* message,
                         int reserved4);
} LoggerServices_S;

typedef struct Logger_S {
    const OXChar* name;
    size_t nameL;
    const LoggerServices_S* logSvcs;
    volatile int level;          /* own level, LL_Uninitialized when inherited */
    volatile int ancestorlevel;  /* effective level from the nearest ancestor with one */
    OXBoolean additive;
    OXBoolean immutable;
    const char* desc;
    struct Logger_S* parent;
} Logger_S;

typedef struct Log4QEL_S {
    /* Returns the logger of that name, making it (and its ancestors) on first use; null only
     * when out of memory. Loggers live as long as the process. */
    Logger_S* (*GetLogger)(const OXChar* name, size_t nameL);
    /* Changes a logger's own level at run time (tests, diagnostics). */
    void (*SetLevel)(Logger_S* logger, int level);
} Log4QEL_S;

/* Renders a wide format string into out (capacity outL characters including the terminator).
 * printf conversions; in a wide format "%s" is a wide string and "%hs" a UTF-8 string.
 * Returns the characters written (without the terminator); truncates to fit. */
OX_API size_t LoggerRender(OXChar* out, size_t outL, const OXChar* fmt, ...);

/* The effective level of a logger: its own, else its nearest ancestor's. */
OX_API int oxLoggerEffectiveLevel(const Logger_S* logger);

OX_END_DECLS

#endif
