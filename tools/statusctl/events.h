/// How the tool learns that documents may have changed: from the service's netlink events, and
/// through inotify for what has none.
#pragma once

#include <bitset>
#include <iterator>

#include "store/documents.h"

namespace statusctl {

/// A bit for each row of `status_documents`.
using DocumentSet = std::bitset<std::size(status_documents)>;

struct Subscription {
    int events = -1;   // netlink; -1 where subscribing isn't permitted
    int changes = -1;  // inotify
};

/// Subscribes to both. Where binding to the events' group isn't permitted, says so on standard
/// error and goes on with inotify alone. Throws std::system_error where the status directory
/// can't be watched. The descriptors don't block; they live until the process ends.
Subscription subscribe();

/// The documents that what has come in since the last call may be about; all of them where
/// something was lost. Never waits. An event is a hint: one that comes neither from root nor
/// from the owner of the status directory is ignored. Throws std::runtime_error where the status
/// directory has gone, with which the watch ends.
DocumentSet take_hints(const Subscription& subscription);

}  // namespace statusctl
