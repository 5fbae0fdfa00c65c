#include "streaming/RelayList.h"

#include <algorithm>

std::string RelayList::Current() const { return empty() ? std::string() : addresses[turn]; }

void RelayList::Add(const std::string& address) {
    if (address.empty() || find(address) != addresses.end()) return;
    addresses.push_back(address);
}

void RelayList::Set(const std::string& old_address, const std::string& new_address) {
    const auto place = find(old_address);
    if (place == addresses.end()) return Add(new_address);
    if (old_address == new_address) return;
    if (new_address.empty() || find(new_address) != addresses.end()) return Remove(old_address);
    const std::string in_turn = Current();
    *place = new_address;
    restore_turn(in_turn);
}

void RelayList::Remove(const std::string& address) {
    const auto place = find(address);
    if (place == addresses.end()) return;
    const std::string in_turn = Current();
    addresses.erase(place);
    restore_turn(in_turn);
}

void RelayList::Advance() {
    if (!empty()) turn = (turn + 1) % addresses.size();
}

std::vector<std::string>::iterator RelayList::find(const std::string& address) {
    return std::find(addresses.begin(), addresses.end(), address);
}

void RelayList::restore_turn(const std::string& address) {
    const auto place = find(address);
    turn = place == addresses.end() ? 0 : static_cast<std::size_t>(place - addresses.begin());
}
