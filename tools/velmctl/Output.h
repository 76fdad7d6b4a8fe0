// Output: what velmctl prints, for people or for scripts.
#ifndef VELMCTL_OUTPUT_H
#define VELMCTL_OUTPUT_H

#include "ContactRecord.h"
#include "Status.h"
#include "Value.h"

#include <string>
#include <utility>
#include <vector>

namespace velmctl {

using Fields = std::vector<std::pair<std::string, Value>>;
using Row = std::vector<Value>;

// A command's answer for people (aligned tables, printed as they come) or for
// scripts (one JSON document on standard output, written by finish()). Both
// carry the same fields under the same names.
class Output {
public:
    explicit Output(bool json) : m_json(json) {}

    // One titled list of contacts of `aor`: an object with "title", "aor" and
    // "contacts" in the document's "lists".
    void contacts(const std::string& title, const std::string& aor, const std::vector<velm::ContactRecord>& contacts);
    // Named values under a title: "name: value" lines, or an object with
    // "title" and "fields" in "lists".
    void record(const std::string& title, const Fields& fields);
    // Rows under a title and column names: a table, or an object with "title"
    // and "rows" (objects keyed by the column names) in "lists".
    void table(const std::string& title, const std::vector<std::string>& columns, const std::vector<Row>& rows);
    // A line of text for people; an entry of "messages" in JSON.
    void note(const std::string& text);
    // "name: value" for people; a member of the document in JSON.
    void field(const std::string& name, const Value& value);
    // Ends the answer. A failure with a message is, in JSON, the whole
    // document: {"error": {"code", "name", "message"}}; for people it is a
    // line on standard error.
    void finish(const Outcome& outcome);

private:
    void list(const std::string& heading, const std::string& head, const std::string& member,
              const std::vector<std::string>& columns, const std::vector<Row>& rows, const char* empty);

    bool m_json;
    std::vector<std::string> m_lists;
    std::vector<std::string> m_notes;
    std::vector<std::string> m_fields;
};

} // namespace velmctl

#endif
