#pragma once

#include "directory/PublicationDetails.h"
#include "web/Html.h"

#include <ctime>
#include <vector>

// The directories that a stream is to be listed on, and how that goes. Elapsed times are counted to
// `moment`.
html::Markup publication_table(const std::vector<PublicationDetails>& directories, time_t moment);
