#include "web/Playlists.h"

#include <gtest/gtest.h>

namespace {

TEST(Playlists, M3uHasTheNameAndTheAddress) {
    EXPECT_EQ(m3u_playlist("Night & Day", "http://h:80/live"),
              "#EXTM3U\r\n#EXTINF:-1,Night & Day\r\nhttp://h:80/live\r\n");
}

TEST(Playlists, PlsHasTheNameAndTheAddress) {
    EXPECT_EQ(pls_playlist("Night & Day", "http://h:80/live"),
              "[playlist]\r\nFile1=http://h:80/live\r\nTitle1=Night & Day\r\n"
              "Length=-1\r\nNumberOfEntries=1\r\nVersion=2\r\n");
}

TEST(Playlists, ANameAddsNoLine) {
    for (const std::string& end :
         {std::string("\r\n"), std::string("\n"), std::string("\r"), std::string(1, '\0')}) {
        EXPECT_EQ(m3u_playlist("Night" + end + "http://elsewhere/", "u"),
                  "#EXTM3U\r\n#EXTINF:-1,Night\r\nu\r\n");
        EXPECT_EQ(pls_playlist("Night" + end + "File2=http://elsewhere/", "u"),
                  "[playlist]\r\nFile1=u\r\nTitle1=Night\r\n"
                  "Length=-1\r\nNumberOfEntries=1\r\nVersion=2\r\n");
    }
}

} // namespace
