// Printing contacts, records and tables as aligned text or as JSON.
#include "Output.h"

#include <cstdio>
#include <ctime>

namespace velmctl {

namespace {

bool active(const velm::ContactRecord& contact) {
    return contact.qvalue() == "0.800000";
}

std::string expiresIn(const velm::ContactRecord& contact) {
    if (contact.permanent() == "t")
        return "permanent";
    long left = contact.expires() - static_cast<long>(time(nullptr));
    return left < 0 ? "expired" : std::to_string(left) + "s";
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

} // namespace

std::string Output::jsonText(const std::string& text) {
    std::string quoted = "\"";
    for (unsigned char c : text) {
        if (c == '"' || c == '\\') {
            quoted += '\\';
            quoted += static_cast<char>(c);
        } else if (c < 0x20) {
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\u%04x", c);
            quoted += escape;
        } else {
            quoted += static_cast<char>(c);
        }
    }
    return quoted + "\"";
}

void Output::contacts(const std::string& title, const std::string& aor,
                      const std::vector<velm::ContactRecord>& contacts) {
    if (m_json) {
        std::string list = "{\"title\":" + jsonText(title) + ",\"aor\":" + jsonText(aor) + ",\"contacts\":[";
        for (size_t index = 0; index < contacts.size(); ++index) {
            const velm::ContactRecord& c = contacts[index];
            list += std::string(index > 0 ? "," : "") + "{\"contact_id\":" + std::to_string(c.contactId()) +
                    ",\"address\":" + jsonText(c.address()) + ",\"qvalue\":" + jsonText(c.qvalue()) +
                    ",\"active\":" + (active(c) ? "true" : "false") + ",\"expires\":" + std::to_string(c.expires()) +
                    ",\"permanent\":" + (c.permanent() == "t" ? "true" : "false") +
                    ",\"contact_header\":" + jsonText(c.contactHeader()) + ",\"call_id\":" + jsonText(c.callId()) +
                    ",\"cseq\":" + std::to_string(c.cseq()) + "}";
        }
        m_lists.push_back(list + "]}");
        return;
    }
    std::printf("%s: %s\n", title.c_str(), aor.c_str());
    if (contacts.empty()) {
        std::printf("  (no contacts)\n\n");
        return;
    }
    std::vector<std::vector<std::string>> rows{{"  ID", "ADDRESS", "QVALUE", "STATE", "EXPIRES", "CSEQ", "CALL-ID"}};
    for (const auto& c : contacts)
        rows.push_back({"  " + std::to_string(c.contactId()), c.address(), c.qvalue(), active(c) ? "active" : "inactive",
                        expiresIn(c), std::to_string(c.cseq()), c.callId()});
    printTable(rows);
    std::printf("\n");
}

void Output::record(const std::string& title, const std::vector<std::pair<std::string, std::string>>& fields) {
    if (m_json) {
        std::string item = "{\"title\":" + jsonText(title) + ",\"fields\":{";
        for (size_t index = 0; index < fields.size(); ++index)
            item += (index > 0 ? "," : "") + jsonText(fields[index].first) + ":" + jsonText(fields[index].second);
        m_lists.push_back(item + "}}");
        return;
    }
    std::printf("%s\n", title.c_str());
    std::vector<std::vector<std::string>> rows;
    for (const auto& field : fields)
        rows.push_back({"  " + field.first + ":", field.second});
    printTable(rows);
    std::printf("\n");
}

void Output::table(const std::string& title, const std::vector<std::string>& columns,
                   const std::vector<std::vector<std::string>>& rows) {
    if (m_json) {
        std::string item = "{\"title\":" + jsonText(title) + ",\"rows\":[";
        for (size_t row = 0; row < rows.size(); ++row) {
            item += row > 0 ? ",{" : "{";
            for (size_t column = 0; column < columns.size() && column < rows[row].size(); ++column)
                item += (column > 0 ? "," : "") + jsonText(columns[column]) + ":" + jsonText(rows[row][column]);
            item += "}";
        }
        m_lists.push_back(item + "]}");
        return;
    }
    std::printf("%s\n", title.c_str());
    if (rows.empty()) {
        std::printf("  (none)\n\n");
        return;
    }
    std::vector<std::vector<std::string>> lines{{}};
    for (const std::string& column : columns)
        lines[0].push_back((lines[0].empty() ? "  " : "") + column);
    for (const auto& row : rows) {
        lines.push_back(row);
        if (!row.empty())
            lines.back()[0] = "  " + row[0];
    }
    printTable(lines);
    std::printf("\n");
}

void Output::note(const std::string& text) {
    if (m_json)
        m_notes.push_back(text);
    else
        std::printf("%s\n", text.c_str());
}

void Output::field(const std::string& name, const std::string& value, bool literal) {
    if (m_json)
        m_fields.push_back(jsonText(name) + ":" + (literal ? value : jsonText(value)));
    else
        std::printf("%s: %s\n", name.c_str(), value.c_str());
}

void Output::finish() {
    if (!m_json)
        return;
    std::string document = "{";
    for (const std::string& member : m_fields)
        document += member + ",";
    document += "\"lists\":[";
    for (size_t index = 0; index < m_lists.size(); ++index)
        document += (index > 0 ? "," : "") + m_lists[index];
    document += "],\"messages\":[";
    for (size_t index = 0; index < m_notes.size(); ++index)
        document += (index > 0 ? "," : "") + jsonText(m_notes[index]);
    std::printf("%s]}\n", document.c_str());
}

} // namespace velmctl
