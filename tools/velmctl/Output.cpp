// Printing contacts, records and tables as aligned text or as one JSON document, and a failure either way.
#include "Output.h"

#include <cstdio>
#include <ctime>

namespace velmctl {

namespace {

const std::vector<std::string> CONTACT_COLUMNS{"contact_id", "address",    "qvalue", "active",  "permanent",
                                               "expires_in", "expires_at", "cseq",   "call_id", "contact_header"};

// The registrar's mark of the active contact.
bool active(const velm::ContactRecord& contact) {
    return contact.qvalue() == "0.800000";
}

Row contactRow(const velm::ContactRecord& c, long now) {
    bool permanent = c.permanent() == "t";
    return {Value::number(c.contactId()),
            c.address(),
            c.qvalue(),
            Value::flag(active(c)),
            Value::flag(permanent),
            permanent ? Value::none() : Value::secondsUntil(c.expires(), now),
            permanent ? Value::none() : Value::utcTime(c.expires()),
            Value::number(c.cseq()),
            c.callId(),
            c.contactHeader()};
}

void printTable(const std::vector<std::vector<std::string>>& rows) {
    std::vector<size_t> widths;
    for (const auto& row : rows)
        for (size_t column = 0; column < row.size(); ++column) {
            if (widths.size() <= column)
                widths.push_back(0);
            widths[column] = std::max(widths[column], row[column].size());
        }
    for (const auto& row : rows) {
        std::string line;
        for (size_t column = 0; column < row.size(); ++column) {
            line += row[column];
            if (column + 1 < row.size())
                line += std::string(widths[column] - row[column].size() + 2, ' ');
        }
        std::printf("%s\n", line.c_str());
    }
}

const char* statusName(Status status) {
    switch (status) {
    case SUCCESS:
        return "success";
    case NOT_FOUND:
        return "not_found";
    case BAD_INPUT:
        return "bad_input";
    case DATABASE_ERROR:
        return "database_error";
    }
    return "unknown";
}

} // namespace

void Output::list(const std::string& heading, const std::string& head, const std::string& member,
                  const std::vector<std::string>& columns, const std::vector<Row>& rows, const char* empty) {
    if (m_json) {
        std::string item = "{" + head + "," + Value::quoted(member) + ":[";
        for (size_t row = 0; row < rows.size(); ++row) {
            item += row > 0 ? ",{" : "{";
            for (size_t column = 0; column < columns.size() && column < rows[row].size(); ++column)
                item += (column > 0 ? "," : "") + Value::quoted(columns[column]) + ":" + rows[row][column].json();
            item += "}";
        }
        m_lists.push_back(item + "]}");
        return;
    }
    std::printf("%s\n", heading.c_str());
    if (rows.empty()) {
        std::printf("  %s\n\n", empty);
        return;
    }
    std::vector<std::vector<std::string>> lines{{}};
    for (const std::string& column : columns)
        lines[0].push_back((lines[0].empty() ? "  " : "") + column);
    for (const Row& row : rows) {
        lines.emplace_back();
        for (const Value& value : row)
            lines.back().push_back((lines.back().empty() ? "  " : "") + value.text());
    }
    printTable(lines);
    std::printf("\n");
}

void Output::contacts(const std::string& title, const std::string& aor,
                      const std::vector<velm::ContactRecord>& contacts) {
    long now = static_cast<long>(time(nullptr));
    std::vector<Row> rows;
    for (const velm::ContactRecord& contact : contacts)
        rows.push_back(contactRow(contact, now));
    list(title + ": " + aor, "\"title\":" + Value::quoted(title) + ",\"aor\":" + Value::quoted(aor), "contacts",
         CONTACT_COLUMNS, rows, "(no contacts)");
}

void Output::record(const std::string& title, const Fields& fields) {
    if (m_json) {
        std::string item = "{\"title\":" + Value::quoted(title) + ",\"fields\":{";
        for (size_t index = 0; index < fields.size(); ++index)
            item += (index > 0 ? "," : "") + Value::quoted(fields[index].first) + ":" + fields[index].second.json();
        m_lists.push_back(item + "}}");
        return;
    }
    std::printf("%s\n", title.c_str());
    std::vector<std::vector<std::string>> rows;
    for (const auto& field : fields)
        rows.push_back({"  " + field.first + ":", field.second.text()});
    printTable(rows);
    std::printf("\n");
}

void Output::table(const std::string& title, const std::vector<std::string>& columns, const std::vector<Row>& rows) {
    list(title, "\"title\":" + Value::quoted(title), "rows", columns, rows, "(none)");
}

void Output::note(const std::string& text) {
    if (m_json)
        m_notes.push_back(text);
    else
        std::printf("%s\n", text.c_str());
}

void Output::field(const std::string& name, const Value& value) {
    if (m_json)
        m_fields.push_back(Value::quoted(name) + ":" + value.json());
    else
        std::printf("%s: %s\n", name.c_str(), value.text().c_str());
}

void Output::finish(const Outcome& outcome) {
    bool failed = !outcome.ok() && !outcome.message.empty();
    if (!m_json) {
        if (failed)
            std::fprintf(stderr, "velmctl: %s\n", outcome.message.c_str());
        return;
    }
    if (failed) {
        // The problem alone: usage text is for people.
        std::printf("{\"error\":{\"code\":%d,\"name\":\"%s\",\"message\":%s}}\n", static_cast<int>(outcome.status),
                    statusName(outcome.status), Value::quoted(outcome.message.substr(0, outcome.message.find('\n'))).c_str());
        return;
    }
    std::string document = "{";
    for (const std::string& member : m_fields)
        document += member + ",";
    document += "\"lists\":[";
    for (size_t index = 0; index < m_lists.size(); ++index)
        document += (index > 0 ? "," : "") + m_lists[index];
    document += "],\"messages\":[";
    for (size_t index = 0; index < m_notes.size(); ++index)
        document += (index > 0 ? "," : "") + Value::quoted(m_notes[index]);
    std::printf("%s]}\n", document.c_str());
}

} // namespace velmctl
