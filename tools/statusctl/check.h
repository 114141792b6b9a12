/// `statusctl check`: is all well with a running device's documents and with the service?
#pragma once

namespace statusctl {

struct CheckOptions {
    bool repair = false;
};

/// Prints a line for each thing looked at, and for each problem a line with a remedy. Gives the
/// exit status: 0 only where all is well.
///
/// With `repair`, removes instead the documents that do not parse, so that the service seeds
/// them when it starts, and nothing else; prints a line for each. The status is then always 0:
/// it stands before a start of the service, which it must never prevent.
/// Nothing is removed while a service is seen to run, and no document that somebody has open to
/// write: a service that /proc hides may have emptied it to fill it. A lease tells, where the
/// file system has none the document is kept. A hidden service that opens a damaged document
/// within the microseconds of its removal writes one without a name; its next report makes it.
int run_check(const CheckOptions& options);

}  // namespace statusctl
