/// The four Ethernet ports, published in `ethernet.json`. All of it runs on the dispatch thread
/// and takes `document_mutex`; nothing is reported to the caller.
#pragma once

// --- ethernet_port_status.cpp ---

/// Publishes link, speed and duplex of all ports as the Ethernet driver gives them; every port
/// shows no link where its file can't be read. A port that is disabled shows no link, and LAN4
/// shows one only while its USB side is there. Every call rewrites the document.
void update_ethernet_status();

// --- ethernet_control.cpp ---

/// Publishes whether port 1 to 4 is enabled, which it is by the word "on" alone; the link shows
/// it at the next update. Every other port is ignored, and so is a document without the array.
void set_ethernet_port_enabled(int port, const char* state);
