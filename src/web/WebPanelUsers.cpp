#include "web/WebPanel.h"

using html::Markup;

Markup WebPanel::create_user_list(int) { return {}; }

Markup WebPanel::create_user_form(const std::shared_ptr<User>&, int) { return {}; }

Markup WebPanel::create_property_list(const std::shared_ptr<User>&, int) { return {}; }

Markup WebPanel::create_property_form(const std::shared_ptr<User>&, int) { return {}; }
