/// The log of the service: its configuration and its one category.
#include "core/log.h"

#include <cstdio>
#include <exception>
#include <iostream>

#include <log4cpp/OstreamAppender.hh>
#include <log4cpp/PropertyConfigurator.hh>

#include "core/paths.h"

namespace {

void log_to_standard_error()
{
    // A configuration that failed half-way may have left appenders behind.
    log4cpp::Category::shutdown();
    log_category().setPriority(log4cpp::Priority::INFO);
    log_category().addAppender(new log4cpp::OstreamAppender("standard error", &std::cerr));
}

}  // namespace

void configure_log()
{
    try {
        log4cpp::PropertyConfigurator::configure(log_configuration_path);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s: %s; logging to standard error\n", log_configuration_path,
                     error.what());
        log_to_standard_error();
    }
}

log4cpp::Category& log_category()
{
    static log4cpp::Category& category = log4cpp::Category::getInstance("CATEGORY");
    return category;
}
