#include "support/PanelVisit.h"

#include <gtest/gtest.h>

namespace {

TEST(PlayerScript, LoadsTheLibraryAndDefinesWhatPagesCall) {
    const std::string script = PanelVisit("/").panel.create_player_script().str();
    EXPECT_TRUE(script.starts_with("<script type=\"text/javascript\" src=\"https://"));
    EXPECT_TRUE(holds(script, "/swfobject/2.2/swfobject.js\"></script><script"));
    for (const char* name :
         {"quillPlay(uri)", "quillStop()", "play(mnt, type)", "stop()", "loadPlayLinks()"})
        EXPECT_TRUE(holds(script, std::string("function ") + name)) << name;
    for (const char* name : {"flashObj", "audioElement", "currentType", "playingMnt",
                             "currentPlayCtrl", "flashPlayed"})
        EXPECT_TRUE(holds(script, std::string("\nvar ") + name + " = ")) << name;
    EXPECT_TRUE(script.ends_with("</script>"));
}

TEST(PlayerScript, HasTheImagesOfThePlayLinks) {
    const std::string script = PanelVisit("/").panel.create_player_script().str();
    EXPECT_TRUE(holds(script, "<img src=\"/images/play.png\" alt=\"Play\""));
    EXPECT_TRUE(holds(script, "<img src=\"/images/stop.png\"'"));
    EXPECT_EQ(
        count_of(script, "style=\"margin-left: 5px; margin-right: 5px; vertical-align: middle;\""),
        2);
}

TEST(MovieScript, PutsTheMovieIntoThePage) {
    const std::string script = PanelVisit("/").panel.create_swf_player().str();
    EXPECT_TRUE(script.starts_with("<script type=\"text/javascript\">\nloadPlayLinks();"));
    EXPECT_TRUE(
        holds(script, "embedSWF(\"/flash/quillwave.swf\", \"playfall\", \"0\", \"0\", \"10.3.0\""));
    EXPECT_TRUE(holds(script, "{wmode: \"transparent\", allowScriptAccess: \"always\"}"));
    EXPECT_TRUE(holds(script, "{id: \"quillPlayer\"}"));
}

} // namespace
