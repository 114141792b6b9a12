/// The USB-C port and its partner, the USB host inputs and the power source, published in
/// `usb-host.json` and `power.json`. All of it runs on the dispatch thread and takes
/// `document_mutex` unless it says otherwise; nothing is reported to the caller.
#pragma once

#include "core/messages.h"

// --- usb_c_port.cpp ---

/// The manufacturer's text of a report, zero-terminated within the width of its field. Takes no
/// lock.
struct ManufacturerText {
    char text[sizeof(TypeC_Info::PeerDeviceMFT_String) + 1];
};
ManufacturerText manufacturer_text(const TypeC_Info& report);

/// Publishes the partner of the USB-C port, its DisplayPort alternate mode and its charging, in
/// mV and mA as received. Every report ends in a write, also one that repeats the last, unless
/// both figures are above 2^31 - 1 and nothing else differs.
void update_usb_c_port(const TypeC_Info* report);

// --- usb_c_entry.cpp ---

/// Takes the entry of the USB-C input back to its empty values, as its partner has gone; whether
/// charging is enabled stays. Rewrites the document in every case. The caller holds
/// `document_mutex`.
void reset_usb_c_entry();

// --- charging_control.cpp ---

/// Publishes whether charging is enabled on the USB-C port: 1, and no other number.
void set_charging_enabled(int charging_enabled);

// --- usb_host_plug.cpp ---

/// Publishes whether USB host input IN1 is plugged in: 1, and no other number. Every call
/// rewrites the document.
void update_usb_host_in1_plug(int status);

/// The same for IN2, from `usb_host_plug_status`.
void update_usb_host_in2_plug();

// --- power_status.cpp ---

/// Publishes the power source that `power_status` names, with the voltage that goes with it. A
/// source that is not known changes nothing; every call rewrites the document.
void update_power_source();

/// Publishes a current as it was reported, in the sender's unit. A number that repeats the last
/// is ignored, and so is a first report of -1.
void update_power_current(int value);
