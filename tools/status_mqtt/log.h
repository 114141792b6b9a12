#pragma once

#include <string>

/// Writes a line to standard error, in one piece: for journald, or for the log of the kernel.
void log_line(const std::string& line);
