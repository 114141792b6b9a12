#include "tools/statusctl/repair.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <iostream>
#include <string>

#include "store/store.h"
#include "tools/statusctl/documents.h"
#include "tools/statusctl/printable.h"
#include "tools/statusctl/system_state.h"

namespace statusctl {

namespace {

/// Nothing is waited for: who writes is told by the lease.
constexpr std::chrono::milliseconds at_once(0);

/// Why a document is beyond repair; empty where the service itself can still read it.
std::string damage(const StatusDocument& document)
{
    const DocumentRead result = read_document_safely(document, at_once);
    const bool is_bad = result.state == ReadState::empty || result.state == ReadState::damaged;
    return is_bad && read_document(document.path).isNull() ? printable(result.reason) : "";
}

/// The document can't be open to write, and whoever opens it so waits meanwhile.
void repair_under_lease(const StatusDocument& document)
{
    const std::string reason = damage(document);
    if (reason.empty()) {
        return;
    }
    if (unlink(document.path) == 0) {
        std::cout << "removed " << document.path << ": " << reason << '\n';
    } else {
        std::cout << "can't remove " << document.path << ": " << std::strerror(errno) << '\n';
    }
}

/// Not every service that runs can be seen. What one is about to fill it has open, and then no
/// lease on it is given.
void repair_document(const StatusDocument& document)
{
    if (damage(document).empty()) {
        return;
    }
    const int descriptor = open(document.path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fcntl(descriptor, F_SETLEASE, F_RDLCK) == 0) {
        repair_under_lease(document);
    } else {
        std::cout << "kept " << document.path << ": "
                  << (errno == EAGAIN ? "being written" : std::strerror(errno)) << '\n';
    }
    close(descriptor);
}

}  // namespace

void repair()
{
    std::signal(SIGIO, SIG_IGN);  // by which the kernel tells that somebody waits for a lease
    if (!processes_named(service_name).empty()) {
        std::cout << "the service is running: nothing is removed\n";
        return;
    }
    for (const StatusDocument& document : status_documents) {
        repair_document(document);
    }
}

}  // namespace statusctl
