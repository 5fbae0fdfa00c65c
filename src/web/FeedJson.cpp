#include "core/OSTools.h"
#include "web/FeedText.h"
#include "web/FeedWriter.h"

#include <cstdlib>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

namespace {

// Control bytes, quotes and backslashes are escaped; all other bytes stand as they are.
class JsonFeed final : public FeedWriter {
public:
    std::string Finish(const FeedDocument& document) {
        json.StartObject();
        write_feed(*this, document);
        json.EndObject();
        return {text.GetString(), text.GetSize()};
    }

    bool ShowsEmpty() const override { return false; }
    void Number(const char* key, std::int64_t value) override {
        json.Key(key);
        json.Int64(value);
    }
    void Number(const char* key, std::uint64_t value) override {
        json.Key(key);
        json.Uint64(value);
    }
    void Text(const char* key, const std::string& words) override {
        json.Key(key);
        write(words);
    }
    void Id(std::int64_t id) override { Number("id", id); }
    void Id(const std::string& id) override { Text("id", id); }

    void BeginObject(const char* key) override {
        json.Key(key);
        json.StartObject();
    }
    void EndObject() override { json.EndObject(); }
    // Kept: a value that is no number is converted once more. Only one with control bytes shows it,
    // for its accented letters come out doubled.
    void Tag(const std::string& key, const std::string& value) override {
        json.Key(key.data(), static_cast<rapidjson::SizeType>(key.size()));
        if (is_number(value))
            json.Int64(std::strtoll(value.c_str(), nullptr, 10));
        else
            write(feed_text::to_utf8(value));
    }

    void BeginList(const char* key) override {
        json.Key(key);
        json.StartArray();
    }
    void EndList() override { json.EndArray(); }
    void BeginEntry(const char*) override { json.StartObject(); }
    void EndEntry() override { json.EndObject(); }

private:
    void write(const std::string& words) {
        json.String(words.data(), static_cast<rapidjson::SizeType>(words.size()));
    }

    rapidjson::StringBuffer text;
    rapidjson::Writer<rapidjson::StringBuffer> json{text};
};

} // namespace

std::string json_feed(const FeedDocument& document) { return JsonFeed().Finish(document); }
