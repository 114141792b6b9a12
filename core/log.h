/// The log of the service. Where its lines go is settled by the log configuration alone.
#pragma once

#include <log4cpp/Category.hh>
#include <log4cpp/Priority.hh>

/// Reads the log configuration, once. Where that fails, one line on standard error names the
/// file and the reason, and the log goes to standard error. Call before any thread is started.
void configure_log();

/// The category of every line. Safe on all threads.
log4cpp::Category& log_category();

/// Never defined and never called: lets the compiler check a line's format.
int check_log_format(const char* format, ...) __attribute__((format(printf, 1, 2)));

/// Logs one line at INFO, with the place where it was logged behind it. Safe on all threads.
/// `format` is a printf format in one literal.
// NOLINTBEGIN(cppcoreguidelines-macro-usage): only a macro knows the line that it stands in.
#define LOG_PLACE_FORMAT "\n --[%s:%u]"
#define LOG_PLACE __FILE__, static_cast<unsigned>(__LINE__)
#define LOG_INFO(format, ...)                                                                  \
    do {                                                                                       \
        static_assert(                                                                         \
            sizeof(check_log_format(format LOG_PLACE_FORMAT, ##__VA_ARGS__, LOG_PLACE)) != 0); \
        log_category().log(log4cpp::Priority::INFO, format LOG_PLACE_FORMAT, ##__VA_ARGS__,    \
                           LOG_PLACE);                                                         \
    } while (false)
// NOLINTEND(cppcoreguidelines-macro-usage)
