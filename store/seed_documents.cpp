/// Seeding: what a document says before anything has been reported. What `usb-host.json` and
/// `power.json` said ends with the process that was told; the others survive a restart.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <ctime>
#include <string_view>

#include "core/paths.h"
#include "store/documents.h"

namespace {

// With 32-bit times `stat` would fail on every document written after January 2038, and a restart
// would seed it anew.
static_assert(sizeof(std::time_t) == 8);

bool exists(const StatusDocument& document)
{
    struct stat status;
    return stat(document.path, &status) == 0;
}

void write_default_text(const StatusDocument& document)
{
    std::FILE* file = std::fopen(document.path, "w");
    if (file == nullptr) {
        return;
    }
    const std::string_view text = *document.default_text;
    static_cast<void>(std::fwrite(text.data(), 1, text.size(), file));
    static_cast<void>(std::fclose(file));
}

void seed_with_run_directory(const StatusDocument& document)
{
    if (!exists(document)) {
        static_cast<void>(mkdir(run_directory, 0755));
        write_default_text(document);
    }
}

void seed_anew(const StatusDocument& document)
{
    static_cast<void>(unlink(document.path));
    write_default_text(document);
}

}  // namespace

void seed_inputs_document()
{
    seed_with_run_directory(inputs_document);
}

void seed_usb_host_document()
{
    seed_anew(usb_host_document);
}

void seed_ethernet_document()
{
    if (!exists(ethernet_document)) {
        write_default_text(ethernet_document);
    }
}

void seed_power_document()
{
    seed_anew(power_document);
}

void seed_outputs_document()
{
    seed_with_run_directory(outputs_document);
}
