/// The state that the folders of the service share.
#include "core/shared_state.h"

#include <cstring>

std::mutex document_mutex;
InputCache input_cache[2];
std::int32_t usb_host_plug_status = 0;
std::int32_t usb_eth_select = 0;
std::int32_t power_status = 0;

void fill_input_cache(InputCache& cache)
{
    std::memset(&cache, input_cache_fill_byte, sizeof cache);
}
