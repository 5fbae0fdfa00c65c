#pragma once

#include <memory>
#include <string>
#include <vector>

class Mount;
class Request;

// What the forms of the stream pages do to the running mounts. Whatever a form asks for that does
// not exist, or that its sender may not do, is passed over in silence: the page shows how things
// stand.

// The form below the table of streams: makes a mount, or does one thing to each that is ticked.
// `mounts` are those the sender manages; it follows what was made and deleted.
void run_list_action(const Request& request, bool is_admin,
                     std::vector<std::shared_ptr<Mount>>& mounts);
// The form on the page of one stream.
void run_mount_action(const Request& request, Mount& mount);
