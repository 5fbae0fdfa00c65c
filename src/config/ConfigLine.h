#pragma once

#include <string>
#include <string_view>

// One line of the settings file, without its line feed.
//
//   ;...  blank...  tab...     no setting, as is an empty line and any line without "="
//   include=<path>             another file, read at this point
//   Source<name><index>=<value>   a setting of the mount with this index; what follows the digits
//                              of the index up to the "=" is ignored
//   SourceMount=<address>      opens a mount whose index is not given
//   Source<name>=<value>       a setting of the mount that was opened last
//   Default<name>=<value>      the default of a mount setting
//   <name>=<value>             a global setting
//
// Keys compare without regard to case. Nothing is quoted or escaped; the key is what stands before
// the first "=", blanks and all, the value is trimmed on both sides.
struct ConfigLine {
    enum class Kind { NO_SETTING, INCLUDE, GLOBAL, DEFAULT, INDEXED_MOUNT, OPENS_MOUNT, MOUNT };

    Kind kind = Kind::NO_SETTING;
    std::string key = {};   // as it stands in the line
    std::string name = {};  // the key without prefix and index, in its own case; may be empty
    std::string index = {}; // of INDEXED_MOUNT: decimal, without leading zeros
    std::string value = {};
};

ConfigLine ParseConfigLine(std::string_view line);
