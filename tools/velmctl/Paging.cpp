// Reading the paging options and writing the SQL and the "next_offset" of a page.
#include "Paging.h"

#include "EscapedString.h"
#include "Input.h"

namespace velmctl {

const std::vector<std::string> Page::OPTIONS{"--limit", "--offset", "--like"};

Outcome Page::read(const Arguments& arguments) {
    Outcome outcome;
    if (arguments.has("--limit"))
        outcome = parseNumber("--limit", arguments.option("--limit"), 1, 100000, limit);
    if (outcome.ok() && arguments.has("--offset"))
        outcome = parseNumber("--offset", arguments.option("--offset"), 0, 2147483647L, offset);
    like = arguments.option("--like");
    return outcome;
}

std::string Page::sql() const {
    return " LIMIT " + std::to_string(limit + 1) + " OFFSET " + std::to_string(offset);
}

std::string Page::matches(const std::string& expression) const {
    if (like.empty())
        return "true";
    return expression + " ILIKE '" + velm::EscapedString(like).value() + "'";
}

void Page::report(long read, Output& output) const {
    output.field("next_offset", read > limit ? Value::number(offset + limit) : Value::none());
}

} // namespace velmctl
