#pragma once

#include "web/Html.h"
#include "web/StreamState.h"

#include <ctime>
#include <string>
#include <vector>

// The rows of the table of streams, in the form for everybody or in that for who manages them. Made
// for one page, on one thread.
class StreamTable {
public:
    using Streams = std::vector<StreamState>;

    enum class Form { FOR_ALL, FOR_MANAGERS };
    // Elapsed times are counted to `moment`.
    StreamTable(Form table_form, time_t moment_shown) : form(table_form), moment(moment_shown) {}

    // The names of the columns, and the words in place of streams. One of the two is hidden.
    html::Markup Head(bool is_empty, const html::Markup& master_check) const;
    html::Markup None(bool is_empty) const;
    // A stream that has a source.
    html::Markup Row(const StreamState& stream) const;
    // A single cell as wide as the table.
    html::Markup Wide(const html::Attributes& row_attributes, const html::Markup& content) const;

    // For managers: a title, and a row for each of these streams without a source. Nothing without
    // streams.
    html::Markup Block(const std::string& title, const std::string& row_class,
                       const Streams& streams) const;
    // For managers: what to do with the streams, and the sums over those that have a source.
    static html::Markup Totals(const html::Markup& actions, const Streams& connected);

private:
    const Form form;
    const time_t moment;
};
