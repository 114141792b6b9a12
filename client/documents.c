#include "client/documents.h"

#include <stddef.h>
#include <time.h>

#include "client/client.h"

#define DOCUMENT(name, event)                                    \
    {                                                            \
        name ".json", STATUS_JSON_FOLDER "/" name ".json", event \
    }

const struct status_json_known_document status_json_known_documents[STATUS_JSON_DOCUMENT_COUNT] = {
    [STATUS_JSON_INPUTS] = DOCUMENT("inputs", "e_input_json_update"),
    [STATUS_JSON_USB_HOST] = DOCUMENT("usb-host", "e_usb_host_json_update"),
    [STATUS_JSON_ETHERNET] = DOCUMENT("ethernet", "e_ethernet_json_update"),
    [STATUS_JSON_POWER] = DOCUMENT("power", "e_power_json_update"),
    [STATUS_JSON_OUTPUTS] = DOCUMENT("outputs", ""),
};

const char* status_json_path(enum status_json_document document)
{
    const unsigned position = document;
    return position < STATUS_JSON_DOCUMENT_COUNT ? status_json_known_documents[position].path
                                                 : NULL;
}

long long status_json_now_ms(void)
{
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1000LL + now.tv_nsec / 1000000;
}
