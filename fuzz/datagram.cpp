/// One datagram, as it comes, to a service that has just started.
#include "fuzz/device.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    restore_device();
    deliver({reinterpret_cast<const char*>(data), size});
    for (const StatusDocument& document : status_documents) {
        if (read_text(document.path) != *document.default_text) {
            sound_document(document);
        }
    }
    return 0;
}
