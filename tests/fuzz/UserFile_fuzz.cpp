#include "accounts/UserList.h"

#include <cstdint>
#include <cstdlib>
#include <string>

// The input is a user file. What was read of it is written and read once more.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    UserList::ReadText(std::string(data, data + size));
    UserList::ReadText(UserList::Text());
    for (const auto& [name, user] : UserList::GetUserList(-1))
        UserList::Remove(name);
    return 0;
}
