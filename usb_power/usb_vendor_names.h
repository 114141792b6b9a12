/// The companies that USB vendor ids are assigned to.
#pragma once

/// The name of the vendor with exactly this id, UTF-8 and valid until the process ends; null
/// where the list has none. Any thread, no locks: the table never changes after start.
const char* find_usb_vendor_name(int id);
