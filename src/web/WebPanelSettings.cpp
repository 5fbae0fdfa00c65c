#include "web/WebPanel.h"

using html::Markup;

Markup WebPanel::create_root_config() { return {}; }

Markup WebPanel::create_mount_config(int) { return {}; }

void WebPanel::create_form_inserter() {}
