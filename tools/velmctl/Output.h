// Output: what velmctl prints, for people or for scripts.
#ifndef VELMCTL_OUTPUT_H
#define VELMCTL_OUTPUT_H

#include "ContactRecord.h"

#include <string>
#include <utility>
#include <vector>

namespace velmctl {

// Contacts for people (an aligned table) or for scripts (JSON, one document
// per command on standard output).
class Output {
public:
    explicit Output(bool json) : m_json(json) {}
    bool json() const { return m_json; }

    // One titled list of contacts of `aor`. In JSON all lists of a command
    // form one document, written by finish().
    void contacts(const std::string& title, const std::string& aor, const std::vector<velm::ContactRecord>& contacts);
    // Named values under a title: "name: value" lines for people, an object
    // of "fields" in JSON.
    void record(const std::string& title, const std::vector<std::pair<std::string, std::string>>& fields);
    // Rows under a title and column names: a table for people, an array of
    // "rows" objects keyed by the column names in JSON.
    void table(const std::string& title, const std::vector<std::string>& columns,
               const std::vector<std::vector<std::string>>& rows);
    // A line of text for people; a "message" member in JSON.
    void note(const std::string& text);
    // "name: value" for people; a member of the document in JSON, a string
    // unless `literal` (a number or true/false).
    void field(const std::string& name, const std::string& value, bool literal = false);
    void finish();

    static std::string jsonText(const std::string& text);

private:
    bool m_json;
    std::vector<std::string> m_lists;
    std::vector<std::string> m_notes;
    std::vector<std::string> m_fields;
};

} // namespace velmctl

#endif
