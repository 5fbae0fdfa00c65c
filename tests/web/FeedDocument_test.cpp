#include "web/FeedDocument.h"

#include "media/Metadata.h"

#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <rapidjson/document.h>
#include <tinyxml2.h>

using namespace std::string_literals;

namespace {

using Tags = std::map<std::string, std::string>;

std::shared_ptr<METADATA> record(const std::string& title, const std::string& url = {},
                                 const Tags& tags = {}) {
    auto metadata = std::make_shared<METADATA>();
    metadata->title = title;
    metadata->url = url;
    metadata->codec = "Vorbis";
    metadata->extended = tags;
    return metadata;
}

FeedDocument::Source some_source() {
    return {.description = {.id = 7,
                            .address = "/live",
                            .name = "Name",
                            .description = "Words",
                            .genre = "Genre",
                            .bitrate = "128",
                            .website = "http://x/",
                            .content_type = "application/ogg",
                            .audio_info = "a=1",
                            .connect_time = 1500},
            .figures = {.running = true,
                        .connected = true,
                        .receivers = 2,
                        .max_receivers = 99,
                        .unique_receivers = 1,
                        .peak_receivers = 3,
                        .tune_ins = 4,
                        .ex_tune_ins = 5,
                        .avg_connect = 6,
                        .avg_quarter_hour = 8,
                        .bytes_received = 9,
                        .bytes_sent = 10,
                        .metadata = record("Title", "http://y/")}};
}

FeedDocument document_of(const FeedDocument::Source& source) {
    return {.total_nodes = 11,
            .total_unique_nodes = 12,
            .total_peak_nodes = 13,
            .startup_time = 1000,
            .system_time = 2000,
            .active_sources = 1,
            .sources = {source}};
}

FeedDocument full_document() {
    FeedDocument::Source source = some_source();
    source.figures.metadata = record("Title", "http://y/", {{"Year", "1999"}});
    source.figures.song_history = {{1900, record("Newer")},
                                   {1800, record("Older", "", {{"Year", "19a"}})}};
    source.figures.song_history.front().second->tune_ins = 14;
    source.peers = {{.uuid = "u-1",
                     .ip = "127.0.0.1",
                     .user = "me",
                     .user_agent = "player/1",
                     .connect_time = 1700,
                     .last_service = 1701,
                     .bytes_sent = 15}};
    FeedDocument document = document_of(source);
    document.for_managers = true;
    document.in_full = true;
    return document;
}

// With the metadata given, all else as above.
FeedDocument document_with(std::shared_ptr<METADATA> metadata) {
    FeedDocument::Source source = some_source();
    source.figures.metadata = std::move(metadata);
    return document_of(source);
}

bool holds(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

// ---- Every field --------------------------------------------------------------------------------

const std::string JSON_HEAD =
    R"({"version":"1.0.2 evergreen","total_nodes":11,"total_unique_nodes":12,)"
    R"("total_peak_nodes":13,"startup_time":1000,"system_time":2000,"active_sources":)";

const std::string XML_HEAD =
    "<quillwave><version>1.0.2 evergreen</version><total_nodes>11</total_nodes>"
    "<total_unique_nodes>12</total_unique_nodes><total_peak_nodes>13</total_peak_nodes>"
    "<startup_time>1000</startup_time><system_time>2000</system_time><active_sources>";

TEST(JsonFeed, PublicFieldsInTheirOrder) {
    EXPECT_EQ(json_feed(document_of(some_source())),
              JSON_HEAD +
                  R"(1,"sources":[{"id":7,"mount":"/live","status":1,"name":"Name",)"
                  R"("description":"Words","genre":"Genre","url":"http://x/","bitrate":"128",)"
                  R"("meta_song":"Title","meta_url":"http://y/","nodes":2,"peak_nodes":3,)"
                  R"("unique_nodes":1,"max_nodes":99,"average_connect_time":6,"tuneins":4,)"
                  R"("extended_tuneins":5,"content_type":"application/ogg","audio_info":"a=1",)"
                  R"("sub_type":"Vorbis"}]})");
}

TEST(XmlFeed, PublicFieldsInTheirOrder) {
    EXPECT_EQ(
        xml_feed(document_of(some_source())),
        XML_HEAD +
            "1</active_sources><sources><source id=\"7\"><mount>/live</mount><status>1</status>"
            "<name>Name</name><description>Words</description><genre>Genre</genre>"
            "<url>http://x/</url><bitrate>128</bitrate><meta_song>Title</meta_song>"
            "<meta_url>http://y/</meta_url><nodes>2</nodes><peak_nodes>3</peak_nodes>"
            "<unique_nodes>1</unique_nodes><max_nodes>99</max_nodes>"
            "<average_connect_time>6</average_connect_time><tuneins>4</tuneins>"
            "<extended_tuneins>5</extended_tuneins><content_type>application/ogg</content_type>"
            "<audio_info>a=1</audio_info><sub_type>Vorbis</sub_type></source></sources>"
            "</quillwave>");
}

TEST(JsonFeed, FieldsForManagersInTheirOrder) {
    EXPECT_EQ(json_feed(full_document()),
              JSON_HEAD +
                  R"(1,"sources":[{"id":7,"mount":"/live","status":1,"name":"Name",)"
                  R"("description":"Words","genre":"Genre","url":"http://x/","bitrate":"128",)"
                  R"("meta_song":"Title","meta_url":"http://y/","meta_custom_tags":{"year":1999},)"
                  R"("nodes":2,"peak_nodes":3,"unique_nodes":1,"max_nodes":99,)"
                  R"("average_connect_time":6,"tuneins":4,"extended_tuneins":5,)"
                  R"("average_quarter_hour":8,"connect_time":1500,"bytes_recv":9,"bytes_sent":10,)"
                  R"("content_type":"application/ogg","audio_info":"a=1","sub_type":"Vorbis",)"
                  R"("played":[{"song_title":"Newer","entry_time":1900,"entry_hits":14},)"
                  R"({"song_title":"Older","entry_time":1800,"entry_hits":0,)"
                  R"("custom_tags":{"year":"19a"}}],"peers":[{"id":"u-1","ip":"127.0.0.1",)"
                  R"("user":"me","user_agent":"player/1","pconnect_time":1700,)"
                  R"("lservice_time":1701,"pbytes_sent":15}]}]})");
}

TEST(XmlFeed, FieldsForManagersInTheirOrder) {
    const std::string xml = xml_feed(full_document());
    EXPECT_TRUE(holds(xml, "<meta_custom_tags><year>1999</year></meta_custom_tags><nodes>"));
    EXPECT_TRUE(holds(xml, "</extended_tuneins><average_quarter_hour>8</average_quarter_hour>"
                           "<connect_time>1500</connect_time><bytes_recv>9</bytes_recv>"
                           "<bytes_sent>10</bytes_sent><content_type>"));
    EXPECT_TRUE(xml.ends_with(
        "</sub_type><played><song_event><song_title>Newer</song_title>"
        "<entry_time>1900</entry_time><entry_hits>14</entry_hits></song_event><song_event>"
        "<song_title>Older</song_title><entry_time>1800</entry_time><entry_hits>0</entry_hits>"
        "<custom_tags><year>19a</year></custom_tags></song_event></played><peers>"
        "<peer id=\"u-1\"><ip>127.0.0.1</ip><user>me</user><user_agent>player/1</user_agent>"
        "<pconnect_time>1700</pconnect_time><lservice_time>1701</lservice_time>"
        "<pbytes_sent>15</pbytes_sent></peer></peers></source></sources></quillwave>"));
}

// ---- What is there, and when --------------------------------------------------------------------

TEST(Feeds, WithoutMountsJsonHasNoListAndXmlAnEmptyOne) {
    FeedDocument document = document_of(some_source());
    document.active_sources = 0;
    document.sources.clear();
    EXPECT_EQ(json_feed(document), JSON_HEAD + "0}");
    EXPECT_EQ(xml_feed(document), XML_HEAD + "0</active_sources><sources/></quillwave>");
}

TEST(Feeds, WhenTheFilterLeavesNoMountTheListIsEmpty) {
    FeedDocument document = document_of(some_source());
    document.sources.clear();
    EXPECT_EQ(json_feed(document), JSON_HEAD + "1,\"sources\":[]}");
    EXPECT_EQ(xml_feed(document), XML_HEAD + "1</active_sources><sources/></quillwave>");
}

TEST(Feeds, StatusTellsConnectedWaitingAndStopped) {
    FeedDocument document = document_of(some_source());
    MountStatistics& figures = document.sources[0].figures;
    figures.running = false;
    EXPECT_TRUE(holds(json_feed(document), "\"status\":1,"));
    figures.connected = false;
    EXPECT_TRUE(holds(json_feed(document), "\"status\":2,"));
    figures.running = true;
    EXPECT_TRUE(holds(json_feed(document), "\"status\":-1,"));
    EXPECT_TRUE(holds(xml_feed(document), "<status>-1</status>"));
}

TEST(Feeds, WithoutALimitJsonHasNoMostNodesAndXmlAnEmptyElement) {
    for (const int most : {0, -1}) {
        FeedDocument document = document_of(some_source());
        document.sources[0].figures.max_receivers = most;
        EXPECT_FALSE(holds(json_feed(document), "max_nodes"));
        EXPECT_TRUE(holds(xml_feed(document), "<max_nodes></max_nodes>"));
    }
}

TEST(Feeds, EmptyListsForManagersStandInXmlOnly) {
    FeedDocument document = document_of(some_source());
    document.in_full = true;
    EXPECT_FALSE(holds(json_feed(document), "played"));
    EXPECT_FALSE(holds(json_feed(document), "peers"));
    EXPECT_TRUE(holds(xml_feed(document), "<played/><peers/></source>"));
}

TEST(Feeds, OneMountInFullIsStillWithoutTheFiguresForManagers) {
    FeedDocument document = full_document();
    document.for_managers = false;
    for (const std::string& text : {json_feed(document), xml_feed(document)}) {
        EXPECT_TRUE(holds(text, "song_title"));
        EXPECT_TRUE(holds(text, "pbytes_sent"));
        EXPECT_FALSE(holds(text, "bytes_recv"));
        EXPECT_FALSE(holds(text, "average_quarter_hour"));
    }
}

TEST(Feeds, LargeFiguresAreWhole) {
    FeedDocument document = document_of(some_source());
    document.total_nodes = UINT64_MAX;
    document.sources[0].figures.max_receivers = INT32_MAX;
    EXPECT_TRUE(holds(json_feed(document), "\"total_nodes\":18446744073709551615,"));
    EXPECT_TRUE(holds(xml_feed(document), "<total_nodes>18446744073709551615</total_nodes>"));
    EXPECT_TRUE(holds(json_feed(document), "\"max_nodes\":2147483647,"));
}

// ---- Tags ---------------------------------------------------------------------------------------

std::string json_tag(const std::string& value) {
    const std::string json = json_feed(document_with(record("", "", {{"k", value}})));
    const std::string opening = "\"meta_custom_tags\":{\"k\":";
    const std::size_t start = json.find(opening) + opening.size();
    return json.substr(start, json.find('}', start) - start);
}

TEST(FeedTags, NumbersAreNumbersInJson) {
    EXPECT_EQ(json_tag("1999"), "1999");
    EXPECT_EQ(json_tag("-5"), "-5");
    EXPECT_EQ(json_tag("007"), "7");
    EXPECT_EQ(json_tag("-"), "0");
    EXPECT_EQ(json_tag("19a"), "\"19a\"");
    EXPECT_EQ(json_tag("1.5"), "\"1.5\"");
    EXPECT_EQ(json_tag("+1"), "\"+1\"");
    EXPECT_EQ(json_tag(""), "\"\"");
}

TEST(FeedTags, NumbersBeyondTheLimitAreTheLimit) {
    EXPECT_EQ(json_tag("9223372036854775807"), "9223372036854775807");
    EXPECT_EQ(json_tag("9223372036854775808"), "9223372036854775807");
    EXPECT_EQ(json_tag("-99999999999999999999"), "-9223372036854775808");
}

TEST(FeedTags, AreTextsInXml) {
    EXPECT_TRUE(holds(xml_feed(document_with(record("", "", {{"Year", "007"}}))),
                      "<meta_custom_tags><year>007</year></meta_custom_tags>"));
}

TEST(FeedTags, ComeInTheOrderOfTheirKeysAsReceived) {
    const auto metadata = record("", "", {{"b", "1"}, {"A", "2"}, {"c", "3"}});
    EXPECT_TRUE(holds(json_feed(document_with(metadata)), "{\"a\":2,\"b\":1,\"c\":3}"));
    EXPECT_TRUE(holds(xml_feed(document_with(metadata)), "<a>2</a><b>1</b><c>3</c>"));
}

// The second conversion shows only where control bytes keep the text from being UTF-8.
TEST(FeedTags, AreConvertedTwiceInJsonAndOnceInXml) {
    EXPECT_EQ(json_tag("\xE9"), "\"\xC3\xA9\"");
    EXPECT_EQ(json_tag("\x01\xE9"), "\"\\u0001\xC3\x83\xC2\xA9\"");
    EXPECT_TRUE(
        holds(xml_feed(document_with(record("", "", {{"k", "\x01\xE9"}}))), "<k> \xC3\xA9</k>"));
}

TEST(FeedTags, KeysOfRelayedTagsAreCleaned) {
    const auto metadata = record("", "", {{"';Year", "1999"}});
    EXPECT_TRUE(holds(json_feed(document_with(metadata)), "{\"year\":1999}"));
    EXPECT_TRUE(holds(xml_feed(document_with(metadata)), "<year>1999</year>"));
}

TEST(FeedTags, KeysThatAreNoNamesStandInJsonOnly) {
    const auto metadata = record("", "", {{"a b", "1"}, {"x:y", "2"}, {"x><y", "3"}, {"9", "4"}});
    EXPECT_TRUE(
        holds(json_feed(document_with(metadata)), "{\"\":4,\"a b\":1,\"x:y\":2,\"x><y\":3}"));
    EXPECT_TRUE(holds(xml_feed(document_with(metadata)), "<meta_custom_tags/>"));
}

// ---- Texts of strangers -------------------------------------------------------------------------

// What a JSON reader that checks its input finds; null when it refuses the document.
rapidjson::Document parsed(const FeedDocument& document) {
    rapidjson::Document json;
    const std::string text = json_feed(document);
    json.Parse<rapidjson::kParseValidateEncodingFlag>(text.data(), text.size());
    return json;
}

std::string json_field(const FeedDocument& document, const char* key) {
    const rapidjson::Document json = parsed(document);
    if (json.HasParseError()) return "(no JSON)";
    const auto& value = json["sources"][0][key];
    return {value.GetString(), value.GetStringLength()};
}

std::string xml_field(const FeedDocument& document, const char* key) {
    tinyxml2::XMLDocument xml;
    if (xml.Parse(xml_feed(document).c_str()) != tinyxml2::XML_SUCCESS) return "(no XML)";
    const char* text = xml.RootElement()
                           ->FirstChildElement("sources")
                           ->FirstChildElement("source")
                           ->FirstChildElement(key)
                           ->GetText();
    return text ? text : "";
}

TEST(FeedTexts, EveryByteOfATitleHasItsPlace) {
    for (int byte = 0; byte < 0x100; ++byte) {
        const FeedDocument document =
            document_with(record("a" + std::string(1, static_cast<char>(byte)) + "b"));
        const std::string as_read = byte < 0x80 ? std::string(1, static_cast<char>(byte))
                                    : byte < 0xC0
                                        ? "\xC2" + std::string(1, static_cast<char>(byte))
                                        : "\xC3" + std::string(1, static_cast<char>(byte - 0x40));
        EXPECT_EQ(json_field(document, "meta_song"), "a" + as_read + "b") << byte;
        const std::string in_xml = byte == '\r' ? "\n" // of the reader
                                   : byte < 0x20 && byte != '\t' && byte != '\n' ? " "
                                                                                 : as_read;
        EXPECT_EQ(xml_field(document, "meta_song"), "a" + in_xml + "b") << byte;
    }
}

TEST(FeedTexts, QuotesAndMarkupComeBackAsTheyWere) {
    const std::string text = "\"'</meta_song><!-- ]]> &amp; &#x41; \\u0041 {}[],";
    EXPECT_EQ(json_field(document_with(record(text)), "meta_song"), text);
    EXPECT_EQ(xml_field(document_with(record(text)), "meta_song"), text);
}

TEST(FeedTexts, WhatIsConverted) {
    const std::string latin1 = "\xE9";
    FeedDocument document = full_document();
    FeedDocument::Source& source = document.sources[0];
    source.description.name = latin1;
    source.description.description = latin1;
    source.description.genre = latin1;
    source.description.website = latin1;
    source.figures.metadata = record(latin1, latin1, {{"k\xE9", latin1}});
    source.figures.song_history = {{1, record(latin1, "", {{"k\xE9", latin1}})}};
    source.peers[0].user = latin1;
    source.peers[0].user_agent = latin1;
    const std::string json = json_feed(document);
    for (const char* key : {"name", "description", "genre", "url", "meta_song", "meta_url",
                            "song_title", "user", "user_agent", "k\xC3\xA9"}) {
        EXPECT_TRUE(holds(json, "\""s + key + "\":\"\xC3\xA9\"")) << key;
        EXPECT_TRUE(holds(xml_feed(document), "<"s + key + ">\xC3\xA9</"s + key + ">")) << key;
    }
    EXPECT_FALSE(parsed(document).HasParseError());
}

TEST(FeedTexts, WhatDescribesTheAudioStandsAsItIs) {
    const std::string latin1 = "\xE9";
    FeedDocument document = full_document();
    FeedDocument::Source& source = document.sources[0];
    source.description.address = latin1;
    source.description.bitrate = latin1;
    source.description.content_type = latin1;
    source.description.audio_info = latin1;
    source.figures.metadata->codec = latin1;
    source.peers[0].ip = latin1;
    for (const char* key : {"mount", "bitrate", "content_type", "audio_info", "sub_type", "ip"}) {
        EXPECT_TRUE(holds(json_feed(document), "\""s + key + "\":\"\xE9\"")) << key;
        EXPECT_TRUE(holds(xml_feed(document), "<"s + key + ">\xE9</"s + key + ">")) << key;
    }
}

TEST(FeedTexts, WhatDescribesTheAudioCannotBreakTheDocument) {
    FeedDocument document = document_of(some_source());
    document.sources[0].description.audio_info = "a\0\x01\"</audio_info>\\\n\xEF\xBF\xBE"s;
    EXPECT_EQ(json_field(document, "audio_info"), "a\0\x01\"</audio_info>\\\n\xEF\xBF\xBE"s);
    EXPECT_EQ(xml_field(document, "audio_info"), "a  \"</audio_info>\\\n\xEF\xBF\xBD");
}

} // namespace
