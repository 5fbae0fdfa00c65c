#pragma once

#include "web/FeedDocument.h"

#include <cstdint>
#include <string>

// A format of the status documents. A document is one object of named values; a list in it has
// entries, which are such objects again.
class FeedWriter {
public:
    FeedWriter() = default;
    FeedWriter(const FeedWriter&) = delete;
    FeedWriter& operator=(const FeedWriter&) = delete;
    virtual ~FeedWriter() = default;

    // Whether an empty list or value has its place in this format all the same.
    virtual bool ShowsEmpty() const = 0;

    virtual void Number(const char* key, std::int64_t value) = 0;
    virtual void Number(const char* key, std::uint64_t value) = 0;
    virtual void Text(const char* key, const std::string& text) = 0;
    // What identifies the entry of a list; its first value.
    virtual void Id(std::int64_t id) = 0;
    virtual void Id(const std::string& id) = 0;

    virtual void BeginObject(const char* key) = 0;
    virtual void EndObject() = 0;
    // One tag of a stream, in the object just begun.
    virtual void Tag(const std::string& key, const std::string& value) = 0;

    virtual void BeginList(const char* key) = 0;
    virtual void EndList() = 0;
    virtual void BeginEntry(const char* name) = 0;
    virtual void EndEntry() = 0;
};

// The fields of a document in their order, but for the object around them.
void write_feed(FeedWriter& out, const FeedDocument& document);
