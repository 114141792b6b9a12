/// What `statusctl check --repair` does.
#pragma once

namespace statusctl {

/// Before a start, documents that do not parse are removed, so that the service seeds them, and
/// nothing else. Nothing is removed while a service is seen to run, and no document that somebody
/// has open to write: a service that /proc hides may have emptied it to fill it. A lease tells; if
/// the file system has no leases, the document is kept. If a hidden service opens a damaged
/// document within the microseconds of its removal, it writes one without a name; its next report
/// makes it.
void repair();

}  // namespace statusctl
