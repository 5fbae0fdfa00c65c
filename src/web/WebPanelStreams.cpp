#include "web/WebPanel.h"

using html::Markup;

Markup WebPanel::create_overall_stats() { return {}; }

Markup WebPanel::create_mount_stats(int, bool) { return {}; }

Markup WebPanel::create_mount_last_played(int) { return {}; }

Markup WebPanel::create_publication_list(int) { return {}; }
