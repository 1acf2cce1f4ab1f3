// The load-time journal: statuses a loader reads back, each also logged as its catalogue sentence.
#include <iterator>

#include "core.h"
#include "ox/handle.h"
#include "ox/msg.h"
#include "ox/status.h"

namespace {

constexpr char32_t kJournalLogger[] = U"App.ox.journal";

Logger_S* journalLogger() {
    static Logger_S* logger = oxLogFramework()->GetLogger(reinterpret_cast<const OXChar*>(kJournalLogger),
                                                          std::size(kJournalLogger) - 1);
    return logger;
}

void logStatus(OXStatus status, int severity) {
    Logger_S* logger = journalLogger();
    if (!logger || !logger->logSvcs->IsEnabled(logger, LL_Error)) return;
    char sentence[512];
    oxMessageFormat(status, sentence, sizeof sentence);
    static constexpr char32_t kFormat[] = U"%hs (severity %d)";
    OXChar message[600];
    LoggerRender(message, std::size(message), reinterpret_cast<const OXChar*>(kFormat), sentence, severity);
    logger->logSvcs->LogEvent(logger, LL_Error, 0, 0, 0, nullptr, nullptr, 0, message, 0);
}

}  // namespace

void oxlStatusToJnl(OXJournal* jnl, OXStatus status, int severity) {
    if (jnl) {
        if (jnl->count < OX_JOURNAL_CAPACITY) jnl->entries[jnl->count] = {status, severity};
        ++jnl->count;
    }
    if (status != OX_OK) logStatus(status, severity);
}
