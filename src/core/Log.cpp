#include "Log.h"

#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>
#include <syslog.h>
#include <utility>

namespace kestrix::Log {
namespace {

Log::Observer &observer()
{
    static Log::Observer instance;
    return instance;
}

// systemd sets JOURNAL_STREAM when stderr is connected to the journal; writing the line there as
// well as to syslog would show every line twice.
bool stderrIsJournal()
{
    static const bool isJournal = std::getenv("JOURNAL_STREAM") != nullptr;
    return isJournal;
}

void openSyslogOnce()
{
    static std::once_flag opened;
    std::call_once(opened, [] { openlog("kestrix", LOG_PID, LOG_USER); });
}

void emit(int priority, std::string_view text)
{
    openSyslogOnce();
    const int length = static_cast<int>(text.size());
    syslog(priority, "%.*s", length, text.data());
    if (!stderrIsJournal())
        std::fprintf(stderr, "%.*s\n", length, text.data());
    if (observer())
        observer()(text);
}

} // namespace

void write(std::string_view text) { emit(LOG_NOTICE, text); }

bool debugEnabled()
{
    static const bool enabled = [] {
        const char *value = std::getenv("KESTRIX_DEBUG");
        return value != nullptr && *value != '\0' && std::string_view(value) != "0";
    }();
    return enabled;
}

void debug(std::string_view text)
{
    if (debugEnabled())
        emit(LOG_DEBUG, text);
}

void fatal(std::string_view text)
{
    emit(LOG_CRIT, text);
    std::fflush(stderr);
    std::abort();
}

void setObserver(Observer newObserver) { observer() = std::move(newObserver); }

} // namespace kestrix::Log
