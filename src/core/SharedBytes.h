#pragma once

#include <memory>
#include <vector>

// Bytes that never change once they are shared: a packet is held once and referred to by the
// retained list, every listener's queue and every response that has it still to send.
using SharedBytes = std::shared_ptr<const std::vector<char>>;
