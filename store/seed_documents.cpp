/// Seeding: what a document says before anything has been reported. What `usb-host.json` and
/// `power.json` said ends with the process that was told; the others survive a restart.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <ctime>
#include <string_view>

#include "core/paths.h"
#include "store/default_texts.h"
#include "store/store.h"

namespace {

// With 32-bit times `stat` would fail on every document written after January 2038, and a restart
// would seed it anew.
static_assert(sizeof(std::time_t) == 8);

bool exists(const char* path)
{
    struct stat status;
    return stat(path, &status) == 0;
}

void write_default_text(const char* path, std::string_view text)
{
    std::FILE* file = std::fopen(path, "w");
    if (file == nullptr) {
        return;
    }
    static_cast<void>(std::fwrite(text.data(), 1, text.size(), file));
    static_cast<void>(std::fclose(file));
}

void create_run_directory()
{
    static_cast<void>(mkdir(run_directory, 0755));
}

}  // namespace

void seed_inputs_document()
{
    if (exists(inputs_document_path)) {
        return;
    }
    create_run_directory();
    write_default_text(inputs_document_path, inputs_default_text);
}

void seed_usb_host_document()
{
    static_cast<void>(unlink(usb_host_document_path));
    write_default_text(usb_host_document_path, usb_host_default_text);
}

void seed_ethernet_document()
{
    if (!exists(ethernet_document_path)) {
        write_default_text(ethernet_document_path, ethernet_default_text);
    }
}

void seed_power_document()
{
    static_cast<void>(unlink(power_document_path));
    write_default_text(power_document_path, power_default_text);
}

void seed_outputs_document()
{
    if (exists(outputs_document_path)) {
        return;
    }
    create_run_directory();
    write_default_text(outputs_document_path, outputs_default_text);
}
