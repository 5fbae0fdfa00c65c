#pragma once

#include "web/Html.h"

// What keeps the public table of streams up to date: the library it stands on, and the script
// itself. With the player, each change is shown to it as well.
html::Markup live_script(bool with_player);
