#pragma once

#include <map>
#include <string>
#include <variant>

// Script data of FLV files (Adobe Flash Video File Format 10.1, E.4.4), big-endian. Each value is
// a type byte and what that type carries.
namespace flv {
struct None {};

// A value inside a map.
using ScriptValue = std::variant<None, double, bool, short, long, std::string>;
using ScriptMap = std::map<std::string, ScriptValue>;

std::string script_data_value(double value);
std::string script_data_value(bool value);
std::string script_data_value(None value);
std::string script_data_value(short value);
std::string script_data_value(long value); // has no form, gives no bytes
std::string script_data_value(const std::string& text, bool movie_clip = false);
std::string script_data_value(const char* text);
std::string script_data_value(const ScriptValue& value);
std::string script_data_value(const ScriptMap& map, bool strict_array = false);

// A bare string: length and text.
std::string script_meta_tag(const std::string& text);
} // namespace flv
