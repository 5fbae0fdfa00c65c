#pragma once

#include <concepts>
#include <ctime>
#include <pthread.h>
#include <random>
#include <string>
#include <thread>
#include <vector>

// Free functions that the whole server shares. All of them may be called from any thread, and none
// fails unless it says so. Their texts reach logs, pages and directory servers: the forms are
// fixed.

// ---- Text ---------------------------------------------------------------------------------------

inline const std::string WHITE_SPACE = " \t\f\v\r\n";

// Remove every byte in `chars` from that end of `text`, in place, and return `text`; trim does the
// right end first.
std::string& ltrim(std::string& text, const std::string& chars = WHITE_SPACE);
std::string& rtrim(std::string& text, const std::string& chars = WHITE_SPACE);
std::string& trim(std::string& text, const std::string& chars = WHITE_SPACE);

// In place, byte by byte; only the letters of ASCII change.
std::string& tolower(std::string& text);
std::string& toupper(std::string& text);

// The pieces of `text` between delimiters, appended to `out`. Empty pieces count, but for a last
// one. With a limit N above 0 the piece after the first N is the rest of the line.
void split(const std::string& text, char delimiter, std::vector<std::string>& out, int limit = 0);
std::vector<std::string> split(const std::string& text, char delimiter, int limit = 0);

// Decimal digits, with a "-" before negative values.
template <std::integral T> std::string tostring(T value) { return std::to_string(value); }

// Digits only, a "-" allowed in front; never empty.
bool is_number(const std::string& text);
// Whether a script may be asked to call a function of this name.
bool is_js_method(const std::string& text);
bool is_ASCII(const char* text, unsigned long length);
// Well-formed UTF-8 (RFC 3629) without control bytes other than tab, line feed and carriage return.
// A null pointer is not.
bool is_utf8(const char* text);
// Latin-1 to UTF-8. With `check`, a text that is UTF-8 already is returned as it stands.
std::string latin1_to_utf8(std::string text, bool check);
// `length` characters of a UTF-8 text from the character `start` on. Empty when the text ends
// before `start`, and when a stray continuation byte is met.
std::string utf8_substr(const std::string& text, unsigned int start, unsigned int length);
// A text of `size` or more bytes (welips: characters) is cut to its first `size`, trimmed, and
// followed by "...".
std::string elips(const std::string& text, unsigned long size);
std::string welips(const std::string& text, unsigned int size);
// Text for HTML and XML markup: the five characters that mean something there become entities.
std::string html_encode(const std::string& text);
// An address with a scheme stands as it is, any other gets "http://" in front.
std::string UrlFixer(const std::string& url);

// ---- Codecs -------------------------------------------------------------------------------------

// Form encoding (application/x-www-form-urlencoded). A "%" without two hexadecimal digits is kept.
std::string UrlDecode(const std::string& text);
std::string UrlEncode(const std::string& text, bool keep_slash);
char hexToChar(char high, char low);
std::string charToHex(char byte);
// Standard Base64 (RFC 4648 section 4). The decoder ends at the first byte outside the alphabet.
std::string Base64Encode(const char* data, unsigned long long length);
std::string Base64Decode(const std::string& text);
// Replaces `out` by each byte as two upper-case digits and a blank.
void bytes_to_hex(const char* data, unsigned long length, std::string& out);
void bytes_to_hex(const std::vector<char>& data, std::string& out);
// The same on standard output, for a debugging session.
void bufhex(const char* data, int length);
// 32 lower-case hexadecimal digits (RFC 1321).
std::string GenerateMD5Hash(const std::string& text);

// An identifier that is unique for the life of the process, in five groups of varying length.
std::string GenerateUuid();
// The same from a generator of the caller's, which it moves on by six draws.
std::string GenerateUuid(std::mt19937_64& generator);

// ---- Formats ------------------------------------------------------------------------------------

// A duration: "1:05:09" as a clock, otherwise "9 secs", "5 mins 09 secs", "1h 05m 09s" or
// "2d 01h 05m 09s".
std::string TimeToString(unsigned long long seconds, bool clock);
// "512 B", "1.50 KiB" for bytes; "0 bps", "128.00 kbps" for bits per second.
std::string DataSizeToString(unsigned long long value, bool bitrate);
// The moment of the build, in the builder's local time.
struct tm BuildTime();
// A date and a time as compilers write them, "Jan 11 2016" and "20:47:27".
struct tm ParseBuildTime(const std::string& date, const std::string& time_of_day);

// ---- Network ranges -----------------------------------------------------------------------------

// Whether the IPv4 `address` lies in `range`, "a.b.c.d/bits": 1 or 0, or -1 when the range is not
// usable. The bits are taken modulo 32, so that /0 and /32 match every address.
int InIPRange(const std::string& range, const std::string& address);

// ---- Platform -----------------------------------------------------------------------------------

void Sleep(unsigned int milliseconds);
// The kernel's name of the calling thread, cut to its 15 bytes. The form with a thread object does
// nothing here: a thread names itself.
void SetThreadName(const char* name);
void SetThreadName(std::thread* thread, const char* name);
// Starts a detached thread.
void BeginThread(void* (*run)(void*), void* argument);
// Processors online.
long GetCoreCount();
// True when the lock was taken.
bool trylock(pthread_mutex_t* mutex);
// Makes a directory, mode 0755; 0 also when it was there already. -1 when something else stands
// there or it cannot be made.
int system_mkdir(const char* path);
