#include "web/WebPanel.h"

using html::Markup;

Markup WebPanel::create_listener_stats(int) { return {}; }

Markup WebPanel::create_receiver_stats(const std::string&) { return {}; }
