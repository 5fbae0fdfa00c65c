#include "web/WebPanel.h"

using html::Markup;

void WebPanel::send_json_stats(const std::shared_ptr<Mount>&) {}

void WebPanel::send_xml_stats(const std::shared_ptr<Mount>&) {}

void WebPanel::send_comma_delimited_stats() {}

bool WebPanel::stats_changed() { return true; }
