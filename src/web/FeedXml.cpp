#include "core/OSTools.h"
#include "web/FeedText.h"
#include "web/FeedWriter.h"

#include <tinyxml2.h>

namespace {

constexpr const char* ROOT = "<quillwave/>";

class XmlFeed final : public FeedWriter {
public:
    std::string Finish(const FeedDocument& document) {
        xml.Parse(ROOT);
        open = xml.RootElement();
        write_feed(*this, document);
        tinyxml2::XMLPrinter printer(nullptr, true);
        xml.Print(&printer);
        return printer.CStr();
    }

    bool ShowsEmpty() const override { return true; }
    void Number(const char* key, std::int64_t value) override { add(key)->SetText(value); }
    void Number(const char* key, std::uint64_t value) override { add(key)->SetText(value); }
    void Text(const char* key, const std::string& words) override { write(key, words); }
    void Id(std::int64_t id) override { open->SetAttribute("id", id); }
    void Id(const std::string& id) override { open->SetAttribute("id", id.c_str()); }

    void BeginObject(const char* key) override { open = add(key); }
    void EndObject() override { close(); }
    // A key that is no name has no place.
    void Tag(const std::string& key, const std::string& value) override {
        if (feed_text::is_xml_name(key)) write(key.c_str(), value);
    }

    void BeginList(const char* key) override { open = add(key); }
    void EndList() override { close(); }
    void BeginEntry(const char* name) override { open = add(name); }
    void EndEntry() override { close(); }

private:
    tinyxml2::XMLElement* add(const char* name) { return open->InsertNewChildElement(name); }
    void close() { open = open->Parent()->ToElement(); }
    void write(const char* name, const std::string& words) {
        add(name)->SetText(feed_text::for_xml(words).c_str());
    }

    tinyxml2::XMLDocument xml;
    tinyxml2::XMLElement* open = nullptr; // the element that is being filled; the document's own
};

} // namespace

std::string xml_feed(const FeedDocument& document) { return XmlFeed().Finish(document); }
