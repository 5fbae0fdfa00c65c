#include "web/StreamTable.h"

#include "media/Metadata.h"
#include "streaming/Mount.h"
#include "support/Page.h"

#include <gtest/gtest.h>

namespace {

constexpr time_t MOMENT = 1'000'000;

const StreamTable PUBLIC(StreamTable::Form::FOR_ALL, MOMENT);
const StreamTable MANAGED(StreamTable::Form::FOR_MANAGERS, MOMENT);

using Texts = std::vector<std::string>;

StreamState stream_of(const std::string& address = "/live", int id = 7) {
    StreamState stream(*std::make_shared<Mount>(address, id, nullptr));
    stream.description.name = "Name";
    stream.description.genre = "Rock";
    stream.description.content_type = "audio/mpeg";
    stream.description.connect_time = MOMENT - 65;
    stream.description.last_ip = "10.0.0.1";
    stream.figures.connected = true;
    stream.figures.receivers = 3;
    stream.figures.unique_receivers = 2;
    stream.figures.bitrate = 128000;
    stream.figures.bytes_received = 1536;
    stream.figures.bytes_sent = 2048;
    stream.figures.metadata = std::make_shared<METADATA>();
    stream.figures.metadata->title = "Title";
    return stream;
}

Texts public_cells(const StreamState& stream) {
    const Page page(PUBLIC.Row(stream).str());
    return Page::Cells(page.All("tr").front());
}

Texts managed_cells(const StreamState& stream) {
    const Page page(MANAGED.Row(stream).str());
    return Page::Cells(page.All("tr").front());
}

std::string attribute(const html::Markup& markup, const std::string& element,
                      const std::string& name) {
    return Page::Value(Page(markup.str()).All(element).front(), name);
}

std::string play_type(const StreamState& stream) {
    return attribute(PUBLIC.Row(stream), "a", "type");
}

// ---- The head -----------------------------------------------------------------------------------

TEST(StreamTable, TheHeadNamesTheColumns) {
    const Page everybodys(PUBLIC.Head(false, {}).str());
    EXPECT_EQ(Page::Cells(everybodys.All("tr").front()),
              (Texts{"Name", "Playing", "Genre", "Listeners"}));
    const Page managers(MANAGED.Head(false, {}).str());
    EXPECT_EQ(Page::Cells(managers.All("tr").front()),
              (Texts{"Name", "Last IP", "Playing", "Connect Time", "Listeners", "Bitrate",
                     "Bytes Received", "Bytes Sent"}));
}

void expect_width(const html::Markup& rows, int width) {
    const Page page(rows.str());
    ASSERT_FALSE(page.All("tr").empty());
    for (const auto* row : page.All("tr"))
        EXPECT_EQ(Page::Width(row), width) << rows.str();
}

TEST(StreamTable, EveryRowIsAsWideAsTheHead) {
    const StreamTable::Streams one = {stream_of()};
    for (const auto& rows : {PUBLIC.Head(false, {}), PUBLIC.None(true), PUBLIC.Row(stream_of())})
        expect_width(rows, 5);
    for (const auto& rows :
         {MANAGED.Head(false, {}), MANAGED.None(true), MANAGED.Row(stream_of()),
          MANAGED.Wide({}, "x"), MANAGED.Block("Title", "row", one), StreamTable::Totals({}, one)})
        expect_width(rows, 9);
}

TEST(StreamTable, TheMasterCheckStandsBeforeTheName) {
    const Page page(MANAGED.Head(false, html::raw("<input id=\"master\" />")).str());
    EXPECT_EQ(Page::Text(page.All("td").front()), "Select all streamsName");
    EXPECT_EQ(Page::Value(page.All("label").front()->FirstChildElement(), "id"), "master");
    EXPECT_EQ(page.All("input").size(), 1U);
}

TEST(StreamTable, EitherTheHeadOrTheWordsForNoStreamsAreHidden) {
    EXPECT_EQ(attribute(PUBLIC.Head(true, {}), "tr", "style"), "display: none;");
    EXPECT_EQ(attribute(PUBLIC.Head(false, {}), "tr", "style"), "");
    EXPECT_EQ(attribute(PUBLIC.None(true), "tr", "style"), "");
    EXPECT_EQ(attribute(PUBLIC.None(false), "tr", "style"), "display: none;");
    EXPECT_EQ(attribute(PUBLIC.Head(true, {}), "tr", "class"), "tableViewHead");
}

TEST(StreamTable, TheWordsForNoStreams) {
    const Page page(PUBLIC.None(true).str());
    const auto* row = page.First("id", "tableViewNone");
    EXPECT_EQ(Page::Value(row, "class"), "tableViewCol");
    EXPECT_EQ(Page::Text(row), "No streams are available.");
}

// ---- A stream on the air ------------------------------------------------------------------------

TEST(StreamTable, TheCellsForEverybody) {
    EXPECT_EQ(public_cells(stream_of()), (Texts{"Name", "Title", "Rock", "3 (2 unique)"}));
}

TEST(StreamTable, TheCellsForManagers) {
    EXPECT_EQ(managed_cells(stream_of()),
              (Texts{"Select /live/live", "10.0.0.1", "Title", "1 mins 05 secs", "3 (2 unique)",
                     "128.00 kbps", "1.50 KiB", "2.00 KiB"}));
}

TEST(StreamTable, TheRowIsKnownByTheMount) {
    for (const StreamTable* table : {&PUBLIC, &MANAGED}) {
        EXPECT_EQ(attribute(table->Row(stream_of()), "tr", "id"), "internalStation7");
        EXPECT_EQ(attribute(table->Row(stream_of()), "tr", "class"), "tableViewCol");
    }
}

TEST(StreamTable, TheClassesThatTheLiveScriptWritesTo) {
    const Page page(PUBLIC.Row(stream_of()).str());
    EXPECT_EQ(Page::Text(page.First("class", "streamName")), "Name");
    EXPECT_EQ(Page::Text(page.First("class", "metaSong")), "Title");
    EXPECT_EQ(Page::Text(page.First("class", "genreBitrate")), "Rock");
    EXPECT_EQ(Page::Text(page.First("class", "receiversCount")), "3 (2 unique)");
    const Page managed(MANAGED.Row(stream_of()).str());
    EXPECT_EQ(Page::Text(managed.First("class", "genreBitrate")), "1 mins 05 secs");
}

TEST(StreamTable, WithoutAMaximumThereIsNoSlash) {
    StreamState stream = stream_of();
    for (const std::int32_t none : {-1, 0}) {
        stream.figures.max_receivers = none;
        EXPECT_EQ(public_cells(stream)[3], "3 (2 unique)");
    }
    stream.figures.max_receivers = 10;
    EXPECT_EQ(public_cells(stream)[3], "3/10 (2 unique)");
    EXPECT_EQ(managed_cells(stream)[4], "3/10 (2 unique)");
}

TEST(StreamTable, ASourceThatCameDuringThePassIsNoTimeOnTheAir) {
    StreamState stream = stream_of();
    stream.description.connect_time = MOMENT + 1;
    EXPECT_EQ(managed_cells(stream)[3], "0 secs");
}

TEST(StreamTable, LongTextsAreCut) {
    StreamState stream = stream_of("/" + std::string(40, 'a'));
    stream.description.name = std::string(100, 'n');
    stream.description.genre = std::string(40, 'g');
    stream.figures.metadata->title = std::string(100, 't');
    EXPECT_EQ(public_cells(stream),
              (Texts{std::string(90, 'n') + "...", std::string(90, 't') + "...",
                     std::string(30, 'g') + "...", "3 (2 unique)"}));
    const Page page(MANAGED.Row(stream).str());
    EXPECT_EQ(Page::Text(page.First("class", "streamName")), "/" + std::string(29, 'a') + "...");
    EXPECT_EQ(Page::Text(page.First("class", "metaSong")), std::string(30, 't') + "...");
}

TEST(StreamTable, TextsAreCutByCharactersAndNotByBytes) {
    StreamState stream = stream_of();
    stream.description.genre = "\xE9" + std::string(40, 'g'); // Latin-1
    EXPECT_EQ(public_cells(stream)[2], "\xC3\xA9" + std::string(29, 'g') + "...");
}

// ---- Links --------------------------------------------------------------------------------------

TEST(StreamTable, ThePlayLinkIsAPlaylist) {
    const Page page(PUBLIC.Row(stream_of("/a b")).str());
    const auto* link = page.All("a").front();
    EXPECT_EQ(Page::Value(link, "href"), "/sbin/tunein.pls?mnt=%2Fa+b");
    EXPECT_EQ(Page::Value(link, "id"), "/a b");
    EXPECT_EQ(Page::Value(link, "type"), "audio/mpeg");
    const auto* picture = link->FirstChildElement("img");
    EXPECT_EQ(Page::Value(picture, "src"), "/images/play.png");
    EXPECT_EQ(Page::Value(picture, "width") + Page::Value(picture, "height"), "2020");
    EXPECT_EQ(Page::Value(picture, "alt"), "Play");
}

TEST(StreamTable, ThePlayLinkNamesTheCodecInLowerCase) {
    StreamState stream = stream_of();
    stream.description.content_type = "application/ogg";
    stream.figures.metadata->codec = "Vorbis";
    EXPECT_EQ(play_type(stream), "application/ogg; codecs=\"vorbis\"");
}

TEST(StreamTable, TheNameLeadsToThePageOfTheStream) {
    const Page everybodys(PUBLIC.Row(stream_of()).str());
    EXPECT_EQ(Page::Value(everybodys.First("class", "streamName"), "href"), "/view/7/");
    const Page managers(MANAGED.Row(stream_of()).str());
    EXPECT_EQ(Page::Value(managers.First("class", "streamName"), "href"), "/admin/stream/7/");
    EXPECT_EQ(Page::Text(managers.First("class", "stationDetails")), "/live");
}

TEST(StreamTable, OnlyManagersHaveCheckBoxes) {
    EXPECT_TRUE(Page(PUBLIC.Row(stream_of()).str()).All("input").empty());
    const Page page(MANAGED.Row(stream_of()).str());
    const auto* check = page.All("input").front();
    EXPECT_EQ(Page::Value(check, "type"), "checkbox");
    EXPECT_EQ(Page::Value(check, "id"), "select_check");
    EXPECT_EQ(Page::Value(check, "name"), "/live");
    EXPECT_EQ(Page::Value(check, "style"), "vertical-align: middle;");
}

TEST(StreamTable, ACheckBoxHasAName) {
    const Page page(MANAGED.Row(stream_of()).str());
    EXPECT_EQ(Page::Text(page.All("label").front()), "Select /live");
}

// ---- Strangers ----------------------------------------------------------------------------------

TEST(StreamTable, NothingThatASourceSaysBecomesMarkup) {
    const std::string bad = "</td><script>\"'&";
    StreamState stream = stream_of("/\"><script>");
    stream.description.name = bad;
    stream.description.genre = bad;
    stream.description.content_type = bad;
    stream.description.last_ip = bad;
    stream.figures.metadata->title = bad;
    stream.figures.metadata->codec = "\"><SCRIPT>";
    for (const StreamTable* table : {&PUBLIC, &MANAGED}) {
        const Page page((table->Row(stream) + table->Block("Title", "row", {stream})).str());
        EXPECT_TRUE(page.IsWellFormed());
        EXPECT_TRUE(page.All("script").empty());
    }
    EXPECT_EQ(public_cells(stream), (Texts{bad, bad, bad, "3 (2 unique)"}));
    EXPECT_EQ(play_type(stream), bad + "; codecs=\"\"><script>\"");
}

TEST(StreamTable, TextsInLatin1AreConverted) {
    StreamState stream = stream_of();
    stream.description.name = "Caf\xE9";
    stream.figures.metadata->title = "Caf\xC3\xA9"; // is UTF-8 already
    EXPECT_EQ(public_cells(stream)[0], "Caf\xC3\xA9");
    EXPECT_EQ(public_cells(stream)[1], "Caf\xC3\xA9");
}

// As in the feed that the live script reads, and cut by characters all the same.
TEST(StreamTable, ANulHidesNothingThatIsNoUtf8) {
    StreamState stream = stream_of();
    stream.figures.metadata->title = std::string("a\0", 2) + "\xA9" + std::string(100, 'b');
    const std::string row = PUBLIC.Row(stream).str();
    EXPECT_NE(row.find(std::string("a\0", 2) + "\xC2\xA9" + std::string(87, 'b') + "...<"),
              std::string::npos);
}

// ---- Streams without a source -------------------------------------------------------------------

TEST(StreamTable, ABlockHasATitleAndARowForEachStream) {
    const Page page(
        MANAGED.Block("Inactive Mounts", "tableViewCol", {stream_of("/a", 1), stream_of("/b", 2)})
            .str());
    const auto rows = page.All("tr");
    ASSERT_EQ(rows.size(), 3U);
    EXPECT_EQ(Page::Value(rows[0], "class"), "tableViewHead");
    EXPECT_EQ(Page::Cells(rows[0]), (Texts{"Inactive Mounts"}));
    EXPECT_EQ(Page::Value(rows[1], "class"), "tableViewCol");
    EXPECT_EQ(Page::Cells(rows[2]), (Texts{"Select /b/b", "10.0.0.1", "1.50 KiB", "2.00 KiB"}));
    EXPECT_EQ(Page::Value(page.All("a").back(), "href"), "/admin/stream/2");
    EXPECT_EQ(Page::Value(page.All("input").back(), "name"), "/b");
}

TEST(StreamTable, ABlockWithoutStreamsIsLeftOut) {
    EXPECT_TRUE(MANAGED.Block("Inactive Mounts", "tableViewCol", {}).empty());
}

// ---- Totals -------------------------------------------------------------------------------------

TEST(StreamTable, TheTotals) {
    const Page page(StreamTable::Totals("Buttons", {stream_of("/a", 1), stream_of("/b", 2)}).str());
    EXPECT_EQ(Page::Cells(page.All("tr").front()),
              (Texts{"Buttons", "Totals:", "6 (4 unique)", "256.00 kbps", "3.00 KiB", "4.00 KiB"}));
    EXPECT_EQ(Page::Value(page.All("td").front(), "id"), "mount_actions");
    EXPECT_EQ(page.All("b").size(), 4U);
}

TEST(StreamTable, UniqueListenersAreTotalledOnlyWhenTheyDiffer) {
    StreamState stream = stream_of();
    stream.figures.unique_receivers = 3;
    const Page page(StreamTable::Totals({}, {stream}).str());
    EXPECT_EQ(Page::Cells(page.All("tr").front())[2], "3");
}

} // namespace
