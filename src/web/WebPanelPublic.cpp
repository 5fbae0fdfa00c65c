#include "web/WebPanel.h"

int WebPanel::send_robots() { return NOT_A_PAGE; }

int WebPanel::send_crossdomain() { return NOT_A_PAGE; }

int WebPanel::send_home_page() { return NOT_A_PAGE; }

int WebPanel::send_about_page() { return NOT_A_PAGE; }

int WebPanel::send_tunein() { return NOT_A_PAGE; }

int WebPanel::send_asset() { return NOT_A_PAGE; }
