#include "web/Playlists.h"

#include "web/FormFields.h"

std::string m3u_playlist(const std::string& name, const std::string& url) {
    return "#EXTM3U\r\n"
           "#EXTINF:-1," +
           one_line(name) + "\r\n" + url + "\r\n";
}

std::string pls_playlist(const std::string& name, const std::string& url) {
    return "[playlist]\r\n"
           "File1=" +
           url + "\r\nTitle1=" + one_line(name) +
           "\r\n"
           "Length=-1\r\n"
           "NumberOfEntries=1\r\n"
           "Version=2\r\n";
}
