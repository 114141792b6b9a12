#include "fuzz/device.h"

#include <sched.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <memory>
#include <sstream>

#include <json/reader.h>

#include "core/core.h"
#include "core/log.h"
#include "core/paths.h"
#include "core/shared_state.h"
#include "store/documents.h"
#include "store/store.h"

/// In place of the C library's: the event sender yields five times for each event, which on a
/// busy machine is most of a run's time.
extern "C" int sched_yield() noexcept
{
    return 0;
}

// The engine looks the name up; nothing here declares it.
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);

/// No appender: the lines are formatted and then thrown away.
extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/)
{
    log_category().setPriority(log4cpp::Priority::INFO);
    mkdir(status_directory, 0755);
    return 0;
}

void restore_state()
{
    fill_input_cache(input_cache[0]);
    fill_input_cache(input_cache[1]);
    usb_host_plug_status = 0;
    usb_eth_select = 0;
    power_status = 0;
}

void restore_device()
{
    restore_state();
    for (const StatusDocument& document : status_documents) {
        if (read_text(document.path) != *document.default_text) {
            write_text(document.path, *document.default_text);
        }
    }
}

void deliver(std::string_view datagram)
{
    // On the heap, where an address sanitizer sees a step over either end.
    static const auto buffer = std::make_unique<unsigned char[]>(message_slot_size);
    message_queue_push(datagram.data(), datagram.size());
    message_queue_pop(buffer.get());
    dispatch_message(buffer.get());
}

std::string read_text(const char* path)
{
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

void write_text(const char* path, std::string_view text)
{
    require((std::ofstream(path) << text).good(), path);
}

void require(bool holds, const char* what)
{
    if (!holds) {
        std::fprintf(stderr, "not so: %s\n", what);
        std::abort();
    }
}

Json::Value sound_document(const StatusDocument& document)
{
    Json::Value seeded;
    std::istringstream(std::string(*document.default_text)) >> seeded;
    Json::Value root = read_document(document.path);
    const std::string member = seeded.getMemberNames().front();
    require(root[member].type() == seeded[member].type(), document.path);
    return root;
}
