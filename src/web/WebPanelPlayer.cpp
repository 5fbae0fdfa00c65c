#include "web/WebPanel.h"

using html::Markup;

Markup WebPanel::create_player_script() const { return {}; }

Markup WebPanel::create_swf_player() const { return {}; }
