/// The one writer of the documents after start-up, and what follows a write.
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "store/documents.h"
#include "store/store.h"

namespace {

void announce(const char* path)
{
    for (const StatusDocument& document : status_documents) {
        if (document.event == nullptr || std::strcmp(path, document.path) != 0) {
            continue;
        }
        if (document.event_delay_s > 0) {
            arm_input_update_timer();
        } else {
            send_update_event(-1, document.event);
        }
        return;
    }
}

}  // namespace

// Rewritten in place, without a temporary file, so that readers who hold the document open see
// it change: from `open` on it is empty. A write that fails leaves it so, and is announced all
// the same; the next reader of ours counts it as absent.
void write_json_to_file(const char* path, const Json::Value& root)
{
    const int descriptor = open(path, O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (descriptor < 0) {
        std::perror("open for write_json_to_file");
        return;
    }
    if (flock(descriptor, LOCK_EX) < 0) {
        std::perror("flock LOCK_EX");
        close(descriptor);
        return;
    }

    const std::string text = root.toStyledString();
    if (write(descriptor, text.data(), text.size()) < 0) {
        std::perror("write json file");
    }
    static_cast<void>(fsync(descriptor));
    static_cast<void>(flock(descriptor, LOCK_UN));
    close(descriptor);

    announce(path);
}
