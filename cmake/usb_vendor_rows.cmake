# The rows of the table of USB vendor names, made from the list at build time.
find_program(PERL perl REQUIRED)
if(NOT EXISTS ${USB_VENDOR_LIST})
    message(FATAL_ERROR "No list of USB vendor names at ${USB_VENDOR_LIST}: install usb.ids, "
                        "or name another list with -DUSB_VENDOR_LIST=FILE")
endif()
set(USB_VENDOR_ROWS ${PROJECT_BINARY_DIR}/usb_vendor_rows.inc)
set(USB_VENDOR_GENERATOR ${PROJECT_SOURCE_DIR}/scripts/generate-usb-vendor-rows)
set(USB_VENDOR_OVERRIDES ${PROJECT_SOURCE_DIR}/usb_power/usb_vendor_overrides.tsv)
add_custom_command(
    OUTPUT ${USB_VENDOR_ROWS}
    COMMAND ${PERL} ${USB_VENDOR_GENERATOR} ${USB_VENDOR_ROWS} ${USB_VENDOR_OVERRIDES}
            ${USB_VENDOR_LIST}
    DEPENDS ${USB_VENDOR_GENERATOR} ${USB_VENDOR_OVERRIDES} ${USB_VENDOR_LIST}
    COMMENT "Making the USB vendor rows from ${USB_VENDOR_LIST}"
    VERBATIM)
