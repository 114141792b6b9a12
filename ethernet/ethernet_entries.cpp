#include "ethernet/ethernet_entries.h"

Json::Value down_link()
{
    Json::Value link;
    link["status"] = false;
    link["speed"] = "N/A";
    link["mode"] = "N/A";
    return link;
}

Json::Value make_ethernet_entry(const std::string& name)
{
    Json::Value entry;
    entry["port"] = name;
    entry["type"] = "UTP";
    entry["link"] = down_link();
    entry["control"]["enabled"] = true;
    return entry;
}
