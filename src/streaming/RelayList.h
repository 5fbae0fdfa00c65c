#pragma once

#include <cstddef>
#include <string>
#include <vector>

// The addresses that a mount may pull its stream from, without duplicates, and the one whose turn
// it is. After a change the turn stays with the same address if that is still there, otherwise it
// goes to the first. No lock of its own.
class RelayList {
public:
    bool empty() const { return addresses.empty(); }
    // The address whose turn it is; empty when there is none.
    std::string Current() const;
    // An empty address and one that is there already change nothing.
    void Add(const std::string& address);
    // Puts another address into the place of `old_address`; without that, adds it.
    void Set(const std::string& old_address, const std::string& new_address);
    void Remove(const std::string& address);
    // Gives the turn to the next address, after the last to the first.
    void Advance();

private:
    std::vector<std::string>::iterator find(const std::string& address);
    void restore_turn(const std::string& address);

    std::vector<std::string> addresses;
    std::size_t turn = 0;
};
